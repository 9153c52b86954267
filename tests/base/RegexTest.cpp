#include "base/Regex.h"

#include <gtest/gtest.h>

namespace vn {
namespace {

TEST(Regex, CapturesAreByteRangesIntoUTF8Text) {
    Regex splitter("^([^\\.\\{]+)(?:\\{([^}]+)\\})?\\.(.*)");
    auto m = splitter.match("submodule{caf\xC3\xA9 b}.path");
    ASSERT_TRUE(m);
    EXPECT_EQ(m->groupCount(), 4u);
    EXPECT_EQ(m->group(1), "submodule");
    EXPECT_EQ(m->group(2), "caf\xC3\xA9 b");
    EXPECT_EQ(m->group(3), "path");

    auto plain = splitter.match("ui.username");
    ASSERT_TRUE(plain);
    EXPECT_FALSE(plain->matched(2));
    EXPECT_EQ(plain->group(3), "username");
}

TEST(Regex, FindSearchAndReplace) {
    Regex r("permission denied", Regex::CaseInsensitive);
    EXPECT_TRUE(r.search("git@host: Permission Denied (publickey)"));
    EXPECT_FALSE(r.matches("git@host: Permission Denied"));
    Regex digits("[0-9]+");
    auto all = digits.findAll("a1 b22 c333");
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[2].group(0), "333");
    EXPECT_EQ(digits.replaceAll("a1 b22", "<$0>"), "a<1> b<22>");
    EXPECT_TRUE(Regex(Regex::escape("a.b*c (d)")).matches("a.b*c (d)"));
}

TEST(Regex, InvalidPatternIsReportedNotThrown) {
    Regex bad("([unclosed");
    EXPECT_FALSE(bad.isValid());
    EXPECT_FALSE(bad.errorText().empty());
    EXPECT_FALSE(bad.search("anything"));
}

}  // namespace
}  // namespace vn
