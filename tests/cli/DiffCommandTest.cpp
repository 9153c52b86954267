#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "general/Json.h"
#include "general/Record.h"
#include "general/VNTask.h"
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

std::string pointer(char digit, int size) {
    return "version https://git-lfs.github.com/spec/v1\noid sha256:" + std::string(64, digit) +
           "\nsize " + std::to_string(size) + "\n";
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
        repo.write("model.bin", pointer('1', 100));
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
        repo.write("model.bin", pointer('2', 200));
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
             std::string("@@ -3,7 +3,7 @@"),
             std::string("3 3  line 3"),
             std::string("6   -line 6"),
             std::string("  6 +changed"),
             std::string("9 9  line 9"),
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
        {{"diff"}, 2, "--patch-file"},
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

}  // namespace
