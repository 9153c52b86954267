#include <gtest/gtest.h>

#include <filesystem>

#include "base/Json.h"
#include "base/Record.h"
#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "platform/Preferences.h"
#include "support/GitRunCounter.h"
#include "support/StatusFixtures.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::GitRepository;
using vn::test::TempDir;

std::shared_ptr<VNTask> vrnlIn(const std::string& folder, const std::vector<std::string>& args) {
    auto task = VNTask::taskWithCommand(VARNEL_TEST_VRNL, folder, args);
    task->run();
    return task;
}

// The lines under a group's title, up to the next title or the end.
std::vector<std::string> group(const std::string& output, const std::string& title) {
    std::vector<std::string> lines;
    std::size_t start = output.find("\n" + title + ":\n");
    if (start == std::string::npos) {
        return lines;
    }
    start += title.size() + 3;
    while (start < output.size() && output.compare(start, 2, "  ") == 0) {
        std::size_t end = output.find('\n', start);
        lines.push_back(output.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

// Staged, unstaged, renamed and untracked files on branch main.
struct ChangedRepository {
    GitRepository repo;
    ChangedRepository() {
        repo.write("both.txt", "1\n");
        repo.write("old name.txt", "old\n");
        repo.write("gone.txt", "gone\n");
        repo.write("dir/tree.txt", "t\n");
        repo.git({"add", "-A"});
        repo.git({"commit", "-q", "-m", "one"});
        repo.write("both.txt", "2\n");
        repo.git({"add", "both.txt"});
        repo.write("both.txt", "3\n");
        repo.git({"mv", "old name.txt", "new name.txt"});
        repo.git({"rm", "-q", "gone.txt"});
        repo.write("dir/tree.txt", "changed\n");
        repo.write("added.txt", "a\n");
        repo.git({"add", "added.txt"});
        repo.write("untracked.txt", "u\n");
    }
};

TEST(VrnlStatus, SummaryLineAndStagedAndUnstagedGroups) {
    ChangedRepository fixture;
    auto task = vrnlIn(fixture.repo.path(), {"status"});
    ASSERT_EQ(task->exitCode(), 0) << task->errorOutput();
    const std::string& out = task->output();
    EXPECT_EQ(out.substr(0, out.find('\n')),
              "On branch main: 3 modified, 1 added, 1 removed, 1 untracked");
    EXPECT_EQ(group(out, "Staged"),
              (std::vector<std::string>{"  A  added.txt", "  M  both.txt", "  D  gone.txt",
                                        "  R  new name.txt  (from old name.txt)"}));
    EXPECT_EQ(
        group(out, "Unstaged"),
        (std::vector<std::string>{"  M  both.txt", "  M  dir/tree.txt", "  ?  untracked.txt"}));
    EXPECT_TRUE(group(out, "Unmerged").empty());
    EXPECT_TRUE(group(out, "Clean").empty());

    // Without a subcommand, from a folder inside the working copy, the same summary line (the
    // history follows it).
    auto bare = vrnlIn(fixture.repo.file("dir"), {});
    EXPECT_EQ(bare->exitCode(), 0) << bare->errorOutput();
    EXPECT_EQ(bare->output().substr(0, bare->output().find('\n')), out.substr(0, out.find('\n')));
    auto named = vrnlIn(vn::test::sandboxPath(), {"status", fixture.repo.file("dir/tree.txt")});
    EXPECT_EQ(named->output(), out) << "a file names the working copy that holds it";
}

// The summary and the file list come from one git status, whatever the output form.
TEST(VrnlStatus, RunsGitStatusOnce) {
    ChangedRepository fixture;
    vn::test::GitRunCounter counter;
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"status"}, std::vector<std::string>{"status", "--json"},
          std::vector<std::string>{"status", "--mask", "1023"}}) {
        SCOPED_TRACE(args.back());
        counter.clear();
        auto task = vrnlIn(fixture.repo.path(), args);
        EXPECT_EQ(task->exitCode(), 0) << task->errorOutput();
        EXPECT_EQ(counter.runsWith(" status "), 1) << counter.runs();
    }
}

TEST(VrnlStatus, JsonCarriesTheEngineRecords) {
    ChangedRepository fixture;
    auto task = vrnlIn(fixture.repo.path(), {"status", "--json", "--mask", "767"});
    ASSERT_EQ(task->exitCode(), 0) << task->errorOutput();
    auto report = vn::parseJson(task->output());
    ASSERT_TRUE(report && report->record()) << task->output();
    const vn::Record& root = *report->record();
    EXPECT_EQ(root.string("workingCopy"), fixture.repo.path());
    const vn::Record* summary = root["summary"].record();
    ASSERT_TRUE(summary);
    EXPECT_EQ(summary->string("branch"), "main");
    EXPECT_EQ(summary->integer("numfilesmodified"), 3);
    ASSERT_TRUE(root["files"].array());
    std::vector<vn::Record> files;
    for (const vn::Value& file : *root["files"].array()) {
        ASSERT_TRUE(file.record());
        files.push_back(*file.record());
    }
    auto byPath = vn::test::statusRecordsByPath(files);
    ASSERT_TRUE(byPath.count("new name.txt"));
    const vn::Record& renamed = byPath.at("new name.txt");
    EXPECT_EQ(renamed.integer("status"), 512);
    EXPECT_EQ(renamed.integer("indexStatus"), 512);
    EXPECT_EQ(renamed.integer("treeStatus"), 1);
    EXPECT_EQ(renamed.string("previousName"), "old name.txt");
    ASSERT_TRUE(byPath.count("dir/tree.txt"));
    EXPECT_EQ(byPath.at("dir/tree.txt").string("path"), "dir");
    // 767 adds the clean file list: nothing is clean in this working copy, so no extra rows.
    EXPECT_EQ(files.size(), 6u);
    // An option alone goes to the overview, which carries the same summary record.
    auto bare = vrnlIn(fixture.repo.path(), {"--json"});
    ASSERT_EQ(bare->exitCode(), 0) << bare->errorOutput();
    auto bareReport = vn::parseJson(bare->output());
    ASSERT_TRUE(bareReport && bareReport->record());
    EXPECT_EQ((*bareReport->record())["summary"], (*report->record())["summary"]);
    EXPECT_TRUE((*bareReport->record())["history"].record());

    auto cleanOnly = vrnlIn(fixture.repo.path(), {"status", "--mask=1"});
    EXPECT_TRUE(group(cleanOnly->output(), "Clean").empty());
    fixture.repo.git({"commit", "-q", "-m", "two"});
    cleanOnly = vrnlIn(fixture.repo.path(), {"status", "--mask=1"});
    EXPECT_EQ(group(cleanOnly->output(), "Clean"),
              (std::vector<std::string>{"     added.txt", "     new name.txt"}));
}

TEST(VrnlStatus, MergeAndCleanStates) {
    GitRepository repo;
    repo.commitFile("keep.txt", "k\n", "keep");
    auto clean = vrnlIn(repo.path(), {"status"});
    EXPECT_EQ(clean->output(), "On branch main: clean\n");

    vn::test::stopMergeWithEveryConflictKind(repo);
    auto merging = vrnlIn(repo.path(), {"status"});
    ASSERT_EQ(merging->exitCode(), 0) << merging->errorOutput();
    EXPECT_EQ(merging->output().substr(0, merging->output().find('\n')),
              "On branch main, merging: 7 unresolved");
    EXPECT_EQ(group(merging->output(), "Unmerged").size(), 7u);
    EXPECT_TRUE(group(merging->output(), "Staged").empty());
}

TEST(VrnlStatus, OutsideARepositoryAndBadArguments) {
    TempDir plain("varnel-plain");
    auto outside = vrnlIn(plain.path(), {});
    EXPECT_EQ(outside->exitCode(), 1);
    EXPECT_NE(outside->errorOutput().find("not inside a repository"), std::string::npos)
        << outside->errorOutput();
    EXPECT_EQ(outside->output(), "");
    EXPECT_EQ(vrnlIn(plain.path(), {"status", "--json"})->exitCode(), 1);

    auto missing = vrnlIn(plain.path(), {"status", plain.path() + "/nowhere"});
    EXPECT_EQ(missing->exitCode(), 1);
    EXPECT_NE(missing->errorOutput().find("nowhere"), std::string::npos);

    GitRepository repo;
    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{"status", "--mask", "lots"},
          {"status", "--mask", "-1"},
          {"status", "--mask"},
          {"status", "a", "b"},
          {"status", "--frobnicate"}}) {
        SCOPED_TRACE(::testing::PrintToString(wrong));
        EXPECT_EQ(vrnlIn(repo.path(), wrong)->exitCode(), 2);
    }
    // doctor still answers by name.
    EXPECT_EQ(vrnlIn(plain.path(), {"doctor"})->exitCode(), 0);
}

}  // namespace
