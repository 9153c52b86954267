#include "model/VNDiffParser.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "base/TextEncoding.h"
#include "handler/VNTask.h"
#include "model/VNDiffModel.h"
#include "platform/FileSystem.h"
#include "support/GitDiffSupport.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::GitRepository;
using vn::test::linesOf;
using vn::test::numberedLines;

constexpr uint64_t NoLimit = 1000000;
const std::string Separator(VNDiffParser::RevisionSeparator);

VNDiffFileList parse(std::string_view text, uint64_t maxFiles = NoLimit,
                     const VNDiffParser& parser = VNDiffParser::git()) {
    VNDiffFileList files;
    parser.parseDiffToModel(text, files, maxFiles);
    return files;
}

bool headerUnread(const VNDiffHunkModel& hunk) {
    return hunk.startLineBefore() == 0 && hunk.endLineBefore() == 0 && hunk.startLineAfter() == 0 &&
           hunk.endLineAfter() == 0;
}

std::size_t unreadHunks(const VNDiffFileModel& file) {
    std::size_t count = 0;
    for (const auto& hunk : file.hunks()) {
        count += headerUnread(*hunk);
    }
    return count;
}

// Every numbered hunk line is the line of that number in the old or new content, the numbers of
// each side run on without gaps from the hunk's start line to its end line, and the counts match
// the lines. Hunks with unread headers are only counted.
void expectLinesAgree(const VNDiffFileModel& file, const std::string& oldText,
                      const std::string& newText) {
    std::vector<std::string> oldLines = linesOf(oldText), newLines = linesOf(newText);
    uint64_t added = 0, removed = 0;
    for (const auto& hunk : file.hunks()) {
        SCOPED_TRACE("hunk " + std::to_string(hunk->index()));
        if (headerUnread(*hunk)) {
            for (const vn::Record& line : hunk->hunkLines()) {
                added += line.string("prefix") == "+";
                removed += line.string("prefix") == "-";
            }
            continue;
        }
        int64_t before = hunk->startLineBefore(), after = hunk->startLineAfter();
        bool anyBefore = false, anyAfter = false;
        for (const vn::Record& line : hunk->hunkLines()) {
            std::string beforeNumber = line.string("beforelineno");
            std::string afterNumber = line.string("afterlineno");
            std::string content = line.string("line");
            if (!beforeNumber.empty()) {
                EXPECT_EQ(beforeNumber, std::to_string(before));
                ASSERT_GE(before, 1);
                ASSERT_LE(before, static_cast<int64_t>(oldLines.size()));
                EXPECT_EQ(content, oldLines[before - 1]) << "old line " << before;
                ++before;
                anyBefore = true;
            }
            if (!afterNumber.empty()) {
                EXPECT_EQ(afterNumber, std::to_string(after));
                ASSERT_GE(after, 1);
                ASSERT_LE(after, static_cast<int64_t>(newLines.size()));
                EXPECT_EQ(content, newLines[after - 1]) << "new line " << after;
                ++after;
                anyAfter = true;
            }
            std::string prefix = line.string("prefix");
            added += prefix == "+";
            removed += prefix == "-";
        }
        if (anyBefore) {
            EXPECT_EQ(before - 1, hunk->endLineBefore());
        }
        if (anyAfter) {
            EXPECT_EQ(after - 1, hunk->endLineAfter());
        }
    }
    EXPECT_EQ(file.linesAdded(), added);
    EXPECT_EQ(file.linesRemoved(), removed);
}

std::string diff(GitRepository& repo, std::vector<std::string> args) {
    args.insert(args.begin(), {"-c", "core.quotepath=false", "diff"});
    return repo.git(args);
}

void setExecutable(const std::string& path) {
    std::filesystem::permissions(path, std::filesystem::perms::owner_exec,
                                 std::filesystem::perm_options::add);
}

std::string pointerOid(char digit) {
    return std::string(64, digit);
}

// ---- Files as real git describes them ----------------------------------------------------

struct FileCase {
    std::string name;
    std::function<std::string(GitRepository&)> makeDiff;
    std::string filename;
    std::string previousFilename;
    uint64_t changeType;
    uint64_t fileType;
    int64_t oldMode;
    int64_t newMode;
    std::size_t hunkCount;
    uint64_t linesAdded;
    uint64_t linesRemoved;
};

TEST(VNDiffParser, ReadsEveryKindOfFileChangeThatGitReports) {
    const std::string binary("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\x01\x02", 19);
    const std::vector<FileCase> cases = {
        {"added file",
         [](GitRepository& repo) {
             repo.commitFile("base.txt", "base\n", "base");
             repo.write("new.txt", "one\ntwo\nthree\n");
             repo.git({"add", "new.txt"});
             return diff(repo, {"--cached"});
         },
         "new.txt", "", VNDiffFileModel::Added, VNDiffFileModel::Text, 0, 0, 1, 3, 0},
        {"deleted file",
         [](GitRepository& repo) {
             repo.commitFile("gone.txt", "one\ntwo\n", "base");
             repo.git({"rm", "-q", "gone.txt"});
             return diff(repo, {"--cached"});
         },
         "gone.txt", "", VNDiffFileModel::Deleted, VNDiffFileModel::Text, 0, 0, 1, 0, 2},
        {"renamed and edited",
         [](GitRepository& repo) {
             repo.commitFile("old name.txt", numberedLines(1, 10), "base");
             repo.git({"mv", "old name.txt", "new name.txt"});
             repo.write("new name.txt", numberedLines(1, 9) + "changed\n");
             repo.git({"add", "new name.txt"});
             return diff(repo, {"--cached", "-M"});
         },
         "new name.txt", "old name.txt", VNDiffFileModel::Renamed, VNDiffFileModel::Text, 0, 0, 1,
         1, 1},
        {"renamed only",
         [](GitRepository& repo) {
             repo.commitFile("a.txt", numberedLines(1, 5), "base");
             repo.git({"mv", "a.txt", "b.txt"});
             return diff(repo, {"--cached", "-M"});
         },
         "b.txt", "a.txt", VNDiffFileModel::Renamed, VNDiffFileModel::Text, 0, 0, 0, 0, 0},
        {"copied",
         [](GitRepository& repo) {
             repo.commitFile("source.txt", numberedLines(1, 20), "base");
             repo.write("copy.txt", numberedLines(1, 19) + "copied\n");
             repo.git({"add", "copy.txt"});
             return diff(repo, {"--cached", "--find-copies-harder"});
         },
         "copy.txt", "source.txt", VNDiffFileModel::Copied, VNDiffFileModel::Text, 0, 0, 1, 1, 1},
        {"mode only",
         [](GitRepository& repo) {
             repo.commitFile("run.sh", "echo hi\n", "base");
             setExecutable(repo.file("run.sh"));
             return diff(repo, {});
         },
         "run.sh", "", VNDiffFileModel::Modified, VNDiffFileModel::Text, 100644, 100755, 0, 0, 0},
        {"mode and content",
         [](GitRepository& repo) {
             repo.commitFile("run.sh", "echo hi\n", "base");
             repo.write("run.sh", "echo hello\n");
             setExecutable(repo.file("run.sh"));
             return diff(repo, {});
         },
         "run.sh", "", VNDiffFileModel::Modified, VNDiffFileModel::Text, 100644, 100755, 1, 1, 1},
        {"binary modified",
         [&](GitRepository& repo) {
             repo.commitFile("image.png", binary, "base");
             repo.write("image.png", binary + "more");
             return diff(repo, {});
         },
         "image.png", "", VNDiffFileModel::Modified, VNDiffFileModel::Binary, 0, 0, 0, 0, 0},
        {"binary added, as a binary patch",
         [&](GitRepository& repo) {
             repo.commitFile("base.txt", "base\n", "base");
             repo.write("image.png", binary);
             repo.git({"add", "image.png"});
             return diff(repo, {"--cached", "--binary"});
         },
         "image.png", "", VNDiffFileModel::Added, VNDiffFileModel::Binary, 0, 0, 0, 0, 0},
        {"spaces and non-ASCII letters",
         [](GitRepository& repo) {
             repo.commitFile("dossier été/fichier à lire.txt", "un\n", "base");
             repo.write("dossier été/fichier à lire.txt", "deux\n");
             return diff(repo, {});
         },
         "dossier été/fichier à lire.txt", "", VNDiffFileModel::Modified, VNDiffFileModel::Text, 0,
         0, 1, 1, 1},
        {"renamed to a name with spaces and non-ASCII letters",
         [](GitRepository& repo) {
             repo.commitFile("plain.txt", numberedLines(1, 5), "base");
             repo.git({"mv", "plain.txt", "Ünïcode näme.txt"});
             return diff(repo, {"--cached", "-M"});
         },
         "Ünïcode näme.txt", "plain.txt", VNDiffFileModel::Renamed, VNDiffFileModel::Text, 0, 0, 0,
         0, 0},
    };
    for (const FileCase& c : cases) {
        SCOPED_TRACE(c.name);
        GitRepository repo;
        std::string text = c.makeDiff(repo);
        VNDiffFileList files = parse(text);
        ASSERT_EQ(files.size(), 1u) << text;
        const VNDiffFileModel& file = *files[0];
        EXPECT_EQ(file.filename(), c.filename);
        EXPECT_EQ(file.previousFilename(), c.previousFilename);
        EXPECT_EQ(file.changeType(), c.changeType);
        EXPECT_EQ(file.fileType(), c.fileType);
        EXPECT_EQ(file.oldFileMode(), c.oldMode);
        EXPECT_EQ(file.newFileMode(), c.newMode);
        EXPECT_EQ(file.hunks().size(), c.hunkCount);
        EXPECT_EQ(file.linesAdded(), c.linesAdded);
        EXPECT_EQ(file.linesRemoved(), c.linesRemoved);
        EXPECT_FALSE(file.suppressed());
        EXPECT_TRUE(file.rev().empty());
    }
}

TEST(VNDiffParser, LineNumbersAgreeWithBothVersionsAtEveryContextSize) {
    GitRepository repo;
    std::string before = numberedLines(1, 120);
    repo.commitFile("long.txt", before, "base");
    // Changes near both ends and in the middle: separate hunks at small contexts, one at large.
    std::vector<std::string> lines = linesOf(before);
    lines[0] = "first changed";
    lines.insert(lines.begin() + 40, {"inserted a", "inserted b"});
    lines.erase(lines.begin() + 80, lines.begin() + 83);
    lines[100] = "late change";
    lines.push_back("appended");
    std::string after;
    for (const std::string& line : lines) {
        after += line + "\n";
    }
    repo.write("long.txt", after);

    for (int context : {0, 1, 3, 30}) {
        SCOPED_TRACE("context " + std::to_string(context));
        std::string text = diff(repo, {"--unified=" + std::to_string(context)});
        VNDiffFileList files = parse(text);
        ASSERT_EQ(files.size(), 1u);
        EXPECT_EQ(files[0]->linesAdded(), 5u);
        EXPECT_EQ(files[0]->linesRemoved(), 5u);
        if (context < 30) {
            EXPECT_GE(files[0]->hunks().size(), 4u);
        }
        for (std::size_t i = 0; i < files[0]->hunks().size(); ++i) {
            EXPECT_EQ(files[0]->hunks()[i]->index(), i + 1);
        }
        // Without context, the two one-line replacements and the one-line append have headers
        // without counts.
        if (context == 0) {
            EXPECT_EQ(unreadHunks(*files[0]), 3u);
        } else {
            EXPECT_EQ(unreadHunks(*files[0]), 0u);
        }
        expectLinesAgree(*files[0], before, after);
    }
}

TEST(VNDiffParser, AddedAndDeletedFilesNumberOnlyTheirOwnSide) {
    GitRepository repo;
    repo.commitFile("old.txt", "a\nb\n", "base");
    repo.git({"rm", "-q", "old.txt"});
    repo.write("new.txt", "x\ny\nz\n");
    repo.git({"add", "new.txt"});
    VNDiffFileList files = parse(diff(repo, {"--cached"}));
    ASSERT_EQ(files.size(), 2u);

    const VNDiffFileModel& added = *files[0];
    EXPECT_EQ(added.filename(), "new.txt");
    ASSERT_EQ(added.hunks().size(), 1u);
    EXPECT_EQ(added.hunks()[0]->startLineBefore(), 0);
    EXPECT_EQ(added.hunks()[0]->endLineBefore(), 0);
    EXPECT_EQ(added.hunks()[0]->startLineAfter(), 1);
    EXPECT_EQ(added.hunks()[0]->endLineAfter(), 3);
    expectLinesAgree(added, "", "x\ny\nz\n");

    const VNDiffFileModel& deleted = *files[1];
    EXPECT_EQ(deleted.filename(), "old.txt");
    EXPECT_EQ(deleted.changeType(), VNDiffFileModel::Deleted);
    EXPECT_EQ(deleted.hunks()[0]->endLineAfter(), 0);
    expectLinesAgree(deleted, "a\nb\n", "");
}

TEST(VNDiffParser, MissingFinalNewlineMarkerHasNoLineNumbers) {
    GitRepository repo;
    repo.commitFile("f.txt", "keep\nold end", "base");
    repo.write("f.txt", "keep\nnew end");
    std::string text = diff(repo, {});
    VNDiffFileList files = parse(text);
    ASSERT_EQ(files.size(), 1u);
    ASSERT_EQ(files[0]->hunks().size(), 1u);
    const VNDiffHunkModel& hunk = *files[0]->hunks()[0];
    int markers = 0;
    for (const vn::Record& line : hunk.hunkLines()) {
        if (line.string("prefix") == "\\") {
            ++markers;
            EXPECT_EQ(line.string("line"), " No newline at end of file");
            EXPECT_EQ(line.string("beforelineno"), "");
            EXPECT_EQ(line.string("afterlineno"), "");
        }
    }
    EXPECT_EQ(markers, 2);
    EXPECT_NE(hunk.rawHunk().find("\\ No newline at end of file\n+new end\n"), std::string::npos);
    expectLinesAgree(*files[0], "keep\nold end", "keep\nnew end");
}

TEST(VNDiffParser, CarriageReturnsAndBlankLinesVanish) {
    GitRepository repo;
    repo.git({"config", "core.autocrlf", "false"});
    std::string before = "one\r\ntwo\r\n\r\nthree\r\nfour\r\n";
    std::string after = "one\r\n2\r\n\r\nthree\r\n\r\nfour\r\n";
    repo.commitFile("dos.txt", before, "base");
    repo.write("dos.txt", after);
    std::string text = diff(repo, {});
    ASSERT_NE(text.find('\r'), std::string::npos);
    VNDiffFileList files = parse(text);
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0]->filename(), "dos.txt");
    for (const auto& hunk : files[0]->hunks()) {
        EXPECT_EQ(hunk->rawHunk().find('\r'), std::string::npos);
        for (const vn::Record& line : hunk->hunkLines()) {
            EXPECT_EQ(line.string("line").find('\r'), std::string::npos);
        }
    }
    expectLinesAgree(*files[0], before, after);
}

TEST(VNDiffParser, HunkHeaderWithoutCountsIsKeptWithZeroLineNumbers) {
    GitRepository repo;
    repo.commitFile("one.txt", "old\n", "base");
    repo.commitFile("grow.txt", "a\n", "base");
    repo.write("one.txt", "new\n");
    repo.write("grow.txt", "a\nb\n");
    std::string text = diff(repo, {});
    ASSERT_NE(text.find("@@ -1 +1 @@"), std::string::npos) << text;
    ASSERT_NE(text.find("@@ -1 +1,2 @@"), std::string::npos) << text;
    VNDiffFileList files = parse(text);
    ASSERT_EQ(files.size(), 2u);

    // Git leaves out a count of 1; the header rule insists on the new side's count, so a change
    // of a one-line file comes out unnumbered.
    const VNDiffFileModel& grow = *files[0];
    EXPECT_EQ(grow.filename(), "grow.txt");
    EXPECT_EQ(grow.hunks()[0]->startLineBefore(), 1);
    EXPECT_EQ(grow.hunks()[0]->endLineBefore(), 1);
    EXPECT_EQ(grow.hunks()[0]->endLineAfter(), 2);
    expectLinesAgree(grow, "a\n", "a\nb\n");

    const VNDiffHunkModel& hunk = *files[1]->hunks()[0];
    EXPECT_EQ(hunk.startLineBefore(), 0);
    EXPECT_EQ(hunk.endLineBefore(), 0);
    EXPECT_EQ(hunk.startLineAfter(), 0);
    EXPECT_EQ(hunk.endLineAfter(), 0);
    ASSERT_EQ(hunk.hunkLines().size(), 2u);
    EXPECT_EQ(hunk.hunkLines()[0], VNDiffHunkModel::lineRecord("-", "0", "", "old"));
    EXPECT_EQ(hunk.hunkLines()[1], VNDiffHunkModel::lineRecord("+", "", "0", "new"));
    EXPECT_EQ(hunk.rawHunk(), "-old\n+new\n");
}

TEST(VNDiffParser, HunkHeaderForms) {
    struct Case {
        std::string header;
        int64_t startBefore, endBefore, startAfter, endAfter;
    };
    const std::vector<Case> cases = {
        {"@@ -0,0 +1,3 @@", 0, 0, 1, 3},
        {"@@ -5 +5,2 @@", 5, 5, 5, 6},
        {"@@ -1,3 +1,4 @@ int main(void)", 1, 3, 1, 4},
        // An insertion after line 5 (git -U0): the empty old range ends before it starts.
        {"@@ -5,0 +6,2 @@", 5, 4, 6, 7},
        {"@@ -10,2 +9,0 @@", 10, 11, 9, 8},
        {"@@  -7,2\t+7,2  @@", 7, 8, 7, 8},
        {"@@ -1 +1 @@", 0, 0, 0, 0},
        {"@@ -1,3 +1 @@", 0, 0, 0, 0},
        {"@@@ -1,3 -1,3 +1,4 @@@", 0, 0, 0, 0},
        {"@@ garbage", 0, 0, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.header);
        VNDiffFileList files = parse("diff --git a/f b/f\n" + c.header + "\n ctx\n+add\n");
        ASSERT_EQ(files.size(), 1u);
        ASSERT_EQ(files[0]->hunks().size(), 1u);
        const VNDiffHunkModel& hunk = *files[0]->hunks()[0];
        EXPECT_EQ(hunk.startLineBefore(), c.startBefore);
        EXPECT_EQ(hunk.endLineBefore(), c.endBefore);
        EXPECT_EQ(hunk.startLineAfter(), c.startAfter);
        EXPECT_EQ(hunk.endLineAfter(), c.endAfter);
        EXPECT_EQ(hunk.hunkLines()[0].string("beforelineno"), std::to_string(c.startBefore));
        EXPECT_EQ(hunk.hunkLines()[1].string("afterlineno"), std::to_string(c.startAfter + 1));
    }
}

TEST(VNDiffParser, CombinedDiffOfAMerge) {
    GitRepository repo;
    repo.commitFile("f.txt", "1\n2\n3\n", "base");
    repo.git({"checkout", "-q", "-b", "side"});
    repo.commitFile("f.txt", "1\nside\n3\n", "side");
    repo.git({"checkout", "-q", "main"});
    repo.commitFile("f.txt", "1\nmain\n3\n", "main");
    vn::test::runProgram(repo.path(), "git", {"merge", "-q", "side"});  // conflicts, resolved below
    repo.commitFile("f.txt", "1\nresolved\n3\nextra\n", "merge");
    std::string text = repo.git({"show", "--format=", "--cc", "HEAD"});
    ASSERT_NE(text.find("diff --cc f.txt"), std::string::npos) << text;

    VNDiffFileList files = parse(text);
    ASSERT_EQ(files.size(), 1u);
    const VNDiffFileModel& file = *files[0];
    EXPECT_EQ(file.filename(), "f.txt");
    EXPECT_EQ(file.changeType(), VNDiffFileModel::Modified);
    ASSERT_EQ(file.hunks().size(), 1u);
    // The three-way header is not read, but the body is kept whole for display.
    const VNDiffHunkModel& hunk = *file.hunks()[0];
    EXPECT_EQ(hunk.startLineAfter(), 0);
    EXPECT_EQ(hunk.rawHunk(), "  1\n- main\n -side\n++resolved\n  3\n++extra\n");
    EXPECT_EQ(file.linesAdded(), 2u);
    EXPECT_EQ(file.linesRemoved(), 1u);
    EXPECT_EQ(hunk.hunkLines()[3].string("line"), "+resolved");
}

TEST(VNDiffParser, GitLargeFilePointersGiveTheirObjectIds) {
    if (!vn::fs::findExecutable("git-lfs")) {
        GTEST_SKIP() << "git-lfs is not installed";
    }
    GitRepository repo;
    repo.git({"lfs", "install", "--local"});
    repo.git({"lfs", "track", "*.bin"});
    repo.commitFile("data.bin", "first content", "base");
    repo.write("data.bin", "second content");
    std::string text = diff(repo, {});
    ASSERT_NE(text.find("oid sha256:"), std::string::npos) << text;

    auto sha256 = [&](const std::string& content) {
        vn::test::writeFile(repo.file("hash-me"), content);
        auto task = vn::test::runProgram(repo.path(), "sha256sum", {repo.file("hash-me")});
        return task->output().substr(0, 64);
    };
    VNDiffFileList git = parse(text);
    ASSERT_EQ(git.size(), 1u);
    EXPECT_EQ(git[0]->filename(), "data.bin");
    EXPECT_EQ(git[0]->fileType(), VNDiffFileModel::LargeFilePointer);
    EXPECT_EQ(git[0]->beforeLargeFileRef(), sha256("first content"));
    EXPECT_EQ(git[0]->afterLargeFileRef(), sha256("second content"));

    // A backend without large files reads the same pointer as text.
    VNDiffFileList plain = parse(text, NoLimit, VNDiffParser());
    EXPECT_EQ(plain[0]->fileType(), VNDiffFileModel::Text);
    EXPECT_TRUE(plain[0]->beforeLargeFileRef().empty());
    EXPECT_TRUE(plain[0]->afterLargeFileRef().empty());
}

TEST(VNDiffParser, LargeFilePointersAreLookedForOnlyAtTheStartOfEachHunk) {
    struct Case {
        std::string name;
        int linesBefore;
        char prefix;
        bool found;
    };
    const std::vector<Case> cases = {
        {"first line, added", 0, '+', true},
        {"20th line, removed", 19, '-', true},
        {"21st line", 20, '+', false},
        {"20th line, context", 19, ' ', true},
    };
    const std::string oid = pointerOid('a');
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string text = "diff --git a/p b/p\n@@ -1,40 +1,40 @@\n";
        for (int i = 0; i < c.linesBefore; ++i) {
            text += " filler\n";
        }
        text += std::string(1, c.prefix) + "oid sha256:" + oid + "\n";
        // A second hunk starts counting afresh, but holds no pointer.
        text += "@@ -50,1 +50,1 @@\n oid sha256:" + std::string(63, 'b') + "\n";
        VNDiffFileList files = parse(text);
        ASSERT_EQ(files.size(), 1u);
        EXPECT_EQ(files[0]->fileType(),
                  c.found ? VNDiffFileModel::LargeFilePointer : VNDiffFileModel::Text);
        bool before = c.found && c.prefix != '+';
        bool after = c.found && c.prefix != '-';
        EXPECT_EQ(files[0]->beforeLargeFileRef(), before ? oid : "");
        EXPECT_EQ(files[0]->afterLargeFileRef(), after ? oid : "");
    }
}

TEST(VNDiffParser, GitLargeFileReferenceOfOneLine) {
    const std::string oid = "0123456789abcdefABCDEF" + std::string(42, '7');
    const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
        {"oid sha256:" + oid, oid},           {"oid \t sha256:" + oid + " trailing", oid},
        {"oid sha256:" + oid + "ff", oid},    {"oid sha256:" + oid.substr(1), std::nullopt},
        {" oid sha256:" + oid, std::nullopt}, {"oid sha1:" + oid, std::nullopt},
        {"OID sha256:" + oid, std::nullopt},  {"size 12345", std::nullopt},
    };
    for (const auto& [line, expected] : cases) {
        SCOPED_TRACE(line);
        EXPECT_EQ(VNDiffParser::gitLargeFileReference(line), expected);
    }
}

TEST(VNDiffParser, HooksSeeTheContentOfTheFirstLinesOfEachHunk) {
    std::vector<std::string> seen;
    VNDiffParser parser(2, [&](const std::string& line) -> std::optional<std::string> {
        seen.push_back(line);
        return line == "mark" ? std::optional<std::string>("id") : std::nullopt;
    });
    VNDiffFileList files;
    parser.parseDiffToModel(
        "diff --git a/f b/f\nindex 1..2\n--- a/f\n+++ b/f\n@@ -1,3 +1,3 @@\n one\n-two\n+mark\n"
        "@@ -9,1 +9,1 @@\n+nine\n",
        files, NoLimit);
    EXPECT_EQ(seen, (std::vector<std::string>{"one", "two", "nine"}));
    EXPECT_EQ(files[0]->fileType(), VNDiffFileModel::Text);
    EXPECT_EQ(parser.largeFilesDiffScanLimit(), 2u);
}

// ---- Text shapes ---------------------------------------------------------------------------

TEST(VNDiffParser, LineEndsAndLineSeparators) {
    const std::vector<std::pair<std::string, std::string>> ends = {
        {"LF", "\n"},
        {"CR", "\r"},
        {"CRLF", "\r\n"},
        {"several blank lines", "\n\n\r\n\n"},
        {"vertical tab", "\v"},
        {"form feed", "\f"},
        {"next line", "\xC2\x85"},
        {"line separator", "\xE2\x80\xA8"},
        {"paragraph separator", "\xE2\x80\xA9"},
    };
    for (const auto& [name, end] : ends) {
        SCOPED_TRACE(name);
        std::string text = end + "diff --git a/f b/f" + end + "@@ -1,2 +1,2 @@" + end +
                           " caf\xC3\xA9 \xC2\xA9 \xE2\x80\xA6 \xE2\x82\xAC" + end + "-b" + end +
                           "+c" + end;
        VNDiffFileList files = parse(text);
        ASSERT_EQ(files.size(), 1u);
        ASSERT_EQ(files[0]->hunks().size(), 1u);
        const auto& lines = files[0]->hunks()[0]->hunkLines();
        ASSERT_EQ(lines.size(), 3u);
        // Characters that share a lead byte with a separator do not end a line.
        EXPECT_EQ(lines[0].string("line"), "caf\xC3\xA9 \xC2\xA9 \xE2\x80\xA6 \xE2\x82\xAC");
        EXPECT_EQ(lines[1], VNDiffHunkModel::lineRecord("-", "2", "", "b"));
        EXPECT_EQ(lines[2], VNDiffHunkModel::lineRecord("+", "", "2", "c"));
    }
}

// Line ends are looked for many bytes at a time; each must be found wherever it falls, and
// characters sharing a lead byte with a separator must not end a line there.
TEST(VNDiffParser, LineEndsAreFoundAtEveryPosition) {
    const std::vector<std::string> ends = {"\n", "\r",       "\r\n",         "\v",
                                           "\f", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"};
    for (const std::string& end : ends) {
        for (std::size_t length = 0; length < 40; ++length) {
            SCOPED_TRACE("end of " + std::to_string(end.size()) + " bytes after " +
                         std::to_string(length));
            std::string content(length, 'a');
            // A copyright sign and an ellipsis half way: lead bytes C2 and E2 that end nothing.
            content.insert(length / 2, length % 2 ? "\xC2\xA9" : "\xE2\x80\xA6");
            std::string text = "diff --git a/f b/f\n@@ -1,2 +1,2 @@\n " + content + end + "+" +
                               content + end + " tail";
            VNDiffFileList files = parse(text);
            ASSERT_EQ(files.size(), 1u);
            ASSERT_EQ(files[0]->hunks().size(), 1u);
            const auto& lines = files[0]->hunks()[0]->hunkLines();
            ASSERT_EQ(lines.size(), 3u);
            EXPECT_EQ(lines[0].string("line"), content);
            EXPECT_EQ(lines[1], VNDiffHunkModel::lineRecord("+", "", "2", content));
            EXPECT_EQ(lines[2].string("line"), "tail");
        }
    }
}

TEST(VNDiffParser, LongLinesAreCutToTenThousandCharactersWithoutSplittingOne) {
    struct Case {
        std::string name;
        std::string line;
        std::string expected;
    };
    auto repeat = [](const std::string& s, int n) {
        std::string out;
        for (int i = 0; i < n; ++i) {
            out += s;
        }
        return out;
    };
    const std::string a9999(9999, 'a');
    const std::vector<Case> cases = {
        {"exactly 10000 ASCII", std::string(10000, 'x'), std::string(10000, 'x')},
        {"10001 ASCII", std::string(10001, 'x'), std::string(10000, 'x')},
        {"two-byte character last", a9999 + "\xC3\xA9tail", a9999 + "\xC3\xA9"},
        {"two-byte characters only", repeat("\xC3\xA9", 10001), repeat("\xC3\xA9", 10000)},
        {"three-byte characters", std::string(9998, 'a') + repeat("\xE2\x82\xAC", 3),
         std::string(9998, 'a') + repeat("\xE2\x82\xAC", 2)},
        {"four-byte character last", a9999 + "\xF0\x9F\x98\x80" + "b", a9999 + "\xF0\x9F\x98\x80"},
        {"short multi-byte", repeat("\xF0\x9F\x98\x80", 3000), repeat("\xF0\x9F\x98\x80", 3000)},
    };
    GitRepository repo;
    repo.commitFile("base.txt", "base\n", "base");
    std::string content;
    for (const Case& c : cases) {
        content += c.line + "\n";
    }
    repo.write("long.txt", content);
    repo.git({"add", "long.txt"});
    VNDiffFileList files = parse(diff(repo, {"--cached", "--text"}));
    ASSERT_EQ(files.size(), 1u);
    ASSERT_EQ(files[0]->hunks().size(), 1u);
    const VNDiffHunkModel& hunk = *files[0]->hunks()[0];
    ASSERT_EQ(hunk.hunkLines().size(), cases.size());
    EXPECT_EQ(hunk.rawHunk().size(), content.size() + cases.size());  // every line whole
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(cases[i].name);
        std::string line = hunk.hunkLines()[i].string("line");
        EXPECT_EQ(line.size(), cases[i].expected.size());
        EXPECT_EQ(line, cases[i].expected);
        EXPECT_TRUE(vn::isValidUTF8(line));
    }
}

// ---- Several revisions and the file limit ------------------------------------------------

struct History {
    GitRepository repo;
    std::string first, second, third;
    History() {
        repo.write("b.txt", "b1\nkeep\n");
        repo.git({"add", "b.txt"});
        first = repo.commitFile("a.txt", "x\na1\ny\n", "first");
        repo.write("b.txt", "b2\nkeep\n");
        repo.git({"add", "b.txt"});
        second = repo.commitFile("a.txt", "x\na2\ny\n", "second: both files");
        third = repo.commitFile("a.txt", "x\na3\ny\n", "third");
    }
    // The multi-revision file diff: each revision starts with the separator, its abbreviated id
    // and its subject.
    std::string show(const std::vector<std::string>& extra = {}) {
        std::vector<std::string> args = extra;
        for (const std::string& word :
             {std::string("show"), "--pretty=format:" + Separator + "%h %s", std::string("-U3"),
              third, second, first, std::string("--"), std::string("a.txt"),
              std::string("b.txt")}) {
            args.push_back(word);
        }
        return repo.git(args);
    }
};

TEST(VNDiffParser, MultiRevisionDiffTagsTheFirstFileOfEachRevision) {
    History history;
    std::string text = history.show();
    VNDiffFileList files;
    VNDiffParser::git().parseDiffsToModel(text, files, NoLimit);
    ASSERT_EQ(files.size(), 5u) << text;
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"a.txt", history.third.substr(0, 7)},
        {"a.txt", history.second.substr(0, 7)},
        {"b.txt", ""},
        {"a.txt", history.first.substr(0, 7)},
        {"b.txt", ""},
    };
    for (std::size_t i = 0; i < files.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(files[i]->filename(), expected[i].first);
        EXPECT_EQ(files[i]->rev(), expected[i].second);
    }
    EXPECT_EQ(files[3]->changeType(), VNDiffFileModel::Added);
    expectLinesAgree(*files[0], "x\na2\ny\n", "x\na3\ny\n");
    expectLinesAgree(*files[2], "b1\nkeep\n", "b2\nkeep\n");
    expectLinesAgree(*files[3], "", "x\na1\ny\n");

    // Only seven-digit abbreviations are revision ids.
    VNDiffFileList longIds;
    VNDiffParser::git().parseDiffsToModel(history.show({"-c", "core.abbrev=8"}), longIds, NoLimit);
    ASSERT_EQ(longIds.size(), 5u);
    for (const auto& file : longIds) {
        EXPECT_EQ(file->rev(), "");
    }
}

TEST(VNDiffParser, FileLimitCountsWhatTheDestinationHolds) {
    GitRepository repo;
    for (int i = 0; i < 25; ++i) {
        repo.write("f" + std::to_string(100 + i) + ".txt", "old\n");
    }
    repo.git({"add", "."});
    repo.git({"commit", "-q", "-m", "base"});
    for (int i = 0; i < 25; ++i) {
        repo.write("f" + std::to_string(100 + i) + ".txt", "new\nlines\n");
    }
    std::string text = diff(repo, {});

    VNDiffFileList files = parse(text, 20);
    ASSERT_EQ(files.size(), 20u);
    EXPECT_EQ(files.back()->filename(), "f119.txt");
    ASSERT_EQ(files.back()->hunks().size(), 1u);  // the last file is closed, not cut
    EXPECT_EQ(files.back()->hunks()[0]->hunkLines().size(), 3u);

    VNDiffFileList prefilled;
    for (int i = 0; i < 5; ++i) {
        prefilled.push_back(std::make_shared<VNDiffFileModel>());
    }
    VNDiffParser::git().parseDiffToModel(text, prefilled, 20);
    ASSERT_EQ(prefilled.size(), 20u);
    EXPECT_EQ(prefilled.back()->filename(), "f114.txt");

    EXPECT_TRUE(parse(text, 0).empty());

    // The limit spans the revisions of a multi-revision diff.
    History history;
    VNDiffFileList some;
    VNDiffParser::git().parseDiffsToModel(history.show(), some, 2);
    ASSERT_EQ(some.size(), 2u);
    EXPECT_EQ(some[1]->rev(), history.second.substr(0, 7));
}

// ---- Tolerance -----------------------------------------------------------------------------

TEST(VNDiffParser, UnreadableTextLeavesDefaults) {
    EXPECT_TRUE(parse("").empty());
    EXPECT_TRUE(parse("\n\r\n").empty());
    // Without a file section nothing is kept, not even hunks.
    EXPECT_TRUE(parse("--- a\n+++ b\n@@ -1,1 +1,1 @@\n-a\n+b\n").empty());

    VNDiffFileList files = parse("diff -r old new\n@@ -1,1 +1,1 @@\n-a\n+b\nnot a diff line\n");
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0]->filename(), "");
    EXPECT_EQ(files[0]->changeType(), VNDiffFileModel::Modified);
    EXPECT_EQ(files[0]->fileType(), VNDiffFileModel::Text);
    ASSERT_EQ(files[0]->hunks().size(), 1u);
    // Whatever follows a hunk is taken as part of it.
    EXPECT_EQ(files[0]->hunks()[0]->hunkLines().back(),
              VNDiffHunkModel::lineRecord("n", "2", "2", "ot a diff line"));
}

TEST(VNDiffParser, TextCutAnywhereParsesAsFarAsItGoes) {
    GitRepository repo;
    repo.commitFile("a.txt", numberedLines(1, 12), "base");
    repo.commitFile("b.txt", "b\n", "base");
    repo.write("a.txt", numberedLines(1, 5) + "x\n" + numberedLines(7, 12, "line ") + "y\n");
    repo.write("b.txt", "b\xC3\xA9\n");
    std::string text = diff(repo, {});
    VNDiffFileList whole = parse(text);
    ASSERT_EQ(whole.size(), 2u);

    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
        VNDiffFileList files = parse(std::string_view(text).substr(0, cut));
        for (const auto& file : files) {
            uint64_t added = 0, removed = 0;
            for (const auto& hunk : file->hunks()) {
                ASSERT_TRUE(hunk);
                for (const vn::Record& line : hunk->hunkLines()) {
                    ASSERT_EQ(line.size(), 4u);
                    added += line.string("prefix") == "+";
                    removed += line.string("prefix") == "-";
                }
            }
            ASSERT_EQ(file->linesAdded(), added) << "cut at " << cut;
            ASSERT_EQ(file->linesRemoved(), removed) << "cut at " << cut;
        }
        // A cut at a line end reads exactly the lines before it.
        if (cut > 0 && text[cut - 1] == '\n') {
            std::size_t bodyLines = 0, expectedBodyLines = 0;
            for (const auto& file : files) {
                for (const auto& hunk : file->hunks()) {
                    bodyLines += hunk->hunkLines().size();
                }
            }
            for (const auto& file : whole) {
                for (const auto& hunk : file->hunks()) {
                    std::size_t offset = text.find(hunk->rawHunk());
                    ASSERT_NE(offset, std::string::npos);
                    for (const std::string& line : linesOf(hunk->rawHunk())) {
                        expectedBodyLines += offset + line.size() < cut;
                        offset += line.size() + 1;
                    }
                }
            }
            ASSERT_EQ(bodyLines, expectedBodyLines) << "cut at " << cut;
        }
    }
}

TEST(VNDiffParser, SurvivesMangledInput) {
    GitRepository repo;
    repo.commitFile("a.txt", numberedLines(1, 30), "base");
    repo.write("a.txt", numberedLines(1, 10) + "mid\n" + numberedLines(12, 30));
    const std::string text = diff(repo, {});
    std::mt19937 random(7);
    const std::string alphabet = "@+- \\\n\r,0123456789diffabo\xC2\x85\xE2\x80\xA8\xF0";
    for (int round = 0; round < 2000; ++round) {
        std::string mangled = text;
        for (int edit = 0; edit < 8; ++edit) {
            std::size_t at = random() % mangled.size();
            mangled[at] = alphabet[random() % alphabet.size()];
        }
        VNDiffFileList files = parse(mangled, 3);
        ASSERT_LE(files.size(), 3u);
        for (const auto& file : files) {
            for (const auto& hunk : file->hunks()) {
                for (const vn::Record& line : hunk->hunkLines()) {
                    ASSERT_EQ(line.size(), 4u);
                    ASSERT_FALSE(line.string("prefix").empty());
                }
            }
        }
    }
}

}  // namespace
