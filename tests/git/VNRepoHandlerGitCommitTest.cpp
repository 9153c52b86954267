#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <iostream>

#include "git/VNRepoHandlerGit.h"
#include "platform/FileSystem.h"
#include "platform/MainLoop.h"
#include "platform/NotificationCenter.h"
#include "support/RemoteFixtures.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::GitRepository;
using vn::test::TempDir;

std::string trimmed(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    return text;
}

// A repository with a.txt and b.txt committed, b.txt changed and staged, a.txt changed only in
// the working copy.
struct CommitRepo {
    GitRepository repo;
    std::shared_ptr<VNRepoHandlerGit> handler = std::make_shared<VNRepoHandlerGit>();
    CommitRepo() {
        repo.write("a.txt", "a\n");
        repo.write("b.txt", "b\n");
        repo.git({"add", "a.txt", "b.txt"});
        repo.git({"commit", "-q", "-m", "base"});
        repo.write("a.txt", "a changed\n");
        repo.write("b.txt", "b changed\n");
        repo.git({"add", "b.txt"});
    }
    std::string head(const char* format) {
        return trimmed(repo.git({"log", "-1", std::string("--format=") + format}));
    }
    std::string committedFiles() {
        return trimmed(repo.git({"show", "--format=", "--name-only", "HEAD"}));
    }
    std::string staged() { return trimmed(repo.git({"diff", "--cached", "--name-only"})); }
};

TEST(GitCommit, VariantsRecordWhatTheirOptionsSay) {
    struct Case {
        const char* name;
        std::function<std::shared_ptr<VNTask>(CommitRepo&)> make;
        std::function<void(CommitRepo&)> check;
    };
    using H = VNRepoHandlerGit;
    const std::vector<Case> cases = {
        {"an empty message is recorded as \"no message\"",
         [](CommitRepo& r) { return r.handler->commitTask(r.repo.path(), "", "", "", 0); },
         [](CommitRepo& r) {
             EXPECT_EQ(r.head("%B"), "no message");
             EXPECT_EQ(r.committedFiles(), "b.txt");
         }},
        {"files are committed as they are, whatever else is staged",
         [](CommitRepo& r) {
             return r.handler->commitTask(r.repo.path(), {"a.txt"}, "only a", "", "", 0);
         },
         [](CommitRepo& r) {
             EXPECT_EQ(r.committedFiles(), "a.txt");
             EXPECT_EQ(r.staged(), "b.txt") << "the staged file stays staged";
         }},
        {"every tracked change with the all bit",
         [](CommitRepo& r) {
             return r.handler->commitTask(r.repo.path(), "all", "", "", H::CommitAll);
         },
         [](CommitRepo& r) { EXPECT_EQ(r.committedFiles(), "a.txt\nb.txt"); }},
        {"amend with files replaces the last commit with only those files",
         [](CommitRepo& r) {
             return r.handler->commitTask(r.repo.path(), {"a.txt"}, "amended", "", "",
                                          H::CommitAmend);
         },
         [](CommitRepo& r) {
             EXPECT_EQ(r.head("%s"), "amended");
             EXPECT_EQ(trimmed(r.repo.git({"rev-list", "--count", "HEAD"})), "1");
             EXPECT_EQ(r.staged(), "b.txt");
         }},
        {"amend without files keeps the parents and takes what is staged",
         [](CommitRepo& r) {
             return r.handler->commitTask(r.repo.path(), "amended", "", "", H::CommitAmend);
         },
         [](CommitRepo& r) {
             EXPECT_EQ(trimmed(r.repo.git({"rev-list", "--count", "HEAD"})), "1");
             EXPECT_EQ(r.head("%s"), "amended");
             EXPECT_EQ(r.staged(), "");
         }},
        {"sign-off and another author",
         [](CommitRepo& r) {
             return r.handler->commitTask(r.repo.path(), "with trailer",
                                          "Other Person <other@example.com>", "", H::CommitSignoff);
         },
         [](CommitRepo& r) {
             EXPECT_EQ(r.head("%an <%ae>"), "Other Person <other@example.com>");
             EXPECT_NE(r.head("%B").find("Signed-off-by: Test Committer <committer@example.com>"),
                       std::string::npos);
         }},
        {"a message with quotes, backslashes, blank lines and non-ASCII text is kept",
         [](CommitRepo& r) {
             return r.handler->commitTask(r.repo.path(), {"b.txt"},
                                          "Sujet \"cité\" \\n\n\n# not a comment\nfin\n", "", "",
                                          0);
         },
         [](CommitRepo& r) {
             EXPECT_EQ(r.head("%B"), "Sujet \"cité\" \\n\n\n# not a comment\nfin");
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CommitRepo r;
        auto task = c.make(r);
        ASSERT_TRUE(task);
        EXPECT_TRUE(task->attachStdin());
        ASSERT_TRUE(task->run()) << task->errorOutput() << task->output();
        c.check(r);
    }
}

TEST(GitCommit, HooksRunUnlessBypassedAndTheMessageFileGoesWithTheTask) {
    CommitRepo r;
    vn::test::writeScript(r.repo.file(".git/hooks"), "pre-commit",
                          "echo 'refused by the hook' >&2\nexit 1\n");
    auto refused = r.handler->commitTask(r.repo.path(), "hooked", "", "", 0);
    EXPECT_FALSE(refused->run());
    EXPECT_NE(refused->errorOutput().find("refused by the hook"), std::string::npos);

    auto bypassed = r.handler->commitTask(r.repo.path(), "bypassed", "", "",
                                          VNRepoHandlerGit::CommitBypassHooks);
    const auto& args = bypassed->args();
    auto file = std::find(args.begin(), args.end(), "-F");
    ASSERT_NE(file, args.end());
    std::string messageFile = *(file + 1);
    EXPECT_EQ(vn::fs::lastPathComponent(messageFile).rfind("VarnelTemp.", 0), 0u);
    EXPECT_EQ(vn::test::readFile(messageFile), "bypassed");
    ASSERT_TRUE(bypassed->run()) << bypassed->errorOutput();
    EXPECT_EQ(r.head("%s"), "bypassed");
    bypassed.reset();
    EXPECT_FALSE(vn::fs::exists(messageFile)) << "removed with the task";
}

TEST(GitCommit, SignsWithAThrowAwayKeyWhenTheVariantSaysSo) {
    vn::test::GnupgHome gnupg;
    if (!gnupg.ready()) {
        GTEST_SKIP() << "no GnuPG key could be made: " << gnupg.error();
    }
    struct Case {
        const char* name;
        bool withFiles;
        uint64_t options;
        bool signedCommit;
    };
    const std::vector<Case> cases = {
        {"files and a key sign without the sign bit", true, 0, true},
        {"no files, a key but no sign bit: unsigned", false, 0, false},
        {"no files, a key and the sign bit: signed", false, VNRepoHandlerGit::CommitSign, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CommitRepo r;
        auto task = c.withFiles ? r.handler->commitTask(r.repo.path(), {"b.txt"}, c.name, "",
                                                        gnupg.fingerprint(), c.options)
                                : r.handler->commitTask(r.repo.path(), c.name, "",
                                                        gnupg.fingerprint(), c.options);
        ASSERT_TRUE(task->run()) << task->errorOutput();
        std::string object = r.repo.git({"cat-file", "commit", "HEAD"});
        EXPECT_EQ(object.find("\ngpgsig ") != std::string::npos, c.signedCommit);
        auto verify = vn::test::runProgram(r.repo.path(), "git", {"verify-commit", "HEAD"});
        EXPECT_EQ(verify->success(), c.signedCommit) << verify->errorOutput();
    }
}

TEST(GitClone, OptionsShapeTheCloneAndInitMakesARepository) {
    GitRepository source;
    source.commitFile("a.txt", "1\n", "one");
    source.commitFile("a.txt", "2\n", "two");
    source.git({"branch", "side"});
    source.commitFile("a.txt", "3\n", "three");
    auto handler = std::make_shared<VNRepoHandlerGit>();
    TempDir target("varnel-clones");
    struct Case {
        const char* name;
        vn::Record options;
        bool checkedOut;
        const char* branch;
        const char* count;
    };
    const std::vector<Case> cases = {
        {"no working copy unless asked", vn::Record{}, false, "main", "3"},
        {"a branch, shallow, with progress",
         vn::Record{{"clonegetworkingcopy", true},
                    {"clonebranch", "side"},
                    {"clonedepth", 1},
                    {"cloneVerbose", true}},
         true, "side", "1"},
        {"a depth of 0 is the whole history",
         vn::Record{{"clonegetworkingcopy", true}, {"clonedepth", 0}, {"clonenohardlinks", true}},
         true, "main", "3"},
    };
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string destination = target.file("nested/clone" + std::to_string(n++));
        auto task = handler->cloneTaskForSource("file://" + source.path(), destination, c.options);
        ASSERT_TRUE(task->run()) << task->errorOutput();
        EXPECT_EQ(vn::fs::exists(destination + "/a.txt"), c.checkedOut);
        auto git = [&](std::vector<std::string> args) {
            return trimmed(vn::test::runProgram(destination, "git", args)->output());
        };
        EXPECT_EQ(git({"symbolic-ref", "--short", "HEAD"}), c.branch);
        EXPECT_EQ(git({"rev-list", "--count", "HEAD"}), c.count);
        if (c.options.boolean("cloneVerbose")) {
            EXPECT_NE(task->errorOutput().find("Receiving objects"), std::string::npos);
            // A checkout shorter than git's usual one-second wait still reports itself.
            EXPECT_NE(task->errorOutput().find("Updating files: 100% (1/1)"), std::string::npos)
                << task->errorOutput();
        }
    }

    std::string fresh = target.file("fresh");
    vn::fs::makeDirectories(fresh);
    auto init = handler->createNewRepoTask(fresh);
    ASSERT_TRUE(init->run()) << init->errorOutput();
    EXPECT_TRUE(handler->validateWorkingDirectory(fresh));
}

// Commits enough history that a clone over file:// lasts a while: git fast-import reads it.
std::string generatedLargeRepository(const TempDir& dir) {
    std::string path = dir.file("large");
    vn::fs::makeDirectories(path);
    vn::test::runProgram(path, "git", {"init", "-q", "--bare"});
    std::string stream;
    for (int i = 1; i <= 30000; ++i) {
        std::string content = "line " + std::to_string(i * 7919) + "\n";
        stream += "commit refs/heads/main\nmark :" + std::to_string(i) + "\ncommitter T <t@e> " +
                  std::to_string(1700000000 + i) + " +0000\ndata 2\nc\n";
        if (i > 1) {
            stream += "from :" + std::to_string(i - 1) + "\n";
        }
        stream += "M 644 inline f" + std::to_string(i % 10) + "\ndata " +
                  std::to_string(content.size()) + "\n" + content + "\n";
    }
    vn::test::writeFile(dir.file("stream"), stream);
    auto task = VNTask::taskWithCommand(
        "/bin/sh", path, {"-c", "git fast-import --quiet < \"$0\"", dir.file("stream")});
    task->run();
    return path;
}

TEST(GitClone, ShowsProgressEarlyAndACancelledCloneLeavesNoFolder) {
    TempDir dir("varnel-cancel");
    const char* large = std::getenv("VARNEL_GIT_GIT_REPO");
    std::string source =
        large && vn::fs::isDirectory(large) ? large : generatedLargeRepository(dir);
    std::string destination = dir.file("clone");
    auto handler = std::make_shared<VNRepoHandlerGit>();
    auto task = handler->cloneTaskForSource(
        "file://" + source, destination,
        vn::Record{{"clonegetworkingcopy", true}, {"cloneVerbose", true}});
    ASSERT_TRUE(vn::MainLoop::isMainThread());
    bool completed = false;
    bool progress = false;
    auto& center = vn::NotificationCenter::defaultCenter();
    auto onError =
        center.addObserver(VNTask::ErrorOutputReceivedNotification, task.get(), [&](const auto&) {
            std::string text = task->newErrorOutput();
            if (text.find("objects") != std::string::npos) {
                progress = true;
            }
        });
    auto onDone = center.addObserver(VNTask::CompletedNotification, task.get(),
                                     [&](const auto&) { completed = true; });
    auto started = std::chrono::steady_clock::now();
    task->launch();
    vn::MainLoop::main()->runUntil([&] { return progress || completed; }, 120);
    auto firstProgress = std::chrono::steady_clock::now() - started;
    ASSERT_TRUE(progress) << "no progress before the clone ended: " << task->errorOutput();
    if (completed) {
        GTEST_SKIP() << "the clone finished before it could be cancelled";
    }
    std::cout << "first progress after "
              << std::chrono::duration_cast<std::chrono::milliseconds>(firstProgress).count()
              << " ms\n";
    task->terminate();
    vn::MainLoop::main()->runUntil([&] { return completed; }, 120);
    ASSERT_TRUE(completed);
    EXPECT_FALSE(task->success());
    VNRepoHandlerGit::discardIncompleteClone(destination, false);
    EXPECT_FALSE(vn::fs::exists(destination));
    EXPECT_TRUE(vn::fs::isDirectory(dir.path())) << "only the clone's own folder goes";
}

TEST(GitClone, AFailedCloneKeepsAFolderThatWasThereBefore) {
    TempDir dir("varnel-keep");
    std::string destination = dir.file("existing");
    vn::test::writeFile(destination + "/precious.txt", "keep me\n");
    auto handler = std::make_shared<VNRepoHandlerGit>();
    auto task = handler->cloneTaskForSource("file:///nonexistent/repository", destination, {});
    EXPECT_FALSE(task->run());
    EXPECT_FALSE(VNRepoHandlerGit::discardIncompleteClone(destination, true));
    EXPECT_EQ(vn::test::readFile(destination + "/precious.txt"), "keep me\n");
}

}  // namespace
