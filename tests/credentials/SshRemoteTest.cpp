#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>

#include "git/VNRepoHandlerGit.h"
#include "platform/FileSystem.h"
#include "support/RemoteFixtures.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::GitRepository;
using vn::test::readFile;
using vn::test::runProgram;
using vn::test::ScopedEnvironment;
using vn::test::TempDir;
using vn::test::writeFile;

std::string trimmed(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    return text;
}

std::string revParse(const std::string& repository, const std::string& revision) {
    return trimmed(runProgram(repository, "git", {"rev-parse", revision})->output());
}

std::string repeated(const std::string& line, std::size_t times) {
    std::string text;
    for (std::size_t i = 0; i < times; ++i) {
        text += line + "\n";
    }
    return text;
}

// Every remote task over ssh to a private sshd: the key's passphrase reaches ssh through the
// prompt companion on each connection (ssh keeps no agent here and passphrases are never
// filed), a wrong one fails with ssh's own words, and the passphrase turns up nowhere else.
TEST(SshRemote, CloneFetchPullAndPushAskForTheKeysPassphraseOnEachConnection) {
    const std::string passphrase = "open sesame, 7 \\ \"x\"";
    vn::test::SshServer server(passphrase);
    if (!server.running()) {
        GTEST_SKIP() << "no ssh server for the test: " << server.error();
    }
    TempDir scratch("varnel-ssh");
    const std::string bare = server.root() + "/remote.git";
    runProgram(server.root(), "git", {"init", "-q", "--bare", "remote.git"});
    GitRepository elsewhere;
    elsewhere.commitFile("a.txt", "1\n", "one");
    elsewhere.git({"push", "-q", bare, "main"});
    const std::string url = server.url(bare);

    const std::string answers = scratch.file("answers");
    ScopedEnvironment answerFile("VARNEL_LOGIN_ANSWER_FILE", answers);
    const std::string question = "Enter passphrase for key '" + server.folder() + "/client_key': ";
    auto handler = std::make_shared<VNRepoHandlerGit>();
    std::vector<std::shared_ptr<VNTask>> ran;

    // A wrong passphrase: ssh refuses, the task asks once more after the refusal, and stops at
    // the cancel without leaving a folder behind.
    const std::string clone = scratch.file("my clone");
    writeFile(answers, "not the phrase\n");
    auto refused =
        handler->cloneTaskForSource(url, clone, vn::Record{{"clonegetworkingcopy", true}});
    ran.push_back(refused);
    ASSERT_TRUE(refused->askpassEnvironment()->contains("SSH_ASKPASS"));
    EXPECT_FALSE(refused->run());
    EXPECT_NE(refused->errorOutput().find("Permission denied (publickey)"), std::string::npos)
        << refused->errorOutput();
    EXPECT_NE(refused->errorOutput().find("User cancelled password prompt."), std::string::npos);
    EXPECT_EQ(refused->authRetryCount(), 1);
    EXPECT_EQ(readFile(answers + ".asked"), repeated(question, 2));
    EXPECT_FALSE(vn::fs::exists(clone));

    // Then each operation for real, each connection asked once.
    auto advanceRemote = [&](const std::string& contents) {
        elsewhere.git({"fetch", "-q", bare, "main"});
        elsewhere.git({"reset", "-q", "--hard", "FETCH_HEAD"});
        std::string head = elsewhere.commitFile("a.txt", contents, "from elsewhere");
        elsewhere.git({"push", "-q", bare, "main"});
        return head;
    };
    std::string expected;
    struct Step {
        const char* name;
        std::function<VNTaskList()> tasks;
        std::size_t connections;
        std::function<void()> check;
    };
    const std::vector<Step> steps = {
        {"clone",
         [&] {
             return VNTaskList{handler->cloneTaskForSource(
                 url, clone, vn::Record{{"clonegetworkingcopy", true}})};
         },
         1,
         [&] {
             EXPECT_EQ(readFile(clone + "/a.txt"), "1\n");
             EXPECT_EQ(revParse(clone, "HEAD"), revParse(bare, "main"));
         }},
        {"push",
         [&] {
             writeFile(clone + "/b.txt", "mine\n");
             runProgram(clone, "git", {"add", "b.txt"});
             runProgram(clone, "git", {"commit", "-q", "-m", "mine"});
             return VNTaskList{handler->pushTask(clone, "origin")};
         },
         1, [&] { EXPECT_EQ(revParse(bare, "main"), revParse(clone, "HEAD")); }},
        {"fetch with prune and tags",
         [&] {
             expected = advanceRemote("2\n");
             return handler->fetchTasks(clone, std::string("origin"), true, true);
         },
         1,
         [&] {
             EXPECT_EQ(revParse(clone, "refs/remotes/origin/main"), expected);
             EXPECT_NE(revParse(clone, "HEAD"), expected);
         }},
        {"pull: its fetch, the pull, and a submodule update that connects nowhere",
         [&] {
             expected = advanceRemote("3\n");
             return handler->pullTasks(clone, "origin", "main", true, false, false, false, 0);
         },
         2,
         [&] {
             EXPECT_EQ(revParse(clone, "HEAD"), expected);
             EXPECT_EQ(readFile(clone + "/a.txt"), "3\n");
         }},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        std::string asked = readFile(answers + ".asked");
        auto askedBefore = static_cast<std::size_t>(std::count(asked.begin(), asked.end(), '\n'));
        writeFile(answers, repeated(passphrase, step.connections));
        for (const auto& task : step.tasks()) {
            ran.push_back(task);
            ASSERT_TRUE(task->run()) << task->displayCommand() << ": " << task->errorOutput();
            EXPECT_EQ(task->authRetryCount(), 0);
        }
        EXPECT_EQ(readFile(answers), "") << "every connection asked";
        EXPECT_EQ(readFile(answers + ".asked"), repeated(question, askedBefore + step.connections));
        step.check();
    }

    // The passphrase was in the answer file, now empty, and nowhere else: not in what the tools
    // printed, not on a command line, not in a log or a file of the sandbox, the server or the
    // clone.
    for (const auto& task : ran) {
        std::string said = task->output() + task->errorOutput() + task->displayCommand();
        for (const std::string& arg : task->args()) {
            said += arg;
        }
        EXPECT_EQ(said.find(passphrase), std::string::npos) << task->displayCommand();
    }
    for (const std::string& root :
         {vn::test::sandboxPath(), scratch.path(), server.folder(), server.root()}) {
        for (const auto& file : std::filesystem::recursive_directory_iterator(root)) {
            if (file.is_regular_file()) {
                EXPECT_EQ(readFile(file.path()).find(passphrase), std::string::npos) << file.path();
            }
        }
    }
    EXPECT_NE(server.log().find("Accepted publickey"), std::string::npos) << server.log();
}

}  // namespace
