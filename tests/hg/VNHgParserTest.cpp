#include <gtest/gtest.h>

#include "base/Regex.h"
#include "hg/VNHgLogParser.h"
#include "hg/VNHgStatusParser.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNFileStatusEntity.h"
#include "model/VNLogLabel.h"

namespace {

const std::string S = std::string(VNRepoHandlerMercurial::FieldSeparator);

std::string joinedPath(const vn::Record& r) {
    std::string folder = r.string("path");
    return folder.empty() ? r.string("filename") : folder + "/" + r.string("filename");
}

std::string describe(const std::vector<vn::Record>& entries) {
    std::string out;
    for (const vn::Record& e : entries) {
        out += std::to_string(e.integer("status")) + ":" + joinedPath(e);
        if (e.contains("previousName")) {
            out += "<" + e.string("previousName");
        }
        out += ";";
    }
    return out;
}

TEST(VNHgStatusParser, StatusListings) {
    struct Case {
        const char* name;
        std::string output;
        std::string expected;
    };
    const Case cases[] = {
        {"every letter", "M m\nA a\nR r\n! gone\n? new\nI ign\nC clean\n",
         "2:m;4:a;8:r;64:gone;128:new;256:ign;1:clean;"},
        {"rename folds the removed source", "A dir/new name\n  old name\nR old name\n",
         "512:dir/new name<old name;"},
        {"copy of a file that stays is an addition", "A copy\n  orig\nM orig\n", "4:copy;2:orig;"},
        {"source listed before the copy", "R src\nA dst\n  src\n", "512:dst<src;"},
        {"two copies of one removed source", "A a\n  s\nA b\n  s\nR s\n", "512:a<s;512:b<s;"},
        {"probe folders", "? hg-checklink-x1/f\n? d/.hgcheckabc/f\n? hg-checklink-\n? x/y\n",
         "128:hg-checklink-;128:x/y;"},
        {"probe folder name only counts for untracked files", "M hg-checklink-a/f\n",
         "2:hg-checklink-a/f;"},
        {"CRLF stays part of nothing but the name hg printed", "M a b\r\n", "2:a b\r;"},
        {"non-UTF-8 and quotes", "M caf\xe9 \"q\" \\b\n", "2:caf\xe9 \"q\" \\b;"},
        {"copy line without a preceding addition is ignored", "  stray\nM a\n", "2:a;"},
        {"short and empty lines", "\n?\nM\nM x", "2:x;"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(describe(VNHgStatusParser::parseFileStatus(c.output)), c.expected);
    }
}

TEST(VNHgStatusParser, ResolveEntriesReplaceOrAdd) {
    auto status = VNHgStatusParser::parseFileStatus("M a\nM dir/b\n? c\n");
    auto resolved = VNHgStatusParser::parseFileResolveStatus("U a\nR dir/b\nU only here\nX bad\n");
    EXPECT_EQ(describe(resolved), "16:a;32:dir/b;16:only here;");
    VNHgStatusParser::mergeResolveEntries(status, resolved);
    EXPECT_EQ(describe(status), "16:a;32:dir/b;128:c;16:only here;");
}

TEST(VNHgStatusParser, Summary) {
    auto s = VNHgStatusParser::parseSummary(
        "parent: 3:a2d02785ee21 tip\n"
        " branch: evil message line\n"
        "parent: 1:71a8fe90bbfa \n"
        " commit: (clean)\n"
        "branch: feature x\n"
        "commit: 2 modified, 1 added, 1 renamed, 1 copied, 3 unknown, 1 deleted, 2 unresolved "
        "(merge)\n"
        "update: (current)\n");
    EXPECT_EQ(s.string("parent1"), "3");
    EXPECT_EQ(s.string("parent2"), "1");
    EXPECT_EQ(s.string("branch"), "feature x");
    EXPECT_TRUE(s.boolean("ismerge"));
    EXPECT_FALSE(s.boolean("isclean"));
    EXPECT_EQ(s.integer("numfilesmodified"), 3);
    EXPECT_EQ(s.integer("numfilesadded"), 2);
    EXPECT_EQ(s.integer("numfilesunknown"), 3);
    EXPECT_EQ(s.integer("numfilesmissing"), 1);
    EXPECT_EQ(s.integer("numfilesunresolved"), 2);
    auto clean = VNHgStatusParser::parseSummary(
        "parent: -1:000000000000 tip (empty repository)\nbranch: default\ncommit: (clean)\n");
    EXPECT_TRUE(clean.boolean("isclean"));
    EXPECT_EQ(clean.string("parent1"), "-1");
    auto fresh = VNHgStatusParser::parseSummary("commit: 1 added (new branch head)\n");
    EXPECT_TRUE(fresh.boolean("isnewbranch"));
}

TEST(VNHgLogParser, LogLines) {
    VNHgLogParser::LabelMap labels;
    VNHgLogParser::addTagsBranchesOutput("tip    5:aaaaaaaaaaaa\nv 1.0 rc    3:bbbbbbbbbbbb\n",
                                         VNLogLabel::Tag, labels);
    VNHgLogParser::addBookmarksOutput(
        " * main                     5:aaaaaaaaaaaa\n   side x   2:cccccccccccc\nno bookmarks "
        "set\n",
        labels);
    ASSERT_EQ(labels["5"].size(), 2u);
    EXPECT_EQ(labels["5"][1]->label(), "main");
    EXPECT_TRUE(labels["5"][1]->currentMarker());
    EXPECT_EQ(labels["3"][0]->label(), "v 1.0 rc");
    EXPECT_EQ(labels["2"][0]->label(), "side x");
    EXPECT_FALSE(labels["2"][0]->currentMarker());

    struct Case {
        std::string line;
        const char* rev;
        const char* p1;
        const char* p2;
        const char* subject;
    };
    const Case cases[] = {
        {"5" + S + "aaaaaaaaaaaa" + S + std::string(40, 'a') + S + S + "2024-01-02 03:04:05 +0130" +
             S + "Ann <a@x>" + S + S + "five" + S + "tip",
         "5", "4", "", "five"},
        {"0" + S + "0000" + S + "00" + S + S + "2024-01-02 03:04:05 +0000" + S + "u" + S + S +
             "root" + S,
         "0", "", "", "root"},
        {"7" + S + "h" + S + "hh" + S + "3:abc 6:def " + S + "2024-01-02 03:04:05 -0500" + S + "u" +
             S + "br" + S + "merge \xe2\x80\xa8 it" + S,
         "7", "3", "6", "merge \xe2\x80\xa8 it"},
        {"3" + S + "h" + S + "hh" + S + "-1:000000000000 " + S + "2024-01-02 03:04:05 +0000" + S +
             "u" + S + S + "x" + S,
         "3", "", "", "x"},
        {"1" + S + "2" + S + "3" + S + "4" + S + "5" + S + "6" + S + "7" + S + "8", "", "", "",
         "Error, see log"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        vn::Record row = VNHgLogParser::parseLogLine(c.line, labels);
        EXPECT_EQ(row.string("rev"), c.rev);
        EXPECT_EQ(row.string("parentid1"), c.p1);
        EXPECT_EQ(row.string("parentid2"), c.p2);
        auto entry = row["descriptionentry"].objectAs<VNLogDescriptionEntry>();
        ASSERT_TRUE(entry);
        EXPECT_EQ(entry->description(), c.subject);
        EXPECT_NE(row["date"].date(), nullptr);
    }
    // A listing drops line separators before splitting, and an error row keeps its place.
    auto rows = VNHgLogParser::processLogResults(
        cases[2].line + "\n" + cases[4].line + "\n" + cases[0].line + "\n", labels);
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0]["descriptionentry"].objectAs<VNLogDescriptionEntry>()->description(),
              "merge  it");
    EXPECT_EQ(rows[1].string("rev"), "");
    EXPECT_EQ(rows[2]["descriptionentry"].objectAs<VNLogDescriptionEntry>()->labels().size(), 2u);
}

TEST(VNHgLogParser, IsoDatesAreMomentsWithTheirZone) {
    vn::Value a = VNHgLogParser::isoDate("2024-01-02 03:04:05 +0130");
    vn::Value b = VNHgLogParser::isoDate("2024-01-02 01:34:05 +0000");
    ASSERT_TRUE(a.date() && b.date());
    EXPECT_EQ(*a.date(), *b.date());
    EXPECT_EQ(a.dateOffset(), 5400);
    vn::Value old = VNHgLogParser::isoDate("1901-12-31 23:59:59 -1200");
    ASSERT_TRUE(old.date());
    EXPECT_LT(old.date()->time_since_epoch().count(), 0);
    for (const char* bad : {"", "2024-13-02 03:04:05 +0000", "2024-01-02T03:04:05 +0000",
                            "2024-01-02 03:04:05 0000", "20x4-01-02 03:04:05 +0000"}) {
        SCOPED_TRACE(bad);
        EXPECT_TRUE(VNHgLogParser::isoDate(bad).isNull());
    }
}

TEST(VNHgLogParser, Blame) {
    auto lines = VNHgLogParser::parseBlame(
        "Test User <t@x> 0 9d0dfa7ef0b7: first: with colon\n"
        "a:b 12 abcdefabcdef:   indented\n"
        "u 3 0123456789ab: \n"
        "garbage line\n");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].string("user"), "Test User <t@x>");
    EXPECT_EQ(lines[0].string("rev"), "0");
    EXPECT_EQ(lines[0].string("changesetshort"), "9d0dfa7ef0b7");
    EXPECT_EQ(lines[0].string("linecontents"), "first: with colon");
    EXPECT_EQ(lines[1].string("user"), "a:b");
    EXPECT_EQ(lines[1].string("linecontents"), "  indented");
    EXPECT_EQ(lines[2].integer("line"), 3);
    EXPECT_EQ(lines[2].string("linecontents"), "");
}

TEST(VNRepoHandlerMercurialRules, StatusOptionsAndVersions) {
    using H = VNRepoHandlerMercurial;
    EXPECT_TRUE(H::statusOptionsForMask(16 | 32).empty());
    EXPECT_TRUE(H::statusOptionsForMask(0).empty());
    std::vector<std::string> all{"-u", "-c", "-m", "-a", "-r", "-d", "-i", "-C"};
    EXPECT_EQ(H::statusOptionsForMask(0x3ff), all);
    EXPECT_EQ(H::statusOptionsForMask(VNFileStatusAdded | VNFileStatusUnknown),
              (std::vector<std::string>{"-u", "-a", "-C"}));
    EXPECT_EQ(H::parseVersionNumber("Mercurial Distributed SCM (version 6.3.2)\n(see ...)"),
              "6.3.2");
    EXPECT_EQ(H::parseVersionNumber("Mercurial Distributed SCM (version 4.5+20-abc)"), "4.5+20");
    struct Case {
        const char* version;
        bool incompatible;
    };
    for (Case c : {Case{"3.1.2", true}, Case{"3.1.3", false}, Case{"2.9.9", true},
                   Case{"3.8.0", false}, Case{"3.7.2", true}, Case{"3.7", false},
                   Case{"6.3.2", false}, Case{"3.0.1+5-x", true}, Case{"4", false}}) {
        SCOPED_TRACE(c.version);
        EXPECT_EQ(H::isIncompatibleVersion(c.version), c.incompatible);
    }
}

TEST(VNRepoHandlerMercurialRules, IgnorePatternsAreAddedOnceInAGlobSection) {
    struct Case {
        const char* name;
        const char* before;
        std::vector<std::string> patterns;
        const char* after;
    };
    const Case cases[] = {
        {"empty file", "", {"*.o"}, "syntax: glob\n*.o\n"},
        {"already present", "syntax: glob\n  *.o \n", {"*.o"}, "syntax: glob\n  *.o \n"},
        {"after the glob section",
         "syntax: glob\na\nsyntax: regexp\n^b$\n",
         {"c"},
         "syntax: glob\na\nsyntax: regexp\n^b$\nsyntax: glob\nc\n"},
        {"into the glob section",
         "syntax: regexp\n^b$\nsyntax: glob\na\n",
         {"c", "c"},
         "syntax: regexp\n^b$\nsyntax: glob\na\nc\n"},
        {"no syntax line", "^x$\n", {"*.tmp"}, "^x$\nsyntax: glob\n*.tmp\n"},
        {"CRLF lines", "syntax: glob\r\na\r\n", {"a", "b"}, "syntax: glob\na\nb\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(VNRepoHandlerMercurial::addIgnorePatterns(c.before, c.patterns), c.after);
    }
    auto regexes = VNRepoHandlerMercurial::readIgnoreText(
        "# comment\n^re[gx]$\nsyntax: glob\n*.o\nbuild/**/x\nsyntax:regexp\n(bad\n");
    ASSERT_EQ(regexes.size(), 3u);
    EXPECT_TRUE(regexes[0]->search("reg"));
    EXPECT_TRUE(regexes[1]->search("dir/a.o"));
    EXPECT_FALSE(regexes[1]->search("dir/ao"));
    EXPECT_TRUE(regexes[2]->search("build/a/b/x"));
}

}  // namespace
