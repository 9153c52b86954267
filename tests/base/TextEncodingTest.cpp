#include "base/TextEncoding.h"

#include <gtest/gtest.h>

namespace vn {
namespace {

TEST(TextEncoding, ValidatesUTF8ByTheStrictRules) {
    struct Case {
        const char* name;
        std::string bytes;
        bool valid;
    };
    const Case cases[] = {
        {"ascii", "plain text longer than eight bytes", true},
        {"two-byte", "caf\xC3\xA9", true},
        {"four-byte", "\xF0\x9F\x98\x80", true},
        {"overlong slash", "\xC0\xAF", false},
        {"surrogate", "\xED\xA0\x80", false},
        {"above U+10FFFF", "\xF4\x90\x80\x80", false},
        {"cut at end", "abc\xE2\x82", false},
        {"stray continuation", "a\x80z", false},
        {"latin-1 e acute", "caf\xE9", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(isValidUTF8(c.bytes), c.valid);
    }
}

TEST(TextEncoding, CompletePrefixStopsBeforeAnUnfinishedCharacter) {
    EXPECT_EQ(completeUTF8PrefixLength("ab\xE2\x82"), 2u);
    EXPECT_EQ(completeUTF8PrefixLength("ab\xE2\x82\xAC"), 5u);
    EXPECT_EQ(completeUTF8PrefixLength("ab\xF0\x9F\x98"), 2u);
    EXPECT_EQ(completeUTF8PrefixLength("ab"), 2u);
    EXPECT_EQ(completeUTF8PrefixLength(""), 0u);
}

TEST(TextEncoding, RepairReplacesEachMaximalInvalidSubpart) {
    EXPECT_EQ(repairUTF8("a\xE2\x82z"), "a\xEF\xBF\xBDz");
    EXPECT_EQ(repairUTF8("\xFF\xFE"), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(repairUTF8("ok \xC3\xA9"), "ok \xC3\xA9");
}

TEST(TextEncoding, FallsBackToMacRomanForBytesThatAreNotUTF8) {
    TextEncoding used;
    auto text = decodeWithFallbacks("caf\x8E", &used);  // 0x8E is e acute in Mac OS Roman
    ASSERT_TRUE(text);
    EXPECT_EQ(used, TextEncoding::MacRoman);
    EXPECT_EQ(*text, "caf\xC3\xA9");
    EXPECT_EQ(decodeText("caf\xE9", TextEncoding::Latin1), "caf\xC3\xA9");
    EXPECT_EQ(decodeText("\x80", TextEncoding::Windows1252), "\xE2\x82\xAC");
}

TEST(TextEncoding, EncodeRoundTripsAndRefusesWhatCannotBeWritten) {
    EXPECT_EQ(encodeText("caf\xC3\xA9", TextEncoding::Latin1), "caf\xE9");
    EXPECT_EQ(encodeText("caf\xC3\xA9", TextEncoding::MacRoman), "caf\x8E");
    EXPECT_FALSE(encodeText("\xE2\x82\xAC", TextEncoding::Latin1));
}

TEST(TextEncoding, TruncationNeverSplitsACharacter) {
    std::string text = "ab\xC3\xA9";
    EXPECT_EQ(truncateUTF8(text, 3), "ab");
    EXPECT_EQ(truncateUTF8(text, 4), text);
    EXPECT_EQ(truncateUTF8(text, 10), text);
}

}  // namespace
}  // namespace vn
