#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "git/VNRepoHandlerGit.h"
#include "platform/CredentialStore.h"
#include "platform/FileCredentialStore.h"
#include "platform/FileSystem.h"
#include "platform/Resources.h"
#include "platform/SecretServiceCredentialStore.h"
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
// refuses is dropped and asked for again. `shared` is the store the companions choose too; with
// XDG_DATA_HOME pointing into `scratch` the file store's default place is known.
void httpPushPromptsOnceStoresAndAsksAgainAfterARefusal(
    const std::shared_ptr<vn::CredentialStore>& shared, const TempDir& scratch) {
    vn::test::GitHttpServer server("alice", "wonder land");
    if (!server.running()) {
        GTEST_SKIP() << "the test HTTP server did not start";
    }
    vn::test::runProgram(server.root(), "git", {"init", "-q", "--bare", "remote.git"});
    std::string url = server.url("remote.git");
    vn::CredentialStore::setShared(shared);
    std::string answers = scratch.file("http-answers");
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

TEST(RemoteAuthentication, HttpPushPromptsOnceStoresAndAsksAgainAfterARefusal) {
    TempDir scratch("varnel-auth");
    ScopedEnvironment data("XDG_DATA_HOME", scratch.file("data"));
    httpPushPromptsOnceStoresAndAsksAgainAfterARefusal(
        std::make_shared<vn::FileCredentialStore>(vn::FileCredentialStore::defaultPath()), scratch);
    EXPECT_TRUE(vn::fs::exists(vn::FileCredentialStore::defaultPath()));
}

// With a Secret Service on the session bus the companions and the engine file passwords there,
// and the file store is never written.
TEST(RemoteAuthentication, TheSecretServiceKeepsThePasswordsWhenTheSessionHasOne) {
    vn::test::SecretServiceSession session;
    if (!session.running()) {
        GTEST_SKIP() << "no Secret Service for the test: " << session.error();
    }
    TempDir scratch("varnel-keyring");
    ScopedEnvironment data("XDG_DATA_HOME", scratch.file("data"));
    ScopedEnvironment chosen("VARNEL_CREDENTIAL_STORE", std::nullopt);
    const std::string fileStore = vn::FileCredentialStore::defaultPath();
    std::string answers = scratch.file("answers");
    ScopedEnvironment answerFile("VARNEL_LOGIN_ANSWER_FILE", answers);

    // git-credential-varnel as git runs it; its input, which holds passwords, goes through the
    // environment rather than a command line.
    std::string helper = vn::test::writeScript(
        scratch.path(), "helper",
        "printf '%s' \"$HELPER_INPUT\" | \"" + vn::Resources::pathFor("bin/git-credential-varnel") +
            "\" \"$1\"\n");
    auto runHelper = [&](const char* action, const std::string& input) {
        ScopedEnvironment in("HELPER_INPUT", input);
        auto task = vn::test::runProgram(scratch.path(), helper, {action});
        EXPECT_TRUE(task->success()) << action << ": " << task->errorOutput();
        return task->output();
    };
    auto lookup = [&](const std::string& service, const std::string& user) {
        auto task = vn::test::runProgram(scratch.path(), "secret-tool",
                                         {"lookup", "service", service, "user", user});
        return task->success() ? std::optional<std::string>(task->output()) : std::nullopt;
    };
    const std::string request = "protocol=https\nhost=example.com:8443\npath=org/r.git\n";
    const std::string service = "https://example.com:8443";
    struct Step {
        const char* name;
        const char* action;
        std::string input;
        std::string answersBefore;
        std::string expectedOutput;
        std::optional<std::string> aliceAfter;
        std::size_t questionsAfter;
    };
    const std::vector<Step> steps = {
        {"get with nothing stored asks, and only git's store files", "get", request,
         "alice\nkey ring \xc3\xa9\n", "username=alice\npassword=key ring \xc3\xa9\n", std::nullopt,
         2},
        {"store files in the keyring", "store",
         request + "username=alice\npassword=key ring \xc3\xa9\n", "", "", "key ring \xc3\xa9", 2},
        {"get answers from the keyring without asking", "get", request, "",
         "username=alice\npassword=key ring \xc3\xa9\n", "key ring \xc3\xa9", 2},
        {"erase of a password that is no longer the stored one keeps it", "erase",
         request + "username=alice\npassword=old\n", "", "", "key ring \xc3\xa9", 2},
        {"erase of the refused password drops it", "erase",
         request + "username=alice\npassword=key ring \xc3\xa9\n", "", "", std::nullopt, 2},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        vn::test::writeFile(answers, step.answersBefore);
        EXPECT_EQ(runHelper(step.action, step.input), step.expectedOutput);
        EXPECT_EQ(lookup(service, "alice"), step.aliceAfter);
        EXPECT_EQ(lineCount(vn::test::readFile(answers + ".asked")), step.questionsAfter);
    }
    // What another program filed under the same schema is found: the keyring is read, not a
    // copy of it.
    auto filed = vn::test::runProgram(
        scratch.path(), "sh",
        {"-c",
         "printf 'bobs' | secret-tool store --label=t xdg:schema org.varnel.RemotePassword "
         "service https://example.com:8443 user bob"});
    ASSERT_TRUE(filed->success()) << filed->errorOutput();
    EXPECT_EQ(runHelper("get", request + "username=bob\n"), "username=bob\npassword=bobs\n");
    EXPECT_FALSE(vn::fs::exists(fileStore)) << "the file store was written";

    auto secretService = vn::SecretServiceCredentialStore::connect();
    ASSERT_TRUE(secretService) << "the engine does not reach the Secret Service";
    httpPushPromptsOnceStoresAndAsksAgainAfterARefusal(secretService, scratch);
    EXPECT_FALSE(vn::fs::exists(fileStore)) << "the file store was written";
    for (const auto& file : std::filesystem::recursive_directory_iterator(session.folder())) {
        if (file.is_regular_file()) {
            std::string text = vn::test::readFile(file.path());
            EXPECT_EQ(text.find("wonder land"), std::string::npos) << file.path();
            EXPECT_EQ(text.find("key ring"), std::string::npos) << file.path();
        }
    }
    secretService.reset();
    vn::SecretServiceCredentialStore::disconnect();
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
