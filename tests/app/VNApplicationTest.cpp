#include "app/VNApplication.h"

#include <gtest/gtest.h>

#include "git/VNRepoHandlerGit.h"
#include "handler/VNRepoHandlerBase.h"
#include "platform/FileSystem.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::GitRepository;
using vn::test::TempDir;

// Enough of a Mercurial backend to take part in the type decision.
struct MercurialStandIn : VNRepoHandlerBase {
    VNRepositoryType repositoryType() const override { return VNRepositoryTypeMercurial; }
    bool validateWorkingDirectory(const std::string& path) override {
        return vn::fs::isDirectory(vn::fs::appendPathComponent(path, ".hg"));
    }
};

TEST(VNApplication, SharedApplicationKnowsGitRepositoriesWorktreesAndPlainFolders) {
    GitRepository repo;
    repo.commitFile("a.txt", "a\n", "first");
    TempDir outside("worktrees");
    std::string worktree = outside.file("wt");
    repo.git({"worktree", "add", "-q", "-b", "side", worktree});
    ASSERT_FALSE(vn::fs::isDirectory(worktree + "/.git")) << "a worktree keeps a .git file";
    TempDir plain("plain");

    struct Case {
        const char* name;
        std::string path;
        VNRepositoryType expected;
    };
    const std::vector<Case> cases = {
        {"repository", repo.path(), VNRepositoryTypeGit},
        {"worktree", worktree, VNRepositoryTypeGit},
        {"plain folder", plain.path(), VNRepositoryTypeUnknown},
        {"folder inside a repository", repo.path() + "/sub", VNRepositoryTypeUnknown},
        {"missing folder", plain.file("missing"), VNRepositoryTypeUnknown},
        {"empty path", "", VNRepositoryTypeUnknown},
    };
    VNApplication& app = VNApplication::shared();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(app.determineRepositoryType(c.path), c.expected);
    }
    auto git = app.handlerForType(VNRepositoryTypeGit);
    ASSERT_TRUE(std::dynamic_pointer_cast<VNRepoHandlerGit>(git));
    EXPECT_EQ(app.handlerForType(VNRepositoryTypeGit), git) << "one shared handler per type";
    EXPECT_FALSE(app.handlerForType(VNRepositoryTypeUnknown));
}

TEST(VNApplication, EveryRegisteredBackendIsAsked) {
    VNApplication app;
    app.registerHandler(std::make_shared<VNRepoHandlerGit>());
    app.registerHandler(std::make_shared<MercurialStandIn>());
    ASSERT_EQ(app.handlers().size(), 2u);
    EXPECT_EQ(app.handlers()[0]->repositoryType(), VNRepositoryTypeMercurial);

    TempDir hg("hg");
    vn::fs::makeDirectories(hg.file(".hg"));
    GitRepository git;
    TempDir hgFile("hgfile");
    vn::test::writeFile(hgFile.file(".hg"), "not a folder");
    EXPECT_EQ(app.determineRepositoryType(hg.path()), VNRepositoryTypeMercurial);
    EXPECT_EQ(app.determineRepositoryType(git.path()), VNRepositoryTypeGit);
    EXPECT_EQ(app.determineRepositoryType(hgFile.path()), VNRepositoryTypeUnknown);

    VNApplication empty;
    EXPECT_EQ(empty.determineRepositoryType(git.path()), VNRepositoryTypeUnknown);
}

}  // namespace
