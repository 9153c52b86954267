// The Git backend never lets a revision, name or path be read as an option by git, and takes
// paths literally.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>

#include "git/VNRepoHandlerGit.h"
#include "handler/GitSettings.h"
#include "handler/VNTask.h"
#include "model/VNDiffModel.h"
#include "model/VNLogDescriptionEntry.h"
#include "platform/FileSystem.h"
#include "platform/UserInterface.h"
#include "support/HistoryFixtures.h"

namespace {

using vn::test::chomp;
using vn::test::gitIn;
using vn::test::GitRepository;
using vn::test::TempDir;

// No alert reaches a person while the failures below are reported.
struct SilentUserInterface : vn::UserInterface {
    int showAlert(const vn::Alert&) override { return 0; }
};

TEST(VNRepoHandlerGitImmunity, RevisionsShapedLikeOptionsWriteNoFile) {
    auto previousInterface = vn::UserInterface::current();
    vn::UserInterface::install(std::make_shared<SilentUserInterface>());
    GitRepository repo;
    commitAt(repo, "a.txt", "one\n", "first", "2024-01-01T00:00:00Z");
    commitAt(repo, "a.txt", "two\n", "second", "2024-01-02T00:00:00Z");
    repo.write("a.txt", "stashed\n");
    repo.git({"stash", "-q"});
    auto handler = std::make_shared<VNRepoHandlerGit>();
    const std::string path = repo.path();
    TempDir victimDir("varnel-victim");
    const std::string victim = victimDir.file("written");
    const std::string output = "--output=" + victim;
    auto runs = [](std::shared_ptr<VNTask> task) { return [task] { task->run(); }; };

    const std::vector<std::pair<std::string, std::function<void()>>> cases = {
        {"staged against a base", runs(handler->fileDiffAgainstBaseTask(path, {}, output, 0, 3))},
        {"one revision", runs(handler->revisionFileDiffTask(path, output, {}, 0, 3))},
        {"range from", runs(handler->revisionRangeFileDiffTask(path, output, "HEAD", {}, 0, 3))},
        {"range to", runs(handler->revisionRangeFileDiffTask(path, "HEAD", output, {}, 0, 3))},
        {"revisions", runs(handler->revisionsFileDiffTask(path, {"HEAD", output}, {}, 0, 3))},
        {"stash", runs(handler->stashDiffTask(path, output))},
        {"details", [&] { EXPECT_TRUE(handler->revisionDetails(path, output).empty()); }},
        {"file changes", [&] { EXPECT_TRUE(handler->revisionFileChanges(path, output).empty()); }},
        {"range changes",
         [&] { EXPECT_TRUE(handler->revisionRangeFileChanges(path, "HEAD", output).empty()); }},
        {"messages", [&] { handler->fullCommitMessages(path, {output}); }},
        {"parents", [&] { EXPECT_TRUE(handler->parentRevisions(path, output).empty()); }},
        {"commit of a label", [&] { EXPECT_FALSE(handler->getCommitSHA(path, output)); }},
        {"blame", [&] { EXPECT_TRUE(handler->blame(path, "a.txt", output).empty()); }},
        {"export",
         [&] {
             EXPECT_FALSE(handler->exportFileContentAtRevision(path, "a.txt", output,
                                                               victimDir.file("export")));
         }},
        {"history from a revision",
         [&] {
             EXPECT_TRUE(handler->logRevisions(path, {"a.txt"}, output, 10, std::nullopt, 0, false)
                             .empty());
         }},
        {"history of a branch",
         [&] { EXPECT_TRUE(handler->logRevisions(path, "", 0, 10, output, 0).empty()); }},
        {"search by hash",
         runs(handler->searchLogTask(path, output, VNRepoHandlerGit::SearchHash, vn::Value::Date{},
                                     std::chrono::system_clock::now()))},
        {"search by content",
         runs(handler->searchLogTask(path, output, VNRepoHandlerGit::SearchContent,
                                     vn::Value::Date{}, std::chrono::system_clock::now()))},
        {"remote", [&] { handler->remoteInfo(path, output, false); }},
        {"repository check", [&] { EXPECT_FALSE(handler->validatePathOrURL(output, nullptr)); }},
    };
    for (const auto& [name, run] : cases) {
        SCOPED_TRACE(name);
        run();
        EXPECT_FALSE(vn::fs::exists(victim));
        std::filesystem::remove(victim);
    }
    vn::UserInterface::install(previousInterface);
}

TEST(VNRepoHandlerGitImmunity, PathsArePassedLiterally) {
    GitRepository repo;
    const std::vector<std::string> names = {"glob[ab]*?.txt", "globab1.txt",   ":(icase)magic.txt",
                                            "MAGIC.txt",      ":!exclude.txt", "exclude.txt"};
    for (const std::string& name : names) {
        repo.write(name, name + "\n");
    }
    repo.git({"add", "-A"});
    repo.git({"commit", "-q", "-m", "all"});
    for (const std::string& name : names) {
        repo.write(name, name + " changed\n");
        repo.git({"--literal-pathspecs", "add", "--", name});
        repo.git({"commit", "-q", "-m", "change " + name});
    }
    for (const std::string& name : names) {
        repo.write(name, name + " changed again\n");
    }
    auto handler = std::make_shared<VNRepoHandlerGit>();
    for (const std::string& name : {std::string("glob[ab]*?.txt"), std::string(":(icase)magic.txt"),
                                    std::string(":!exclude.txt")}) {
        SCOPED_TRACE(name);
        auto history = handler->logRevisions(repo.path(), {name}, 0, false);
        ASSERT_EQ(history.size(), 2u);
        auto entry = history[0]["descriptionentry"].objectAs<VNLogDescriptionEntry>();
        ASSERT_TRUE(entry);
        EXPECT_EQ(entry->description(), "change " + name);
        auto model = handler->fileDiffAgainstBase(repo.path(), name, 3);
        ASSERT_TRUE(model);
        ASSERT_EQ(model->fileEntries().size(), 1u);
        EXPECT_EQ(model->fileEntries()[0]->filename(), name);
        auto task = handler->fileDiffAgainstBaseTask(repo.path(), {name}, 0, 3);
        ASSERT_TRUE(task->run()) << task->errorOutput();
        EXPECT_NE(task->output().find("+" + name + " changed again"), std::string::npos);
        EXPECT_EQ(std::count(task->output().begin(), task->output().end(), '@'), 4)
            << "one file, one hunk: " << task->output();
    }
}

}  // namespace
