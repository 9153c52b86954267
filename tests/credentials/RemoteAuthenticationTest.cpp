#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "git/VNRepoHandlerGit.h"
#include "platform/CredentialStore.h"
#include "platform/FileCredentialStore.h"
#include "platform/FileSystem.h"
#include "support/RemoteFixtures.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::GitRepository;
using vn::test::ScopedEnvironment;
using vn::test::TempDir;

std::size_t lineCount(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

// The whole path of a password over HTTP: git asks the credential helper, the helper asks the
// prompt companion (driven by an answer file), git files what worked, and a password the server
// refuses is dropped and asked for again.
TEST(RemoteAuthentication, HttpPushPromptsOnceStoresAndAsksAgainAfterARefusal) {
    vn::test::GitHttpServer server("alice", "wonder land");
    if (!server.running()) {
        GTEST_SKIP() << "the test HTTP server did not start";
    }
    TempDir scratch("varnel-auth");
    vn::test::runProgram(server.root(), "git", {"init", "-q", "--bare", "remote.git"});
    std::string url = server.url("remote.git");
    // The companions find the same file: the store's default place under this data folder.
    ScopedEnvironment data("XDG_DATA_HOME", scratch.file("data"));
    auto shared = std::make_shared<vn::FileCredentialStore>(vn::FileCredentialStore::defaultPath());
    vn::CredentialStore::setShared(shared);
    std::string answers = scratch.file("answers");
    ScopedEnvironment answerFile("VARNEL_LOGIN_ANSWER_FILE", answers);

    GitRepository work;
    work.commitFile("a.txt", "1\n", "one");
    work.git({"remote", "add", "origin", url});
    auto handler = std::make_shared<VNRepoHandlerGit>();
    auto push = [&] {
        auto task = handler->pushTask(work.path(), "origin");
        EXPECT_FALSE(task->askpassEnvironment()->contains("SSH_ASKPASS"))
            << "http goes through the credential helper";
        bool ok = task->run();
        EXPECT_EQ(task->errorOutput().find("wonder land"), std::string::npos)
            << "no password in git's messages";
        return std::make_pair(ok, task);
    };

    // First push: asked for the user and the password, which git then files.
    vn::test::writeFile(answers, "alice\nwonder land\n");
    auto [first, firstTask] = push();
    ASSERT_TRUE(first) << firstTask->errorOutput();
    std::string hostAndPort = url.substr(7, url.rfind('/') - 7);
    EXPECT_EQ(vn::test::readFile(answers + ".asked"), "Username for 'http://" + hostAndPort +
                                                          "': \nPassword for 'http://alice@" +
                                                          hostAndPort + "': \n");
    EXPECT_EQ(shared->passwordForURL(url, "alice"), "wonder land");

    // Second push: the stored password, nobody asked.
    work.commitFile("a.txt", "2\n", "two");
    vn::test::writeFile(answers, "");
    auto [second, secondTask] = push();
    ASSERT_TRUE(second) << secondTask->errorOutput();
    EXPECT_EQ(lineCount(vn::test::readFile(answers + ".asked")), 2u) << "no new question";
    EXPECT_EQ(secondTask->authRetryCount(), 0);

    // A wrong stored password: refused, dropped, asked again, and the right one filed.
    ASSERT_TRUE(shared->setPasswordForURL(url, "alice", "stale"));
    work.commitFile("a.txt", "3\n", "three");
    vn::test::writeFile(answers, "alice\nwonder land\n");
    auto [third, thirdTask] = push();
    ASSERT_TRUE(third) << thirdTask->errorOutput();
    EXPECT_EQ(thirdTask->authRetryCount(), 1);
    EXPECT_EQ(lineCount(vn::test::readFile(answers + ".asked")), 4u);
    EXPECT_EQ(shared->passwordForURL(url, "alice"), "wonder land");
    EXPECT_EQ(
        vn::test::runProgram(server.root() + "/remote.git", "git", {"rev-list", "--count", "main"})
            ->output(),
        "3\n");

    // Nobody to ask (a background check): the command fails without asking or re-running.
    shared->removePasswordForURL(url);
    vn::test::writeFile(answers, "alice\nwonder land\n");
    auto fetch = handler->fetchTasks(work.path(), std::string("origin"), false, false);
    ASSERT_EQ(fetch.size(), 1u);
    fetch[0]->setSuppressUserPrompts(true);
    EXPECT_FALSE(fetch[0]->run());
    EXPECT_EQ(fetch[0]->authRetryCount(), 0);
    EXPECT_EQ(lineCount(vn::test::readFile(answers + ".asked")), 4u);

    // The user cancels: one failure, no re-run.
    vn::test::writeFile(answers, "");
    auto cancelled = handler->pushTask(work.path(), "origin");
    EXPECT_FALSE(cancelled->run());
    EXPECT_NE(cancelled->errorOutput().find("User cancelled password prompt."), std::string::npos);
    EXPECT_EQ(cancelled->authRetryCount(), 0);

    // The password is in the store and nowhere else: not in a log, nor in a file beside it.
    std::string storePath = vn::FileCredentialStore::defaultPath();
    for (const std::string& root : {vn::test::sandboxPath(), scratch.path()}) {
        for (const auto& file : std::filesystem::recursive_directory_iterator(root)) {
            if (file.is_regular_file() && file.path() != storePath) {
                EXPECT_EQ(vn::test::readFile(file.path()).find("wonder land"), std::string::npos)
                    << file.path();
            }
        }
    }
    std::string stored = vn::test::readFile(storePath);
    vn::CredentialStore::setShared(nullptr);
    EXPECT_EQ(stored.find("stale"), std::string::npos);
}

// A git too old for credential helpers asks through the prompt companion itself (SSH_ASKPASS),
// which answers from the store, files what the user typed, and asks again once the remote has
// refused a stored password.
TEST(RemoteAuthentication, ThePromptCompanionStoresAndForgetsPasswordsWithoutTheHelper) {
    vn::test::GitHttpServer server("bob", "pass word");
    if (!server.running()) {
        GTEST_SKIP() << "the test HTTP server did not start";
    }
    TempDir scratch("varnel-askpass-http");
    vn::test::runProgram(server.root(), "git", {"init", "-q", "--bare", "remote.git"});
    std::string url = server.url("remote.git");
    url.insert(7, "bob@");
    ScopedEnvironment data("XDG_DATA_HOME", scratch.file("data"));
    auto shared = std::make_shared<vn::FileCredentialStore>(vn::FileCredentialStore::defaultPath());
    vn::CredentialStore::setShared(shared);
    std::string answers = scratch.file("answers");
    ScopedEnvironment answerFile("VARNEL_LOGIN_ANSWER_FILE", answers);

    GitRepository work;
    work.git({"remote", "add", "origin", url});
    auto handler = std::make_shared<VNRepoHandlerGit>();
    handler->setDetectedGitVersion("1.7.9");
    struct Step {
        const char* name;
        std::string answers;
        const char* storedBefore;
        std::size_t questionsAfter;
        int64_t retries;
    };
    const std::vector<Step> steps = {
        {"asked and filed", "pass word\n", nullptr, 1, 0},
        {"answered from the store", "", nullptr, 1, 0},
        {"a refused password is dropped and asked again", "pass word\n", "stale", 2, 1},
    };
    int n = 0;
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        work.commitFile("a.txt", std::to_string(++n) + "\n", "commit");
        vn::test::writeFile(answers, step.answers);
        if (step.storedBefore) {
            shared->setPasswordForURL(url, "bob", step.storedBefore);
        }
        auto task = handler->pushTask(work.path(), "origin");
        ASSERT_TRUE(task->askpassEnvironment()->contains("SSH_ASKPASS"));
        EXPECT_TRUE(task->run()) << task->errorOutput();
        EXPECT_EQ(task->authRetryCount(), step.retries);
        EXPECT_EQ(lineCount(vn::test::readFile(answers + ".asked")), step.questionsAfter);
        EXPECT_EQ(shared->passwordForURL(url, "bob"), "pass word");
    }
    vn::CredentialStore::setShared(nullptr);
}

}  // namespace
