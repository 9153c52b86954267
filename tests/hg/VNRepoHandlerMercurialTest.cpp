#include "hg/VNRepoHandlerMercurial.h"

#include <gtest/gtest.h>

#include <functional>

#include "app/VNApplication.h"
#include "platform/FileSystem.h"
#include "support/HgRepository.h"

namespace {

using vn::test::HgRepository;

TEST(VNRepoHandlerMercurialFrame, DefaultArgumentsAnswerPromptsOnlyWhereNothingMayAsk) {
    auto handler = std::make_shared<VNRepoHandlerMercurial>();
    struct Case {
        const char* command;
        bool yes;
    };
    const Case cases[] = {
        {"status", true},  {"log", true},    {"commit", true},    {"resolve", true},
        {"summary", true}, {"update", true}, {"outgoing", false}, {"incoming", false},
        {"push", false},   {"pull", false},  {"fetch", false},    {"identify", false},
        {"clone", false},  {"flow", false},  {"-R", false},       {"sign", false},
        {"Push", true},  // command words are compared exactly
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.command);
        auto args = handler->defaultArgsForPath("/tmp", c.command);
        ASSERT_FALSE(args.empty());
        EXPECT_EQ(args[0], c.command);
        EXPECT_EQ(args.size() > 1 && args[1] == "-y", c.yes);
        EXPECT_EQ(args.size(), c.yes ? 2u : 1u);
    }
    handler->setNeedsWebCacertsConfigSetting(true);
    auto args = handler->defaultArgsForPath("/tmp", "pull");
    ASSERT_EQ(args.size(), 3u);
    EXPECT_EQ(args[1], "--config");
    EXPECT_TRUE(args[2].starts_with("web.cacerts=")) << args[2];
    EXPECT_TRUE(args[2].ends_with("mercurial_local/dummycert.pem")) << args[2];
}

TEST(VNRepoHandlerMercurialFrame, RegisteredBesideGitAndRecognisesWorkingCopies) {
    auto& app = VNApplication::shared();
    auto handler = app.handlerForType(VNRepositoryTypeMercurial);
    ASSERT_TRUE(std::dynamic_pointer_cast<VNRepoHandlerMercurial>(handler));
    EXPECT_EQ(handler->repositoryTypeName(), "Mercurial");
    EXPECT_TRUE(handler->hasSequentialRevisions());
    EXPECT_TRUE(handler->hasHashedChangesets());
    HgRepository repo;
    EXPECT_EQ(app.determineRepositoryType(repo.path()), VNRepositoryTypeMercurial);
    vn::test::TempDir plain;
    EXPECT_EQ(app.determineRepositoryType(plain.path()), VNRepositoryTypeUnknown);
    // A file called ".hg" is no repository.
    vn::test::writeFile(plain.file(".hg"), "x");
    EXPECT_EQ(app.determineRepositoryType(plain.path()), VNRepositoryTypeUnknown);
}

TEST(VNRepoHandlerMercurialFrame, TasksRunTheShippedHgPlainly) {
    auto handler = std::make_shared<VNRepoHandlerMercurial>();
    HgRepository repo;
    repo.commitFile("a.txt", "a\n", "first");
    // The shipped hg is a link to the installed one.
    EXPECT_TRUE(vn::fs::isExecutableFile(handler->hgPath())) << handler->hgPath();
    vn::test::writeHostileHgConfig(vn::fs::homeDirectory());
    auto task = handler->hgTask(repo.path(), "log", {"--template", "{rev}:{desc}\n"});
    EXPECT_TRUE(task->run()) << task->errorOutput();
    EXPECT_EQ(task->output(), "0:first\n");
    auto env = task->preparedEnvironment();
    EXPECT_EQ(env["HGPLAINEXCEPT"], "");
    EXPECT_NE(env["HGPLAIN"], "");
    ::unlink(vn::fs::appendPathComponent(vn::fs::homeDirectory(), ".hgrc").c_str());
}

// Strict plain mode takes "--config" only before the command word: with the certificate
// override on, queries, write tasks, bundle runs and file lists must all still run.
TEST(VNRepoHandlerMercurialFrame, CertificateOverrideGoesBeforeTheCommandWord) {
    auto handler = std::make_shared<VNRepoHandlerMercurial>();
    handler->setNeedsWebCacertsConfigSetting(true);
    HgRepository repo;
    repo.commitFile("a.txt", "a\n", "first");
    repo.write("b file.txt", "b\n");
    vn::test::TempDir scratch("varnel-cacerts");
    repo.hg({"bundle", "--all", scratch.file("all.hg")});
    struct Case {
        const char* name;
        std::function<std::shared_ptr<VNTask>()> task;
    };
    const Case cases[] = {
        {"query", [&] { return handler->hgQueryTask(repo.path(), "status", {"-u"}); }},
        {"query through a bundle",
         [&] {
             return handler->hgQueryTaskWithArgs(repo.path(), [&] {
                 std::vector<std::string> args{"-R", scratch.file("all.hg")};
                 auto defaults = handler->defaultArgsForPath(repo.path(), "tags");
                 args.insert(args.end(), defaults.begin(), defaults.end());
                 return args;
             }());
         }},
        {"file list", [&] { return handler->addTasks(repo.path(), {"b file.txt"}).front(); }},
        {"write with its own pair", [&] { return handler->mergeTask(repo.path(), "0", 0); }},
        {"tag", [&] { return handler->tagTasks(repo.path(), "v1", false, "", {}).front(); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto task = c.task();
        ASSERT_TRUE(task);
        const auto& args = task->args();
        ASSERT_GE(args.size(), 2u);
        EXPECT_EQ(args[0], "--config");
        EXPECT_TRUE(args[1].starts_with("web.cacerts=")) << args[1];
        bool ran = task->run();
        if (std::string(c.name) == "write with its own pair") {
            // Merging the working copy's own parent is refused by hg, not by the option parser.
            EXPECT_EQ(task->errorOutput().find("abbreviated"), std::string::npos)
                << task->errorOutput();
        } else {
            EXPECT_TRUE(ran) << task->errorOutput();
        }
    }
    EXPECT_EQ(repo.hg({"status", "-a"}), "A b file.txt\n");
    EXPECT_NE(repo.hg({"tags"}).find("v1"), std::string::npos);
    // A file's content through "-R" with the override among its defaults.
    EXPECT_TRUE(handler->exportFileContentAtRevision(repo.path(), "a.txt", "0",
                                                     scratch.file("a-at-0.txt")));
    EXPECT_EQ(vn::test::readFile(scratch.file("a-at-0.txt")), "a\n");
    // Words after the default arguments are the caller's, even when one reads "--config".
    EXPECT_EQ(VNRepoHandlerMercurial::configOptionsFirst(
                  {"log", "-y", "--config", "web.cacerts=x", "-k", "--config", "--template", "t"}),
              (std::vector<std::string>{"--config", "web.cacerts=x", "log", "-y", "-k", "--config",
                                        "--template", "t"}));
}

}  // namespace
