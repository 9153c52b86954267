#include <gtest/gtest.h>

#include "base/Json.h"
#include "base/Record.h"
#include "base/Regex.h"
#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::GitRepository;
using vn::test::TempDir;

std::shared_ptr<VNTask> vrnlIn(const std::string& folder, const std::vector<std::string>& args) {
    auto task = VNTask::taskWithCommand(VARNEL_TEST_VRNL, folder, args);
    task->run();
    return task;
}

TEST(VrnlCheckUrl, ReachableRepositoriesAndToolMessages) {
    GitRepository repo;
    repo.commitFile("a.txt", "a\n", "first");
    TempDir plain("plain");

    auto reachable = vrnlIn(vn::test::sandboxPath(), {"check-url", repo.path()});
    EXPECT_EQ(reachable->exitCode(), 0) << reachable->errorOutput();
    EXPECT_NE(reachable->output().find("reachable"), std::string::npos);

    // A relative path is taken from where vrnl runs.
    auto relative = vrnlIn(vn::fs::deletingLastPathComponent(repo.path()),
                           {"check-url", vn::fs::lastPathComponent(repo.path()), "--json"});
    ASSERT_EQ(relative->exitCode(), 0) << relative->errorOutput();
    auto report = vn::parseJson(relative->output());
    ASSERT_TRUE(report && report->record()) << relative->output();
    EXPECT_TRUE(report->record()->boolean("reachable"));
    EXPECT_GE(report->record()->integer("references"), 2) << "HEAD and main";
    EXPECT_EQ(report->record()->string("url"), repo.path());

    auto notRepo = vrnlIn(vn::test::sandboxPath(), {"check-url", plain.path(), "--json"});
    EXPECT_EQ(notRepo->exitCode(), 1);
    EXPECT_NE(notRepo->errorOutput().find("does not appear to be a git repository"),
              std::string::npos)
        << "git's own message is passed on: " << notRepo->errorOutput();
    auto failed = vn::parseJson(notRepo->output());
    ASSERT_TRUE(failed && failed->record());
    EXPECT_FALSE(failed->record()->boolean("reachable"));
    EXPECT_NE(failed->record()->string("messages").find("does not appear"), std::string::npos);

    for (const std::vector<std::string>& wrong : {std::vector<std::string>{"check-url"},
                                                  {"check-url", "a", "b"},
                                                  {"check-url", "--x", "a"}}) {
        EXPECT_EQ(vrnlIn(vn::test::sandboxPath(), wrong)->exitCode(), 2);
    }
}

TEST(VrnlDoctor, ReportsTheGitVersionAndTheCredentialHelper) {
    auto reference = vn::test::runProgram(vn::test::sandboxPath(), "git", {"--version"});
    auto version = vn::Regex("git version (\\S+)").find(reference->output());
    ASSERT_TRUE(version);
    auto doctor = vrnlIn(vn::test::sandboxPath(), {"doctor", "--json"});
    ASSERT_TRUE(doctor->success()) << doctor->errorOutput();
    auto report = vn::parseJson(doctor->output());
    ASSERT_TRUE(report && report->record());
    EXPECT_EQ(report->record()->string("gitVersion"), version->str(1));
    ASSERT_TRUE(report->record()->contains("usesCredentialHelper"));
    EXPECT_TRUE(report->record()->boolean("usesCredentialHelper")) << "git is newer than 1.7.10";

    auto human = vrnlIn(vn::test::sandboxPath(), {"doctor"});
    EXPECT_NE(human->output().find("Git:         " + version->str(1) + ", credential helper used"),
              std::string::npos)
        << human->output();
}

}  // namespace
