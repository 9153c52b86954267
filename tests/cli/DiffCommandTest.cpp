#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "base/Json.h"
#include "base/Record.h"
#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "support/GitDiffSupport.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::GitRepository;

std::shared_ptr<VNTask> vrnl(const std::vector<std::string>& args) {
    auto task = VNTask::taskWithCommand(VARNEL_TEST_VRNL, vn::test::sandboxPath(), args);
    task->run();
    return task;
}

std::string numberedLines(int from, int to) {
    std::string text;
    for (int i = from; i <= to; ++i) {
        text += "line " + std::to_string(i) + "\n";
    }
    return text;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t from = 0;
    while (from < text.size()) {
        std::size_t end = text.find('\n', from);
        lines.push_back(text.substr(from, end == std::string::npos ? end : end - from));
        if (end == std::string::npos) {
            break;
        }
        from = end + 1;
    }
    return lines;
}

// A patch with a modified text file, a rename with a mode change, a binary file and a Git LFS
// pointer, as git writes it, in a file beside the repository.
struct PatchFixture {
    GitRepository repo;
    std::string oldNotes = numberedLines(1, 12);
    std::string newNotes;
    std::string patchPath;

    PatchFixture() {
        repo.write("notes.txt", oldNotes);
        repo.write("run.sh", "#!/bin/sh\necho hi\n");
        repo.write("image.png", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16));
        repo.write("model.bin", vn::test::lfsPointer('1', 100));
        repo.git({"add", "."});
        repo.git({"commit", "-q", "-m", "base"});

        std::vector<std::string> lines = linesOf(oldNotes);
        lines[5] = "changed";
        for (const std::string& line : lines) {
            newNotes += line + "\n";
        }
        repo.write("notes.txt", newNotes);
        repo.git({"mv", "run.sh", "run tool.sh"});
        std::filesystem::permissions(repo.file("run tool.sh"), std::filesystem::perms::owner_exec,
                                     std::filesystem::perm_options::add);
        repo.write("image.png", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\x01", 18));
        repo.write("model.bin", vn::test::lfsPointer('2', 200));
        repo.git({"add", "-A"});
        patchPath = repo.file("changes.patch");
        vn::test::writeFile(patchPath, repo.git({"-c", "core.quotepath=false", "diff", "--cached",
                                                 "-M", "--", "."}));
    }
};

TEST(VrnlDiff, PatchFileForPeople) {
    PatchFixture fixture;
    auto task = vrnl({"diff", "--patch-file", fixture.patchPath});
    ASSERT_TRUE(task->success()) << task->errorOutput();
    const std::string& out = task->output();
    // Not a terminal, so no colour.
    EXPECT_EQ(out.find("\x1b["), std::string::npos);
    std::vector<std::string> lines = linesOf(out);
    auto has = [&](const std::string& line) {
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    };
    for (const std::string& expected : {
             std::string("modified  image.png"),
             std::string("  binary file, no lines shown"),
             std::string("modified  model.bin  +2 -2"),
             "  Git LFS file " + std::string(12, '1') + " -> " + std::string(12, '2'),
             std::string("modified  notes.txt  +1 -1"),
             std::string("@@ -3,7 +3,7 @@ hunk 1"),
             std::string("1 | 3 3  line 3"),
             std::string("4 | 6   -line 6"),
             std::string("5 |   6 +changed"),
             std::string("8 | 9 9  line 9"),
             std::string("renamed  run.sh -> run tool.sh"),
             std::string("  mode 100644 -> 100755"),
         }) {
        EXPECT_TRUE(has(expected)) << "missing \"" << expected << "\" in\n" << out;
    }
}

TEST(VrnlDiff, PatchFileAsJson) {
    PatchFixture fixture;
    auto task = vrnl({"diff", "--patch-file", fixture.patchPath, "--json"});
    ASSERT_TRUE(task->success()) << task->errorOutput();
    auto json = vn::parseJson(task->output());
    ASSERT_TRUE(json && json->record()) << task->output();
    const vn::Value::Array* files = (*json->record())["fileEntries"].array();
    ASSERT_TRUE(files);
    ASSERT_EQ(files->size(), 4u);
    auto file = [&](std::size_t i) -> const vn::Record& { return *(*files)[i].record(); };

    EXPECT_EQ(file(0).string("filename"), "image.png");
    EXPECT_EQ(file(0).integer("fileType"), 1);
    EXPECT_EQ(file(0)["hunks"].array()->size(), 0u);

    EXPECT_EQ(file(1).string("filename"), "model.bin");
    EXPECT_EQ(file(1).integer("fileType"), 2);
    EXPECT_EQ(file(1).string("beforeLargeFileRef"), std::string(64, '1'));
    EXPECT_EQ(file(1).string("afterLargeFileRef"), std::string(64, '2'));

    const vn::Record& notes = file(2);
    EXPECT_EQ(notes.string("filename"), "notes.txt");
    EXPECT_EQ(notes.integer("linesAdded"), 1);
    EXPECT_EQ(notes.integer("linesRemoved"), 1);
    // Every numbered line is that line of the old or new file.
    std::vector<std::string> oldLines = linesOf(fixture.oldNotes);
    std::vector<std::string> newLines = linesOf(fixture.newNotes);
    int numbered = 0;
    for (const vn::Value& hunk : *notes["hunks"].array()) {
        for (const vn::Value& value : *(*hunk.record())["hunkLines"].array()) {
            const vn::Record& line = *value.record();
            EXPECT_EQ(line.keys(),
                      (std::vector<std::string>{"prefix", "beforelineno", "afterlineno", "line"}));
            if (!line.string("beforelineno").empty()) {
                EXPECT_EQ(line.string("line"),
                          oldLines.at(std::stoi(line.string("beforelineno")) - 1));
                ++numbered;
            }
            if (!line.string("afterlineno").empty()) {
                EXPECT_EQ(line.string("line"),
                          newLines.at(std::stoi(line.string("afterlineno")) - 1));
                ++numbered;
            }
        }
    }
    EXPECT_EQ(numbered, 14);

    const vn::Record& script = file(3);
    EXPECT_EQ(script.string("filename"), "run tool.sh");
    EXPECT_EQ(script.string("previousFilename"), "run.sh");
    EXPECT_EQ(script.integer("changeType"), 3);
    EXPECT_EQ(script.integer("oldFileMode"), 100644);
    EXPECT_EQ(script.integer("newFileMode"), 100755);
    EXPECT_FALSE(script.boolean("suppressed"));
    EXPECT_TRUE(script["rev"].isNull());
}

TEST(VrnlDiff, MailboxOfPatchesReadsLikeTheirDiffs) {
    GitRepository repo;
    repo.commitFile("a.txt", numberedLines(1, 8), "base");
    repo.commitFile("a.txt", numberedLines(1, 7) + "eight\n", "first");
    repo.commitFile("b.txt", "b\n", "second");
    std::string mailbox = repo.git({"format-patch", "--stdout", "HEAD~2"});
    ASSERT_NE(mailbox.find("\n-- \n"), std::string::npos);
    std::string diffs =
        repo.git({"show", "--format=", "HEAD~1"}) + repo.git({"show", "--format=", "HEAD"});
    vn::test::writeFile(repo.file("series.mbox"), mailbox);
    vn::test::writeFile(repo.file("plain.diff"), diffs);

    auto fromMailbox = vrnl({"diff", "--patch-file", repo.file("series.mbox"), "--json"});
    auto fromDiffs = vrnl({"diff", "--patch-file", repo.file("plain.diff"), "--json"});
    ASSERT_TRUE(fromMailbox->success()) << fromMailbox->errorOutput();
    ASSERT_TRUE(fromDiffs->success());
    EXPECT_NE(fromDiffs->output().find("\"b.txt\""), std::string::npos);
    EXPECT_EQ(fromMailbox->output(), fromDiffs->output());
}

TEST(VrnlDiff, OptionsAndErrors) {
    PatchFixture fixture;
    auto limited = vrnl({"diff", "--patch-file", fixture.patchPath, "--max-files", "1", "--json"});
    ASSERT_TRUE(limited->success());
    auto json = vn::parseJson(limited->output());
    ASSERT_TRUE(json);
    EXPECT_EQ((*json->record())["fileEntries"].array()->size(), 1u);

    auto standardInput = vn::test::runProgram(
        fixture.repo.path(), "sh",
        {"-c", "\"$0\" diff --patch-file - < \"$1\"", VARNEL_TEST_VRNL, fixture.patchPath});
    ASSERT_TRUE(standardInput->success()) << standardInput->errorOutput();
    EXPECT_EQ(standardInput->output(), vrnl({"diff", "--patch-file", fixture.patchPath})->output());

    struct Case {
        std::vector<std::string> args;
        int64_t exitCode;
        std::string message;
    };
    const std::vector<Case> cases = {
        {{"diff"}, 1, "not in a Git working copy"},
        {{"diff", "--patch-file"}, 2, "needs a value"},
        {{"diff", "--patch-file", fixture.patchPath, "--max-files", "many"}, 2, "--max-files"},
        {{"diff", "--patch-file", fixture.patchPath, "extra"}, 2, "no other arguments"},
        {{"diff", "--patch-file", fixture.repo.file("nothing-here.patch")}, 1, "cannot read"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        auto task = vrnl(c.args);
        EXPECT_EQ(task->exitCode(), c.exitCode);
        EXPECT_NE(task->errorOutput().find(c.message), std::string::npos) << task->errorOutput();
        EXPECT_EQ(task->output(), "");
    }
}

// ---- Diffs of a repository ---------------------------------------------------------------------

std::shared_ptr<VNTask> vrnlIn(const std::string& folder, const std::vector<std::string>& args) {
    auto task = VNTask::taskWithCommand(VARNEL_TEST_VRNL, folder, args);
    task->run();
    return task;
}

std::string changedLines(const std::string& text, std::vector<int> numbers) {
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

// The files of `vrnl diff --json` output, by name, after checking every numbered line against
// the old and new content given for its file.
struct JsonDiff {
    std::vector<std::string> names;
    std::vector<vn::Record> files;

    explicit JsonDiff(const std::string& output) {
        auto json = vn::parseJson(output);
        if (!json || !json->record() || !(*json->record())["fileEntries"].array()) {
            ADD_FAILURE() << "not a diff model: " << output.substr(0, 500);
            return;
        }
        for (const vn::Value& file : *(*json->record())["fileEntries"].array()) {
            files.push_back(*file.record());
            names.push_back(file.record()->string("filename"));
        }
    }
    const vn::Record* file(const std::string& name) const {
        for (const vn::Record& file : files) {
            if (file.string("filename") == name) {
                return &file;
            }
        }
        return nullptr;
    }
    // How many line numbers agree with the two contents; fails the test where one does not.
    int linesAgree(const std::string& name, const std::string& oldText,
                   const std::string& newText) const {
        const vn::Record* entry = file(name);
        if (!entry) {
            ADD_FAILURE() << name << " is not in the diff";
            return 0;
        }
        std::vector<std::string> oldLines = linesOf(oldText), newLines = linesOf(newText);
        int checked = 0;
        for (const vn::Value& hunk : *(*entry)["hunks"].array()) {
            for (const vn::Value& value : *(*hunk.record())["hunkLines"].array()) {
                const vn::Record& line = *value.record();
                for (auto [key, lines] :
                     {std::pair{"beforelineno", &oldLines}, std::pair{"afterlineno", &newLines}}) {
                    if (line.string(key).empty()) {
                        continue;
                    }
                    std::size_t number = std::stoul(line.string(key));
                    if (number < 1 || number > lines->size()) {
                        ADD_FAILURE() << key << " " << number << " is beyond the content";
                        continue;
                    }
                    EXPECT_EQ(line.string("line"), (*lines)[number - 1]) << key << " " << number;
                    ++checked;
                }
            }
        }
        return checked;
    }
};

// A repository with a commit history and changes in the index and the working copy.
struct RepositoryFixture {
    GitRepository repo;
    std::string name = "sub dir/\xC3\xA4rger.txt";
    std::string v1 = numberedLines(1, 30);
    std::string v2 = changedLines(v1, {4});
    std::string v3 = changedLines(v2, {26});
    std::string staged = changedLines(v3, {10});
    std::string working = changedLines(staged, {18});
    std::string first, second, third;

    RepositoryFixture() {
        first = repo.commitFile(name, v1, "one");
        second = repo.commitFile(name, v2, "two");
        third = repo.commitFile(name, v3, "three");
        repo.commitFile("other.txt", "other\n", "other");
        repo.write(name, staged);
        repo.git({"add", "-A"});
        repo.write(name, working);
        repo.write("other.txt", "other   \n");
    }
};

TEST(VrnlDiff, EachKindOfDiffOfARepository) {
    RepositoryFixture f;
    const std::string& path = f.repo.path();
    struct Case {
        const char* name;
        std::vector<std::string> args;
        std::vector<std::string> files;
        std::string oldText, newText;
    };
    const std::vector<Case> cases = {
        {"unstaged", {path}, {"other.txt", f.name}, f.staged, f.working},
        {"unstaged without whitespace",
         {path, "--ignore-whitespace"},
         {f.name},
         f.staged,
         f.working},
        {"staged", {path, "--staged"}, {f.name}, f.v3, f.staged},
        {"one revision", {path, "--rev", f.second}, {f.name}, f.v1, f.v2},
        {"a range", {path, "--range", f.first, f.third}, {f.name}, f.v1, f.v3},
        {"a range with two dots",
         {path, "--range", f.third + ".." + f.first},
         {f.name},
         f.v3,
         f.v1},
        {"a range given before the path",
         {"--range", f.first, f.third, path},
         {f.name},
         f.v1,
         f.v3},
        {"one file of the path", {path, f.name}, {f.name}, f.staged, f.working},
        {"more context", {path, "--context", "12", "--staged"}, {f.name}, f.v3, f.staged},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::string> args = {"diff", "--json"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        auto task = vrnl(args);
        ASSERT_TRUE(task->success()) << task->errorOutput();
        JsonDiff diff(task->output());
        EXPECT_EQ(diff.names, c.files);
        EXPECT_GT(diff.linesAgree(f.name, c.oldText, c.newText), 0);
    }

    // Context: twelve lines before the staged change at line 10 reach the top of the file.
    JsonDiff wide(vrnl({"diff", "--json", path, "--staged", "--context", "12"})->output());
    const vn::Record* file = wide.file(f.name);
    ASSERT_TRUE(file);
    const vn::Record& hunk = *(*(*file)["hunks"].array())[0].record();
    EXPECT_EQ(hunk.integer("startLineBefore"), 1);
    EXPECT_EQ(hunk.integer("endLineBefore"), 22);
}

TEST(VrnlDiff, FilesAreNamedFromTheCurrentFolder) {
    RepositoryFixture f;
    std::string sub = f.repo.file("sub dir");
    // Inside the working copy a folder is a file list, not another repository.
    auto fromRoot = vrnlIn(f.repo.path(), {"diff", "--json", "sub dir"});
    auto fromSub = vrnlIn(sub, {"diff", "--json", "\xC3\xA4rger.txt"});
    auto wholeFromSub = vrnlIn(sub, {"diff", "--json"});
    for (const auto& task : {fromRoot, fromSub, wholeFromSub}) {
        ASSERT_TRUE(task->success()) << task->errorOutput();
    }
    EXPECT_EQ(JsonDiff(fromRoot->output()).names, std::vector<std::string>{f.name});
    EXPECT_EQ(fromSub->output(), fromRoot->output());
    EXPECT_EQ(JsonDiff(wholeFromSub->output()).names,
              (std::vector<std::string>{"other.txt", f.name}));

    // A symbolic link is a file of its own, not the file it points to.
    f.repo.write("target.txt", "one\n");
    std::filesystem::create_symlink("target.txt", f.repo.file("link"));
    f.repo.git({"add", "target.txt", "link"});
    f.repo.git({"commit", "-q", "-m", "link"});
    std::filesystem::remove(f.repo.file("link"));
    std::filesystem::create_symlink(f.name, f.repo.file("link"));
    auto link = vrnlIn(f.repo.path(), {"diff", "--json", "link"});
    ASSERT_TRUE(link->success()) << link->errorOutput();
    EXPECT_EQ(JsonDiff(link->output()).names, std::vector<std::string>{"link"});

    auto outside = vrnlIn(sub, {"diff", "../../elsewhere.txt"});
    EXPECT_EQ(outside->exitCode(), 1);
    EXPECT_NE(outside->errorOutput().find("outside the working copy"), std::string::npos);
}

TEST(VrnlDiff, RepositoryChangesForPeople) {
    GitRepository repo;
    std::string story = numberedLines(1, 12);
    repo.write("story.txt", story);
    repo.write("run.sh", "#!/bin/sh\n");
    repo.write("image.png", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16));
    repo.write("model.bin", vn::test::lfsPointer('1', 100));
    repo.git({"add", "."});
    repo.git({"commit", "-q", "-m", "base"});
    repo.git({"mv", "story.txt", "the story.txt"});
    repo.write("the story.txt", changedLines(story, {7}));
    std::filesystem::permissions(repo.file("run.sh"), std::filesystem::perms::owner_exec,
                                 std::filesystem::perm_options::add);
    repo.write("image.png", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\x02", 18));
    repo.write("model.bin", vn::test::lfsPointer('3', 300));
    repo.git({"add", "-A"});

    auto task = vrnl({"diff", repo.path(), "--staged", "--context", "1"});
    ASSERT_TRUE(task->success()) << task->errorOutput();
    std::vector<std::string> lines = linesOf(task->output());
    for (const std::string& expected : {
             std::string("modified  image.png"),
             std::string("  binary file, no lines shown"),
             std::string("modified  model.bin  +2 -2"),
             "  Git LFS file " + std::string(12, '1') + " -> " + std::string(12, '3'),
             std::string("modified  run.sh"),
             std::string("  mode 100644 -> 100755"),
             std::string("renamed  story.txt -> the story.txt  +1 -1"),
             std::string("@@ -6,3 +6,3 @@ hunk 1"),
             std::string("1 | 6 6  line 6"),
             std::string("2 | 7   -line 7"),
             std::string("3 |   7 +changed 7"),
             std::string("4 | 8 8  line 8"),
         }) {
        EXPECT_NE(std::find(lines.begin(), lines.end(), expected), lines.end())
            << "missing \"" << expected << "\" in\n"
            << task->output();
    }
    EXPECT_EQ(task->output().find("\x1b["), std::string::npos) << "no colour without a terminal";
}

// Single quotes for sh.
std::string quoted(const std::string& word) {
    std::string out = "'";
    for (char c : word) {
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return out + "'";
}

TEST(VrnlDiff, ColoursOnATerminal) {
    auto script = vn::fs::findExecutable("script");
    if (!script) {
        GTEST_SKIP() << "no script(1) to give vrnl a terminal";
    }
    GitRepository repo;
    std::string story = numberedLines(1, 12);
    repo.commitFile("story.txt", story, "base");
    repo.write("story.txt", changedLines(story, {7}));
    std::string command = "env -u NO_COLOR TERM=xterm " + quoted(VARNEL_TEST_VRNL) + " diff " +
                          quoted(repo.path()) + " --context 1";
    auto task = vn::test::runProgram(repo.path(), *script, {"-qec", command, "/dev/null"});
    ASSERT_TRUE(task->success()) << task->errorOutput() << task->output();
    const std::string& out = task->output();
    for (const std::string& expected : {
             std::string("\x1b[36m@@ -6,3 +6,3 @@\x1b[0m\x1b[2m hunk 1\x1b[0m"),
             std::string("\x1b[2m1 | 6 6\x1b[0m  line 6"),
             std::string("\x1b[2m2 | 7  \x1b[0m \x1b[31m-line 7\x1b[0m"),
             std::string("\x1b[2m3 |   7\x1b[0m \x1b[32m+changed 7\x1b[0m"),
         }) {
        EXPECT_NE(out.find(expected), std::string::npos)
            << "missing " << ::testing::PrintToString(expected) << " in "
            << ::testing::PrintToString(out);
    }
}

TEST(VrnlDiff, RepositoryDiffErrors) {
    RepositoryFixture f;
    const std::string& path = f.repo.path();
    struct Case {
        std::vector<std::string> args;
        int64_t exitCode;
        std::string message;
    };
    const std::vector<Case> cases = {
        {{"diff", path, "--staged", "--rev", "HEAD"}, 2, "exclude each other"},
        {{"diff", path, "--rev", "HEAD", "--range", "HEAD~1", "HEAD"}, 2, "exclude each other"},
        {{"diff", path, "--range", "HEAD"}, 2, "two revisions"},
        {{"diff", path, "--range", "HEAD.."}, 2, "two revisions"},
        {{"diff", path, "--context", "many"}, 2, "--context needs a number"},
        {{"diff", path, "--context", "-1"}, 2, "--context needs a number"},
        {{"diff", path, "--unknown"}, 2, "unknown option"},
        {{"diff", "--patch-file", f.repo.file("x.patch"), "--staged"}, 2, "without diff options"},
        {{"diff", path, "--rev", "no-such-revision"}, 1, "no-such-revision"},
        {{"diff", vn::test::sandboxPath()}, 1, "not in a Git working copy"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        auto task = vrnl(c.args);
        EXPECT_EQ(task->exitCode(), c.exitCode);
        EXPECT_NE(task->errorOutput().find(c.message), std::string::npos) << task->errorOutput();
        EXPECT_EQ(task->output(), "");
    }
}

}  // namespace
