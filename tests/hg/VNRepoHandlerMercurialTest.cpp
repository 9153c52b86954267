#include "hg/VNRepoHandlerMercurial.h"

#include <gtest/gtest.h>

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

}  // namespace
