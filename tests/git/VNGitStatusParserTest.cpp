#include "git/VNGitStatusParser.h"

#include <gtest/gtest.h>

#include <set>

#include "model/VNFileStatusEntity.h"
#include "support/StatusFixtures.h"

namespace {

using vn::test::statusRecordPath;
using vn::test::statusRecordsByPath;

struct LetterCase {
    const char* letters;
    uint64_t status;
    uint64_t index;
    uint64_t tree;
};

TEST(VNGitStatusParser, StatusLettersOfEveryPairGitPrints) {
    const std::vector<LetterCase> cases = {
        // Unmerged pairs win over every other rule.
        {"DD", 16, 8, 64},
        {"AU", 16, 4, 16},
        {"UD", 16, 16, 64},
        {"UA", 16, 16, 4},
        {"DU", 16, 8, 16},
        {"AA", 16, 4, 4},
        {"UU", 16, 16, 16},
        {"??", 128, 128, 128},
        {"M ", 2, 2, 1},
        {" M", 2, 1, 2},
        {"MM", 2, 2, 2},
        {"MD", 2, 2, 64},
        {"A ", 4, 4, 1},
        {"AM", 4, 4, 2},
        {"AD", 4, 4, 64},
        {"D ", 8, 8, 1},
        {" D", 64, 1, 64},
        {"R ", 512, 512, 1},
        // A renamed file changed again in the tree counts as modified.
        {"RM", 2, 512, 2},
        {"RD", 64, 512, 64},
        {"C ", 4, 4, 1},
        {"CM", 2, 4, 2},
        // A type change (file to symbolic link) is a change.
        {" T", 2, 1, 2},
        {"T ", 2, 2, 1},
        {"RT", 512, 512, 2},
        // Intent to add: the tree side "A" alone is no addition.
        {" A", 1, 1, 4},
        {"!!", 1, 1, 1},
    };
    for (const LetterCase& c : cases) {
        SCOPED_TRACE(c.letters);
        char x = c.letters[0];
        char y = c.letters[1];
        EXPECT_EQ(VNGitStatusParser::summariseStatus(x, y), c.status);
        EXPECT_EQ(VNGitStatusParser::translateIndexStatus(x), c.index);
        EXPECT_EQ(VNGitStatusParser::translateTreeStatus(y), c.tree);
        EXPECT_EQ(VNGitStatusParser::isUnmerged(x, y), c.status == 16);
    }
}

struct LineCase {
    const char* name;
    const char* line;
    std::string path;
    std::optional<std::string> previous;
};

TEST(VNGitStatusParser, PathsOfNastyLines) {
    const std::vector<LineCase> cases = {
        {"plain", " M src/a.c", "src/a.c", std::nullopt},
        {"blanks are quoted", "?? \"with space.txt\"", "with space.txt", std::nullopt},
        {"escaped quote", " M \"say \\\"hi\\\".txt\"", "say \"hi\".txt", std::nullopt},
        {"escaped backslash", " M \"back\\\\slash\"", "back\\slash", std::nullopt},
        {"non-ASCII as printed", "A  dir/ünïcödé.txt", "dir/ünïcödé.txt", std::nullopt},
        {"rename", "R  old -> new", "new", "old"},
        {"rename with blanks", "R  \"old name\" -> \"new name\"", "new name", "old name"},
        {"rename of names holding arrows", "R  a->b -> c->d", "c->d", "a->b"},
        {"rename of quoted names holding spaced arrows", "R  \"x -> y\" -> \"z -> w\"", "z -> w",
         "x -> y"},
        {"rename with a quote in the old name", "RM \"q\\\"1\" -> plain", "plain", "q\"1"},
        {"rename from a plain to a quoted name", "R  plain -> \"with space\"", "with space",
         "plain"},
        {"rename, older git without quotes for blanks", "R  old name -> new name", "new name",
         "old name"},
        {"copy lists the copy", "C  src.txt -> copy.txt", "copy.txt", std::nullopt},
        // Only renames and copies are split: an added file may hold an arrow.
        {"added name with an arrow", "A  \"x -> y\"", "x -> y", std::nullopt},
        {"added name with a bare arrow", "A  a->b", "a->b", std::nullopt},
        {"three characters are kept", "?? \"a\"", "a", std::nullopt},
    };
    for (const LineCase& c : cases) {
        SCOPED_TRACE(c.name);
        auto entry = VNGitStatusParser::parseStatusLine(c.line);
        ASSERT_TRUE(entry);
        EXPECT_EQ(entry->path, c.path);
        EXPECT_EQ(entry->previousPath, c.previous);
    }
    for (const char* notStatus : {"", "M", " M", "?? ", "warning: x", "MM-x"}) {
        SCOPED_TRACE(notStatus);
        EXPECT_FALSE(VNGitStatusParser::parseStatusLine(notStatus));
    }
}

TEST(VNGitStatusParser, RecordsSplitFolderAndName) {
    auto top = VNGitStatusParser::statusRecord("file.txt", 2, 1, 2);
    EXPECT_EQ(top.string("filename"), "file.txt");
    EXPECT_EQ(top.string("path"), "");
    EXPECT_FALSE(top.contains("previousName"));
    auto deep = VNGitStatusParser::statusRecord("a/b/c d.txt", 512, 512, 1, "a/old.txt");
    EXPECT_EQ(deep.keys(), (std::vector<std::string>{"status", "indexStatus", "treeStatus",
                                                     "filename", "path", "previousName"}));
    EXPECT_EQ(deep.string("filename"), "c d.txt");
    EXPECT_EQ(deep.string("path"), "a/b");
    EXPECT_EQ(deep.string("previousName"), "a/old.txt");
    EXPECT_EQ(deep["status"].toUInt(), 512u);
}

const std::string statusText =
    " M changed.txt\n"
    "M  staged.txt\n"
    "A  added.txt\n"
    "D  removed.txt\n"
    " D missing.txt\n"
    "R  \"old name\" -> \"new name\"\n"
    "UU conflict.txt\n"
    "AA both-added.txt\n"
    " M sub\n"
    " M \"back\\\\slash\"\n"
    "?? untracked.txt\n"
    "?? nested/\n";

// Tracked files as ls-files prints them: blanks unquoted, a backslash quoted, unmerged files once
// per stage.
const std::string trackedText =
    "\"back\\\\slash\"\n"
    "both-added.txt\n"
    "both-added.txt\n"
    "changed.txt\n"
    "clean one.txt\n"
    "\"clean \\\"quoted\\\".txt\"\n"
    "conflict.txt\n"
    "conflict.txt\n"
    "conflict.txt\n"
    "dir/clean.txt\n"
    "missing.txt\n"
    "new name\n"
    "staged.txt\n"
    "added.txt\n"
    "sub\n";

const std::string ignoredText = "build/out.o\n\"ig nored\\\\.log\"\n";

bool subIsFolder(const std::string& path) {
    return path == "sub";
}

TEST(VNGitStatusParser, DefaultMaskListsTheStatusInItsOrder) {
    auto records = VNGitStatusParser::fileStatusRecords(statusText, std::nullopt, std::nullopt, 766,
                                                        subIsFolder);
    std::vector<std::string> paths;
    for (const auto& record : records) {
        paths.push_back(statusRecordPath(record));
    }
    EXPECT_EQ(paths,
              (std::vector<std::string>{"changed.txt", "staged.txt", "added.txt", "removed.txt",
                                        "missing.txt", "new name", "conflict.txt", "both-added.txt",
                                        "sub", "back\\slash", "untracked.txt"}))
        << "the folder line \"nested/\" is no file";
    auto byPath = statusRecordsByPath(records);
    const auto& sub = byPath.at("sub");
    EXPECT_EQ(sub["status"].toUInt(), VNFileStatusSubmoduleModified);
    EXPECT_EQ(sub["indexStatus"].toUInt(), VNFileStatusClean);
    EXPECT_EQ(sub["treeStatus"].toUInt(), VNFileStatusSubmoduleModified);
    for (const char* conflicted : {"conflict.txt", "both-added.txt"}) {
        SCOPED_TRACE(conflicted);
        const auto& record = byPath.at(conflicted);
        EXPECT_EQ(record["status"].toUInt(), 16u);
        EXPECT_EQ(record["indexStatus"].toUInt(), 16u);
        EXPECT_EQ(record["treeStatus"].toUInt(), 16u);
    }
    EXPECT_EQ(byPath.at("new name").string("previousName"), "old name");
    // A modified file that is not a folder stays modified.
    EXPECT_EQ(byPath.at("changed.txt")["status"].toUInt(), 2u);
}

TEST(VNGitStatusParser, CleanAndIgnoredListingsAreMergedWithoutRepeats) {
    auto records = VNGitStatusParser::fileStatusRecords(statusText, trackedText, ignoredText,
                                                        766 | 1 | 256, subIsFolder);
    auto byPath = statusRecordsByPath(records);
    std::set<std::string> clean;
    std::set<std::string> ignored;
    for (const auto& [path, record] : byPath) {
        uint64_t status = record["status"].toUInt();
        if (status == 1 || status == 256) {
            EXPECT_EQ(record["indexStatus"].toUInt(), status) << path;
            EXPECT_EQ(record["treeStatus"].toUInt(), status) << path;
            (status == 1 ? clean : ignored).insert(path);
        }
    }
    EXPECT_EQ(clean,
              (std::set<std::string>{"clean one.txt", "clean \"quoted\".txt", "dir/clean.txt"}));
    EXPECT_EQ(ignored, (std::set<std::string>{"build/out.o", "ig nored\\.log"}));
    EXPECT_EQ(byPath.at("dir/clean.txt").string("path"), "dir");
    // The status's records come first, then clean, then ignored.
    ASSERT_EQ(records.size(), 11u + 3u + 2u);
    EXPECT_EQ(records[11]["status"].toUInt(), 1u);
    EXPECT_EQ(records[14]["status"].toUInt(), 256u);
}

struct MaskCase {
    const char* name;
    uint64_t mask;
    std::set<std::string> paths;
};

TEST(VNGitStatusParser, MaskSelectsBySummaryStatus) {
    const std::vector<MaskCase> cases = {
        {"modified only; the submodule is selected as modified",
         2,
         {"changed.txt", "staged.txt", "sub", "back\\slash"}},
        {"submodule bit alone selects nothing: the test comes before the folder check", 8192, {}},
        {"clean only: files the status mentions are not clean, whatever the mask",
         1,
         {"clean one.txt", "clean \"quoted\".txt", "dir/clean.txt"}},
        {"ignored only", 256, {"build/out.o", "ig nored\\.log"}},
        {"conflicts and missing", 16 | 64, {"conflict.txt", "both-added.txt", "missing.txt"}},
        {"renamed, added, removed", 512 | 4 | 8, {"new name", "added.txt", "removed.txt"}},
        {"untracked", 128, {"untracked.txt"}},
        {"nothing", 0, {}},
    };
    for (const MaskCase& c : cases) {
        SCOPED_TRACE(c.name);
        auto records = VNGitStatusParser::fileStatusRecords(statusText, trackedText, ignoredText,
                                                            c.mask, subIsFolder);
        std::set<std::string> paths;
        for (const auto& [path, record] : statusRecordsByPath(records)) {
            paths.insert(path);
        }
        EXPECT_EQ(paths, c.paths);
    }
}

TEST(VNGitStatusParser, ToleratesTextThatIsNoStatus) {
    auto records = VNGitStatusParser::fileStatusRecords(
        "\n\nwarning\nM\n M ok.txt\n\n", std::string_view(""), std::nullopt, 1023, nullptr);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(statusRecordPath(records[0]), "ok.txt");
    EXPECT_TRUE(VNGitStatusParser::fileStatusRecords("", "", "", 1023, nullptr).empty());
}

TEST(VNGitStatusParser, SummaryCounts) {
    auto counts = VNGitStatusParser::countStatuses(statusText +
                                                   "RM \"a b\" -> c\n"
                                                   "?? \"quoted folder/\"\n"
                                                   " T typechange\n");
    EXPECT_EQ(counts.modified, 6u)
        << "changed, staged, sub, back\\slash, the renamed-and-changed, the type change";
    EXPECT_EQ(counts.added, 1u);
    EXPECT_EQ(counts.removed, 1u);
    EXPECT_EQ(counts.missing, 1u);
    EXPECT_EQ(counts.renamed, 1u);
    EXPECT_EQ(counts.unresolved, 2u);
    EXPECT_EQ(counts.unknown, 1u) << "folders are not counted";
    EXPECT_FALSE(counts.isClean());

    auto untrackedOnly = VNGitStatusParser::countStatuses("?? a\n?? b\n");
    EXPECT_EQ(untrackedOnly.unknown, 2u);
    EXPECT_TRUE(untrackedOnly.isClean());
    EXPECT_FALSE(VNGitStatusParser::countStatuses("?? a\n T c\n").isClean());
    EXPECT_TRUE(VNGitStatusParser::countStatuses("").isClean());
}

TEST(VNGitStatusParser, CurrentBranchAndDetachedHead) {
    struct Case {
        const char* output;
        std::optional<std::string> branch;
    };
    const std::vector<Case> cases = {
        {"  feature\n* main\n  other\n", "main"},
        {"* (HEAD detached at 1a2b3c4)\n  main\n", "HEAD"},
        {"* (HEAD detached from v1.0)\n  main\n", "HEAD"},
        {"* (detached from 1a2b3c4)\n", "HEAD"},
        {"* (no branch)\n", "HEAD"},
        {"* HEAD\n", "HEAD"},
        // A rebase names the branch being rebased; that is no detached text.
        {"* (no branch, rebasing main)\n  main\n", "(no branch, rebasing main)"},
        {"* feature/with/slashes\n", "feature/with/slashes"},
        {"  main\n  other\n", std::nullopt},
        {"", std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.output);
        EXPECT_EQ(VNGitStatusParser::currentBranchFromBranchOutput(c.output), c.branch);
    }
    EXPECT_FALSE(VNGitStatusParser::isDetachedHeadText("HEADS"));
    EXPECT_FALSE(VNGitStatusParser::isDetachedHeadText("main"));
    EXPECT_FALSE(VNGitStatusParser::isDetachedHeadText("(no branch"));
}

TEST(VNGitStatusParser, MergeHeadParents) {
    std::string second = "stale";
    std::vector<std::string> others{"stale"};
    EXPECT_TRUE(VNGitStatusParser::parseMergeHeadParents("aaa\n", second, others));
    EXPECT_EQ(second, "aaa");
    EXPECT_TRUE(others.empty());

    EXPECT_TRUE(VNGitStatusParser::parseMergeHeadParents("aaa\nbbb\r\nccc", second, others));
    EXPECT_EQ(second, "aaa");
    EXPECT_EQ(others, (std::vector<std::string>{"bbb", "ccc"}));

    EXPECT_FALSE(VNGitStatusParser::parseMergeHeadParents("\n\n", second, others));
    EXPECT_EQ(second, "");
    EXPECT_TRUE(others.empty());
}

TEST(VNGitStatusParser, GitDirOfADotGitFile) {
    struct Case {
        const char* text;
        std::optional<std::string> folder;
    };
    const std::vector<Case> cases = {
        {"gitdir: /repo/.git/worktrees/wt\n", "/repo/.git/worktrees/wt"},
        {"gitdir: ../.git/modules/sub\n", "../.git/modules/sub"},
        {"gitdir:\t/with space/x  \r\n", "/with space/x"},
        {"gitdir:/no/blank\n", std::nullopt},
        {"something else\n", std::nullopt},
        {"", std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(VNGitStatusParser::gitDirFromDotGitFile(c.text), c.folder);
    }
}

}  // namespace

namespace {

using namespace std::string_literals;

TEST(VNGitStatusParser, NulSeparatedListingsKeepEveryByteOfEveryName) {
    // What `git status --porcelain -z` prints: no quoting, a rename's old name after the new.
    const std::string listing =
        " M tab\there.txt\0"s
        "?? new\nline.txt\0"s
        "A   leading and trailing \0"s
        "R  new -> name\0old \"name\"\0"s
        "RM x b/y.txt\0x\\b.txt\0"s
        "C  copy\0source\0"s
        "?? caf\xE9.txt\0"s
        "?? dir/\0"s
        "M  back\\slash\\t.txt\0"s;
    struct Expected {
        std::string path;
        std::optional<std::string> previous;
        uint64_t status;
    };
    const std::vector<Expected> expected = {
        {"tab\there.txt", std::nullopt, VNFileStatusModified},
        {"new\nline.txt", std::nullopt, VNFileStatusUnknown},
        {" leading and trailing ", std::nullopt, VNFileStatusAdded},
        {"new -> name", "old \"name\"", VNFileStatusRenamed},
        {"x b/y.txt", "x\\b.txt", VNFileStatusModified},
        {"copy", std::nullopt, VNFileStatusAdded},
        {"caf\xE9.txt", std::nullopt, VNFileStatusUnknown},
        {"dir/", std::nullopt, VNFileStatusUnknown},
        {"back\\slash\\t.txt", std::nullopt, VNFileStatusModified},
    };
    auto entries = VNGitStatusParser::parseStatusOutput(listing);
    ASSERT_EQ(entries.size(), expected.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        SCOPED_TRACE(expected[i].path);
        EXPECT_EQ(entries[i].path, expected[i].path);
        EXPECT_EQ(entries[i].previousPath, expected[i].previous);
        EXPECT_EQ(entries[i].status, expected[i].status);
    }

    // The folder line is not a file; a name ending in a blank after a slash is one.
    auto records = statusRecordsByPath(VNGitStatusParser::fileStatusRecords(
        listing + "?? a/ \0"s, std::nullopt, std::nullopt, 766, nullptr));
    EXPECT_EQ(records.size(), expected.size());
    EXPECT_FALSE(records.count("dir/"));
    EXPECT_TRUE(records.count("a/ "));
    EXPECT_EQ(records.at("x b/y.txt").string("filename"), "y.txt");
    EXPECT_EQ(records.at("x b/y.txt").string("path"), "x b");

    auto counts = VNGitStatusParser::countStatuses(listing);
    EXPECT_EQ(counts.modified, 3u);
    EXPECT_EQ(counts.unknown, 2u);
    EXPECT_EQ(counts.renamed, 1u);
    EXPECT_EQ(counts.added, 2u);

    // Cut short inside a rename: the rename is lost, nothing before it.
    EXPECT_EQ(VNGitStatusParser::parseStatusOutput(" M a\0R  b\0"s).size(), 1u);
    // ls-files -z: names as they are, a listed name found again in the status listing.
    auto listed = VNGitStatusParser::listedFiles("tab\there.txt\0\"q\".txt\0z\0"s, 1);
    EXPECT_EQ(listed.paths, (std::vector<std::string>{"tab\there.txt", "\"q\".txt", "z"}));
    auto merged = VNGitStatusParser::fileStatusRecords(listing, &listed, nullptr, 766 | 1, nullptr);
    EXPECT_EQ(merged.size(), expected.size() - 1 + 2);
}

}  // namespace
