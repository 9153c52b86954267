#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "git/VNRepoHandlerGit.h"
#include "model/DiffOptions.h"
#include "model/VNDiffModel.h"
#include "model/VNDiffParser.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"
#include "platform/Preferences.h"
#include "support/GitDiffSupport.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::contentAt;
using vn::test::expectLinesAgree;
using vn::test::fileNamed;
using vn::test::GitRepository;
using vn::test::linesOf;
using vn::test::numberedLines;
using vn::test::runAndParse;

// Names git would quote or split if they were passed or read carelessly.
const std::string SpacedName =
    "d\xC3\xA4t a/Gr\xC3\xBC\xC3\x9F"
    "e Welt.txt";

std::string shortId(GitRepository& repo, const std::string& revision) {
    std::string id = repo.git({"rev-parse", "--short=7", revision});
    return id.substr(0, id.find('\n'));
}

// `lines` with the lines at the given 1-based numbers replaced by "changed N".
std::string withChangedLines(const std::string& text, std::vector<int> numbers) {
    std::vector<std::string> lines = linesOf(text);
    for (int n : numbers) {
        lines.at(n - 1) = "changed " + std::to_string(n);
    }
    std::string out;
    for (const std::string& line : lines) {
        out += line + "\n";
    }
    return out;
}

struct Handler {
    std::shared_ptr<VNRepoHandlerGit> git = std::make_shared<VNRepoHandlerGit>();
    VNRepoHandlerGit* operator->() const { return git.get(); }
    VNRepoHandlerGit& operator*() const { return *git; }
};

// ---- Working copy, index and HEAD
// ----------------------------------------------------------------

TEST(VNRepoHandlerGitDiff, UnstagedStagedAndAllUncommittedChangesAreTheirOwnDiffs) {
    GitRepository repo;
    Handler handler;
    std::string committed = numberedLines(1, 40);
    repo.commitFile(SpacedName, committed, "base");
    std::string staged = withChangedLines(committed, {5});
    repo.write(SpacedName, staged);
    repo.git({"add", "--", SpacedName});
    std::string working = withChangedLines(staged, {30});
    repo.write(SpacedName, working);

    struct Case {
        const char* name;
        std::shared_ptr<VNDiffModel> model;
        std::string oldText, newText;
        std::string changedLine;
    };
    const std::vector<std::string> files = {SpacedName};
    std::vector<Case> cases = {
        {"working copy against the index",
         runAndParse(*handler, handler->fileDiffAgainstBaseTask(repo.path(), files, 0, 3)), staged,
         working, "changed 30"},
        {"index against HEAD",
         runAndParse(*handler, handler->fileDiffAgainstBaseTask(repo.path(), files, "", 0, 3)),
         committed, staged, "changed 5"},
        {"index against HEAD, named",
         runAndParse(*handler, handler->fileDiffAgainstBaseTask(repo.path(), files, "HEAD", 0, 3)),
         committed, staged, "changed 5"},
        {"working copy against HEAD, parsed at once",
         handler->fileDiffAgainstBase(repo.path(), SpacedName, 3), committed, working, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(c.model);
        ASSERT_EQ(c.model->fileEntries().size(), 1u);
        const VNDiffFileModel& file = *c.model->fileEntries()[0];
        EXPECT_EQ(file.filename(), SpacedName);
        EXPECT_EQ(file.changeType(), VNDiffFileModel::Modified);
        EXPECT_GT(expectLinesAgree(file, c.oldText, c.newText), 0);
        if (!c.changedLine.empty()) {
            ASSERT_EQ(file.hunks().size(), 1u);
            EXPECT_EQ(file.linesAdded(), 1u);
            const auto& lines = file.hunks()[0]->hunkLines();
            EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const vn::Record& line) {
                return line.string("prefix") == "+" && line.string("line") == c.changedLine;
            }));
        } else {
            EXPECT_EQ(file.hunks().size(), 2u) << "both the staged and the unstaged change";
        }
    }
}

TEST(VNRepoHandlerGitDiff, OnlyTheListedFilesAndAllWithoutAList) {
    GitRepository repo;
    Handler handler;
    for (const std::string& name : {std::string("a.txt"), std::string("b.txt"), SpacedName}) {
        repo.commitFile(name, "one\n", "add " + name);
        repo.write(name, "two\n");
    }
    // A name that git would take for an option were it not after "--".
    repo.commitFile("--cached", "one\n", "add an awkward name");
    repo.write("--cached", "two\n");

    struct Case {
        std::vector<std::string> fileList;
        std::vector<std::string> expected;
    };
    const std::vector<Case> cases = {
        {{}, {"--cached", "a.txt", "b.txt", SpacedName}},
        {{"b.txt"}, {"b.txt"}},
        {{SpacedName, "a.txt"}, {"a.txt", SpacedName}},
        {{"--cached"}, {"--cached"}},
        {{"d\xC3\xA4t a"}, {SpacedName}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.fileList));
        auto model =
            runAndParse(*handler, handler->fileDiffAgainstBaseTask(repo.path(), c.fileList, 0, 3));
        std::vector<std::string> names;
        for (const auto& file : model->fileEntries()) {
            names.push_back(file->filename());
        }
        EXPECT_EQ(names, c.expected);
        auto direct = handler->fileDiffAgainstBase(repo.path(), c.fileList, 3);
        ASSERT_TRUE(direct);
        EXPECT_EQ(direct->fileEntries().size(), c.expected.size());
    }
}

TEST(VNRepoHandlerGitDiff, ContextLinesFollowTheRequest) {
    GitRepository repo;
    Handler handler;
    std::string before = numberedLines(1, 60);
    repo.commitFile("f.txt", before, "base");
    // Two changes with 19 lines between them: separate hunks up to 9 context lines, one hunk
    // from 10 on. Each changes two lines, because without context git leaves out a count of 1
    // from the hunk header, and such a header is deliberately not read.
    std::string after = withChangedLines(before, {20, 21, 41, 42});
    repo.write("f.txt", after);

    struct Case {
        int context;
        std::size_t hunks;
        std::size_t leadingContext;
    };
    for (const Case& c :
         std::vector<Case>{{0, 2, 0}, {1, 2, 1}, {3, 2, 3}, {9, 2, 9}, {10, 1, 10}, {-4, 2, 0}}) {
        SCOPED_TRACE("context " + std::to_string(c.context));
        auto model = runAndParse(
            *handler, handler->fileDiffAgainstBaseTask(repo.path(), {"f.txt"}, 0, c.context));
        ASSERT_EQ(model->fileEntries().size(), 1u);
        const VNDiffFileModel& file = *model->fileEntries()[0];
        EXPECT_EQ(file.hunks().size(), c.hunks);
        ASSERT_FALSE(file.hunks().empty());
        const auto& lines = file.hunks()[0]->hunkLines();
        std::size_t leading = 0;
        while (leading < lines.size() && lines[leading].string("prefix") == " ") {
            ++leading;
        }
        EXPECT_EQ(leading, c.leadingContext);
        expectLinesAgree(file, before, after);
    }
}

TEST(VNRepoHandlerGitDiff, IgnoringWhitespaceLeavesOnlyRealChanges) {
    GitRepository repo;
    Handler handler;
    std::string before = numberedLines(1, 12);
    repo.commitFile("f.txt", before, "base");
    std::vector<std::string> lines = linesOf(before);
    lines[2] = "  line   3\t";
    lines[8] = "line nine";
    std::string after;
    for (const std::string& line : lines) {
        after += line + "\n";
    }
    repo.write("f.txt", after);
    repo.commitFile("only-blanks.txt", "a b\n", "blanks");
    repo.write("only-blanks.txt", "a    b \n");

    for (uint64_t options : {uint64_t{0}, vn::DiffIgnoreWhitespace}) {
        SCOPED_TRACE("options " + std::to_string(options));
        bool ignoring = options != 0;
        std::vector<std::shared_ptr<VNTask>> tasks = {
            handler->fileDiffAgainstBaseTask(repo.path(), {}, options, 1),
            handler->revisionRangeFileDiffTask(repo.path(), "HEAD~1", "HEAD", {}, options, 1),
        };
        auto model = runAndParse(*handler, tasks[0]);
        auto file = fileNamed(*model, "f.txt");
        ASSERT_TRUE(file);
        EXPECT_EQ(file->linesAdded(), ignoring ? 1u : 2u);
        expectLinesAgree(*file, before, after);
        EXPECT_EQ(fileNamed(*model, "only-blanks.txt") != nullptr, !ignoring);

        // The range compares two commits whose difference is only the added file, so ignoring
        // whitespace changes nothing there: the option is passed, not invented.
        auto range = runAndParse(*handler, tasks[1]);
        ASSERT_EQ(range->fileEntries().size(), 1u);
        EXPECT_EQ(range->fileEntries()[0]->changeType(), VNDiffFileModel::Added);
    }
}

// ---- Revisions ---------------------------------------------------------------------------------

TEST(VNRepoHandlerGitDiff, OneRevisionARootCommitAndAMerge) {
    GitRepository repo;
    Handler handler;
    std::string first = numberedLines(1, 30);
    repo.commitFile(SpacedName, first, "root");
    std::string second = withChangedLines(first, {3, 17});
    repo.commitFile(SpacedName, second, "second");
    repo.git({"checkout", "-q", "-b", "side", "HEAD~1"});
    repo.commitFile("side.txt", numberedLines(1, 4, "side "), "side");
    repo.git({"checkout", "-q", "main"});
    repo.git({"merge", "-q", "--no-ff", "--no-edit", "side"});
    // Would hide the root commit's files from `git show` unless asked for.
    repo.git({"config", "log.showRoot", "false"});

    struct Case {
        const char* name;
        std::string revision;
        std::string filename;
        uint64_t changeType;
        std::string oldText, newText;
    };
    const std::vector<Case> cases = {
        {"root commit", "HEAD~1~1", SpacedName, VNDiffFileModel::Added, "", first},
        {"ordinary commit", "HEAD~1", SpacedName, VNDiffFileModel::Modified, first, second},
        {"merge against its first parent", "HEAD", "side.txt", VNDiffFileModel::Added, "",
         numberedLines(1, 4, "side ")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto model =
            runAndParse(*handler, handler->revisionFileDiffTask(repo.path(), c.revision, {}, 0, 3));
        ASSERT_EQ(model->fileEntries().size(), 1u);
        const VNDiffFileModel& file = *model->fileEntries()[0];
        EXPECT_EQ(file.filename(), c.filename);
        EXPECT_EQ(file.changeType(), c.changeType);
        EXPECT_GT(expectLinesAgree(file, c.oldText, c.newText), 0);
    }
    // Restricted to a file the revision did not touch, the diff is empty.
    auto none = runAndParse(*handler,
                            handler->revisionFileDiffTask(repo.path(), "HEAD", {SpacedName}, 0, 3));
    EXPECT_TRUE(none->fileEntries().empty());
}

TEST(VNRepoHandlerGitDiff, RangeBetweenDistantRevisions) {
    GitRepository repo;
    Handler handler;
    std::string text = numberedLines(1, 80);
    std::string from = repo.commitFile("long.txt", text, "base");
    for (int step = 1; step <= 5; ++step) {
        text = withChangedLines(text, {step * 13});
        repo.commitFile("long.txt", text, "step " + std::to_string(step));
    }
    repo.commitFile("new.txt", "fresh\n", "another file");

    auto model = runAndParse(*handler, handler->revisionRangeFileDiffTask(repo.path(), from, "HEAD",
                                                                          {"long.txt"}, 0, 2));
    ASSERT_EQ(model->fileEntries().size(), 1u);
    const VNDiffFileModel& file = *model->fileEntries()[0];
    EXPECT_EQ(file.hunks().size(), 5u);
    EXPECT_EQ(file.linesAdded(), 5u);
    // Each hunk: two context lines on either side with both numbers, one removed, one added.
    EXPECT_EQ(expectLinesAgree(file, contentAt(repo, from, "long.txt"),
                               contentAt(repo, "HEAD", "long.txt")),
              5 * (4 * 2 + 2));

    auto whole = runAndParse(
        *handler, handler->revisionRangeFileDiffTask(repo.path(), from, "HEAD", {}, 0, 3));
    EXPECT_EQ(whole->fileEntries().size(), 2u);
    auto reversed = runAndParse(
        *handler, handler->revisionRangeFileDiffTask(repo.path(), "HEAD", from, {}, 0, 3));
    auto gone = fileNamed(*reversed, "new.txt");
    ASSERT_TRUE(gone);
    EXPECT_EQ(gone->changeType(), VNDiffFileModel::Deleted);
}

TEST(VNRepoHandlerGitDiff, SeveralRevisionsTagTheirFiles) {
    GitRepository repo;
    Handler handler;
    std::string a1 = numberedLines(1, 20, "a ");
    std::vector<std::string> revisions;
    revisions.push_back(repo.commitFile("a.txt", a1, "first subject"));
    std::string a2 = withChangedLines(a1, {7});
    repo.write("b.txt", "b\n");
    repo.git({"add", "b.txt"});
    revisions.push_back(repo.commitFile("a.txt", a2, "second subject"));
    std::string a3 = withChangedLines(a2, {15});
    revisions.push_back(repo.commitFile("a.txt", a3, "third subject"));
    const std::vector<std::string> contents = {"", a1, a2, a3};

    auto task = handler->revisionsFileDiffTask(repo.path(), revisions, {"a.txt"}, 0, 3);
    ASSERT_TRUE(task->run()) << task->errorOutput();
    // Each revision begins with the separator and its abbreviated id and subject.
    for (std::size_t i = 0; i < revisions.size(); ++i) {
        std::string header = std::string(VNDiffParser::RevisionSeparator) +
                             shortId(repo, revisions[i]) + " " +
                             std::vector<std::string>{"first", "second", "third"}[i] + " subject";
        EXPECT_NE(task->output().find(header + "\n"), std::string::npos) << header;
    }
    VNDiffModel model;
    handler->parseDiffsToModel(task->output(), model.fileEntries(), 1000);
    ASSERT_EQ(model.fileEntries().size(), 3u) << "b.txt is not asked for";
    for (std::size_t i = 0; i < revisions.size(); ++i) {
        SCOPED_TRACE("revision " + std::to_string(i + 1));
        const VNDiffFileModel& file = *model.fileEntries()[i];
        EXPECT_EQ(file.filename(), "a.txt");
        EXPECT_EQ(file.rev(), shortId(repo, revisions[i]));
        EXPECT_GT(expectLinesAgree(file, contents[i], contents[i + 1]), 0);
    }

    // The views' limit counts the files of every revision.
    VNDiffModel limited;
    handler->parseDiffsToModel(task->output(), limited.fileEntries(), 2);
    EXPECT_EQ(limited.fileEntries().size(), 2u);
}

TEST(VNRepoHandlerGitDiff, StashShowsItsChanges) {
    GitRepository repo;
    Handler handler;
    std::string base = numberedLines(1, 25);
    repo.commitFile(SpacedName, base, "base");
    std::string stashed = withChangedLines(base, {12});
    repo.write(SpacedName, stashed);
    repo.git({"stash", "push", "-q", "-m", "wip"});
    std::string newer = withChangedLines(base, {2});
    repo.write(SpacedName, newer);
    repo.git({"stash", "push", "-q", "-m", "newer"});

    struct Case {
        std::string name;
        std::string expected;
    };
    for (const Case& c :
         std::vector<Case>{{"stash@{1}", stashed}, {"stash@{0}", newer}, {"", newer}}) {
        SCOPED_TRACE(c.name);
        auto model = runAndParse(*handler, handler->stashDiffTask(repo.path(), c.name));
        ASSERT_EQ(model->fileEntries().size(), 1u);
        EXPECT_EQ(model->fileEntries()[0]->filename(), SpacedName);
        EXPECT_GT(expectLinesAgree(*model->fileEntries()[0], base, c.expected), 0);
    }
}

// ---- Kinds of change
// -----------------------------------------------------------------------------

TEST(VNRepoHandlerGitDiff, RenamesModesBinariesAndLargeFilePointers) {
    GitRepository repo;
    Handler handler;
    auto pointer = [](char digit) { return vn::test::lfsPointer(digit, 12345); };
    std::string story = numberedLines(1, 30, "story ");
    repo.write("old name.txt", story);
    repo.write("run.sh", "#!/bin/sh\n");
    repo.write("image.bin", std::string("\0\1\2\3binary", 10));
    repo.write("model.dat", pointer('a'));
    repo.git({"add", "."});
    repo.git({"commit", "-q", "-m", "base"});

    vn::fs::makeDirectories(vn::fs::deletingLastPathComponent(repo.file(SpacedName)));
    repo.git({"mv", "old name.txt", SpacedName});
    std::string edited = withChangedLines(story, {29});
    repo.write(SpacedName, edited);
    std::filesystem::permissions(repo.file("run.sh"), std::filesystem::perms::owner_exec,
                                 std::filesystem::perm_options::add);
    repo.write("image.bin", std::string("\0\1\2\3changed", 11));
    repo.write("model.dat", pointer('b'));
    repo.git({"add", "-A"});
    repo.git({"commit", "-q", "-m", "changes"});

    struct Case {
        const char* name;
        std::shared_ptr<VNTask> task;
    };
    repo.git({"reset", "-q", "--soft", "HEAD~1"});
    std::vector<Case> cases = {
        {"staged", handler->fileDiffAgainstBaseTask(repo.path(), {}, "", 0, 3)},
        {"revision", handler->revisionFileDiffTask(repo.path(), "ORIG_HEAD", {}, 0, 3)},
        {"range", handler->revisionRangeFileDiffTask(repo.path(), "HEAD", "ORIG_HEAD", {}, 0, 3)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto model = runAndParse(*handler, c.task);
        ASSERT_EQ(model->fileEntries().size(), 4u);

        auto renamed = fileNamed(*model, SpacedName);
        ASSERT_TRUE(renamed);
        EXPECT_EQ(renamed->changeType(), VNDiffFileModel::Renamed);
        EXPECT_EQ(renamed->previousFilename(), "old name.txt");
        EXPECT_GT(expectLinesAgree(*renamed, story, edited), 0);

        auto script = fileNamed(*model, "run.sh");
        ASSERT_TRUE(script);
        EXPECT_EQ(script->oldFileMode(), 100644);
        EXPECT_EQ(script->newFileMode(), 100755);
        EXPECT_TRUE(script->hunks().empty());

        auto image = fileNamed(*model, "image.bin");
        ASSERT_TRUE(image);
        EXPECT_EQ(image->fileType(), VNDiffFileModel::Binary);

        auto large = fileNamed(*model, "model.dat");
        ASSERT_TRUE(large);
        EXPECT_EQ(large->fileType(), VNDiffFileModel::LargeFilePointer);
        EXPECT_EQ(large->beforeLargeFileRef(), std::string(64, 'a'));
        EXPECT_EQ(large->afterLargeFileRef(), std::string(64, 'b'));
    }

    // The base handler knows no large files: the same text reads as an ordinary text file.
    auto text = cases[0].task->output();
    VNDiffModel plain;
    std::make_shared<VNRepoHandlerBase>()->parseDiffToModel(text, plain.fileEntries(), 100);
    auto large = fileNamed(plain, "model.dat");
    ASSERT_TRUE(large);
    EXPECT_EQ(large->fileType(), VNDiffFileModel::Text);
    EXPECT_EQ(large->afterLargeFileRef(), "");
}

TEST(VNRepoHandlerGitDiff, GitLfsFilesReadAsLargeFilePointers) {
    if (!vn::fs::findExecutable("git-lfs")) {
        GTEST_SKIP() << "git-lfs is not installed";
    }
    GitRepository repo;
    Handler handler;
    repo.git({"lfs", "install", "--local"});
    repo.git({"lfs", "track", "*.bin"});
    repo.write("data.bin", "first content\n");
    repo.git({"add", ".gitattributes", "data.bin"});
    repo.git({"commit", "-q", "-m", "large file"});
    repo.write("data.bin", "second content\n");
    repo.git({"add", "data.bin"});
    // The object ids git-lfs stored for the two versions, read from the pointers themselves.
    auto oid = [&](const std::string& revision) {
        std::string pointer = contentAt(repo, revision, "data.bin");
        std::size_t at = pointer.find("oid sha256:");
        return at == std::string::npos ? std::string() : pointer.substr(at + 11, 64);
    };
    ASSERT_EQ(oid("HEAD").size(), 64u) << "precondition: git-lfs cleaned the file";

    auto model = runAndParse(*handler, handler->fileDiffAgainstBaseTask(repo.path(), {}, "", 0, 3));
    auto file = fileNamed(*model, "data.bin");
    ASSERT_TRUE(file);
    EXPECT_EQ(file->fileType(), VNDiffFileModel::LargeFilePointer);
    EXPECT_EQ(file->beforeLargeFileRef(), oid("HEAD"));
    EXPECT_EQ(file->afterLargeFileRef(), oid(""));
    EXPECT_NE(file->beforeLargeFileRef(), file->afterLargeFileRef());
}

TEST(VNRepoHandlerGitDiff, RepositoryWithoutCommits) {
    GitRepository repo;
    Handler handler;
    std::string content = numberedLines(1, 5);
    repo.write(SpacedName, content);
    repo.git({"add", "--", SpacedName});
    std::string working = content + "line 6\n";
    repo.write(SpacedName, working);

    for (const std::string& base : {std::string(), std::string("HEAD")}) {
        SCOPED_TRACE("base '" + base + "'");
        auto staged =
            runAndParse(*handler, handler->fileDiffAgainstBaseTask(repo.path(), {}, base, 0, 3));
        ASSERT_EQ(staged->fileEntries().size(), 1u);
        EXPECT_EQ(staged->fileEntries()[0]->changeType(), VNDiffFileModel::Added);
        expectLinesAgree(*staged->fileEntries()[0], "", content);
    }
    auto all = handler->fileDiffAgainstBase(repo.path(), SpacedName, 3);
    ASSERT_TRUE(all);
    ASSERT_EQ(all->fileEntries().size(), 1u);
    EXPECT_EQ(all->fileEntries()[0]->changeType(), VNDiffFileModel::Added);
    EXPECT_EQ(expectLinesAgree(*all->fileEntries()[0], "", working), 6);
}

TEST(VNRepoHandlerGitDiff, FailuresGiveNoModel) {
    vn::test::TempDir notARepository;
    Handler handler;
    EXPECT_EQ(handler->fileDiffAgainstBase(notARepository.path(), "x.txt", 3), nullptr);

    GitRepository repo;
    repo.commitFile("a.txt", "a\n", "base");
    auto task = handler->revisionFileDiffTask(repo.path(), "no-such-revision", {}, 0, 3);
    EXPECT_FALSE(task->run());
    EXPECT_NE(task->errorOutput().find("no-such-revision"), std::string::npos);
}

// ---- Command lines
// -------------------------------------------------------------------------------

TEST(VNRepoHandlerGitDiff, CommandLinesStartWithTheDefaultsAndEndWithTheFiles) {
    Handler handler;
    const std::string path = "/repo";
    const std::vector<std::string> files = {"a.txt", "-w"};
    struct Case {
        const char* name;
        std::shared_ptr<VNTask> task;
        const char* command;
        std::vector<std::string> expectedFiles;
        bool diffOptions;
    };
    const std::vector<Case> cases = {
        {"unstaged", handler->fileDiffAgainstBaseTask(path, files, 0, 5), "diff", files, true},
        {"staged", handler->fileDiffAgainstBaseTask(path, files, "v1", 0, 5), "diff", files, true},
        {"revision", handler->revisionFileDiffTask(path, "v1", files, 0, 5), "show", files, true},
        {"range", handler->revisionRangeFileDiffTask(path, "v1", "v2", files, 0, 5), "diff", files,
         true},
        {"revisions", handler->revisionsFileDiffTask(path, {"v1", "v2"}, files, 0, 5), "show",
         files, true},
        {"external", handler->externalDiffTask(path, "-w", 0), "difftool", {"-w"}, false},
        {"external staged",
         handler->externalDiffTask(path, "-w", "v1", 0),
         "difftool",
         {"-w"},
         false},
        {"external range",
         handler->externalDiffTask(path, "-w", "v1", "v2"),
         "difftool",
         {"-w"},
         false},
        {"merge", handler->visualMergeTask(path, "-w"), "mergetool", {"-w"}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.task->command(), handler->gitPath());
        EXPECT_EQ(c.task->workingDir(), path);
        const std::vector<std::string>& args = c.task->args();
        std::vector<std::string> defaults = handler->defaultArgsForPath(path, c.command);
        ASSERT_GE(args.size(), defaults.size() + c.expectedFiles.size() + 1);
        EXPECT_TRUE(std::equal(defaults.begin(), defaults.end(), args.begin()));
        std::vector<std::string> tail(args.end() - c.expectedFiles.size() - 1, args.end());
        std::vector<std::string> expectedTail = {"--"};
        expectedTail.insert(expectedTail.end(), c.expectedFiles.begin(), c.expectedFiles.end());
        EXPECT_EQ(tail, expectedTail);
        // "-w" only ever stands after "--" here, as a file name.
        EXPECT_EQ(std::count(args.begin(), args.end(), "-w"), 1);
        if (c.diffOptions) {
            EXPECT_NE(std::find(args.begin(), args.end(), "--unified=5"), args.end());
            EXPECT_NE(std::find(args.begin(), args.end(), "-M"), args.end());
        }
    }
    auto ignoring = handler->fileDiffAgainstBaseTask(path, {}, vn::DiffIgnoreWhitespace, 3);
    const auto& args = ignoring->args();
    auto separator = std::find(args.begin(), args.end(), "--");
    EXPECT_NE(std::find(args.begin(), separator, "-w"), separator);
    EXPECT_EQ(separator + 1, args.end());

    EXPECT_EQ(handler->stashDiffTask(path, "stash@{2}")->args(), [&] {
        auto expected = handler->defaultArgsForPath(path, "stash");
        expected.insert(expected.end(),
                        {"show", "-p", "--no-color", "--no-ext-diff", "--no-textconv",
                         "--src-prefix=a/", "--dst-prefix=b/", "--end-of-options", "stash@{2}"});
        return expected;
    }());
}

TEST(VNRepoHandlerGitDiff, UserDiffSettingsDoNotChangeWhatIsRead) {
    GitRepository repo;
    Handler handler;
    std::string before = numberedLines(1, 10);
    repo.commitFile("f.txt", before, "base");
    std::string after = withChangedLines(before, {4});
    repo.write("f.txt", after);
    // Settings that would drop the a/ b/ prefixes, hand the diff to another program, or
    // colour it.
    repo.git({"config", "diff.noprefix", "true"});
    repo.git({"config", "diff.external", "/bin/false"});
    repo.git({"config", "color.ui", "always"});
    repo.git({"config", "diff.renames", "false"});
    repo.git({"mv", "f.txt", "g.txt"});
    repo.git({"add", "-A"});
    repo.git({"commit", "-q", "-m", "move"});

    auto model =
        runAndParse(*handler, handler->revisionFileDiffTask(repo.path(), "HEAD", {}, 0, 3));
    ASSERT_EQ(model->fileEntries().size(), 1u);
    const VNDiffFileModel& file = *model->fileEntries()[0];
    EXPECT_EQ(file.filename(), "g.txt");
    EXPECT_EQ(file.previousFilename(), "f.txt");
    EXPECT_EQ(file.changeType(), VNDiffFileModel::Renamed);
    EXPECT_GT(expectLinesAgree(file, before, after), 0);
}

// ---- External tools
// ------------------------------------------------------------------------------

// A diff and merge tool that writes down what it was given instead of showing it; as a merge
// tool it resolves the file.
struct RecordingTool {
    explicit RecordingTool(GitRepository& repo) : repo(repo) {
        log = repo.file(".git/tool.log");
        script = vn::test::writeScript(
            repo.path() + "/.git", "tool.sh",
            "printf '%s\\n' \"$1\" >> \"$TOOL_LOG\"\n"
            "if [ \"$1\" = merge ]; then printf 'resolved\\n' > \"$4\"; exit 0; fi\n"
            "printf 'LOCAL:' >> \"$TOOL_LOG\"; cat \"$2\" >> \"$TOOL_LOG\"\n"
            "printf 'REMOTE:' >> \"$TOOL_LOG\"; cat \"$3\" >> \"$TOOL_LOG\"\n");
        ::setenv("TOOL_LOG", log.c_str(), 1);
        repo.git({"config", "mergetool.keepBackup", "false"});
    }
    ~RecordingTool() { ::unsetenv("TOOL_LOG"); }
    // Registers the tool as `name` in git's "difftool" or "mergetool" section, acting as a diff
    // ("diff") or a merge ("merge").
    void registerAs(const std::string& section, const std::string& name, const std::string& mode) {
        repo.git({"config", section + "." + name + ".cmd",
                  script + " " + mode + " \"$LOCAL\" \"$REMOTE\" \"$MERGED\""});
        repo.git({"config", section + "." + name + ".trustExitCode", "true"});
    }
    std::string takeLog() {
        std::string text = vn::test::readFile(log);
        std::filesystem::remove(log);
        return text;
    }
    GitRepository& repo;
    std::string log;
    std::string script;
};

struct AgreedToUpdateConfig {
    explicit AgreedToUpdateConfig(int value) {
        vn::Preferences::standard().set("agreedToUpdateConfig", value);
    }
    ~AgreedToUpdateConfig() { vn::Preferences::standard().remove("agreedToUpdateConfig"); }
};

TEST(VNRepoHandlerGitDiff, ExternalDiffRunsTheConfiguredToolWithBothVersions) {
    GitRepository repo;
    Handler handler;
    std::string root = repo.commitFile(SpacedName, "one\n", "one");
    std::string second = repo.commitFile(SpacedName, "two\n", "two");
    repo.write(SpacedName, "three\n");
    repo.git({"add", "--", SpacedName});
    repo.write(SpacedName, "four\n");

    struct Case {
        const char* name;
        int agreed;
        std::function<std::shared_ptr<VNTask>()> task;
        std::string local, remote;
    };
    const std::vector<Case> cases = {
        {"working copy against the index", 0,
         [&] { return handler->externalDiffTask(repo.path(), SpacedName, 0); }, "three\n",
         "four\n"},
        {"index against HEAD", 0,
         [&] { return handler->externalDiffTask(repo.path(), SpacedName, "", 0); }, "two\n",
         "three\n"},
        {"index against a base", 0,
         [&] { return handler->externalDiffTask(repo.path(), SpacedName, root, 0); }, "one\n",
         "three\n"},
        {"one revision", 0,
         [&] { return handler->externalDiffTask(repo.path(), SpacedName, second); }, "one\n",
         "two\n"},
        {"the root revision", 0,
         [&] { return handler->externalDiffTask(repo.path(), SpacedName, root); }, "", "one\n"},
        {"two revisions", 0,
         [&] { return handler->externalDiffTask(repo.path(), SpacedName, second, root); }, "two\n",
         "one\n"},
        {"the program's own tool", 1,
         [&] { return handler->externalDiffTask(repo.path(), SpacedName, root, second); }, "one\n",
         "two\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        // The user's tool is "recorder"; the program registers its own, "varnel", as a merge tool
        // only, which difftool falls back to.
        RecordingTool tool(repo);
        tool.registerAs("difftool", "recorder", "diff");
        tool.registerAs("mergetool", "varnel", "diff");
        repo.git({"config", "diff.tool", c.agreed ? "unused" : "recorder"});
        AgreedToUpdateConfig agreed(c.agreed);
        auto task = c.task();
        ASSERT_TRUE(task->run()) << task->errorOutput();
        EXPECT_EQ(tool.takeLog(), "diff\nLOCAL:" + c.local + "REMOTE:" + c.remote);
    }
}

TEST(VNRepoHandlerGitDiff, VisualMergeResolvesAConflictWithTheTool) {
    GitRepository repo;
    Handler handler;
    repo.commitFile(SpacedName, "base\n", "base");
    repo.git({"checkout", "-q", "-b", "side"});
    repo.commitFile(SpacedName, "side\n", "side");
    repo.git({"checkout", "-q", "main"});
    repo.commitFile(SpacedName, "main\n", "main");
    auto merge = vn::test::runProgram(repo.path(), "git", {"merge", "-q", "side"});
    ASSERT_FALSE(merge->success()) << "precondition: a conflict";

    RecordingTool tool(repo);
    tool.registerAs("mergetool", "recorder", "merge");
    repo.git({"config", "merge.tool", "recorder"});
    auto task = handler->visualMergeTask(repo.path(), SpacedName);
    ASSERT_TRUE(task->run()) << task->errorOutput();
    EXPECT_EQ(tool.takeLog(), "merge\n");
    EXPECT_EQ(vn::test::readFile(repo.file(SpacedName)), "resolved\n");
    EXPECT_EQ(repo.git({"diff", "--name-only", "--diff-filter=U"}), "") << "marked resolved";
}

}  // namespace
