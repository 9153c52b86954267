#include <gtest/gtest.h>

#include <algorithm>

#include "git/VNRepoHandlerGit.h"
#include "platform/FileSystem.h"
#include "platform/Preferences.h"
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

// The words of a task from its git command on, without the default arguments.
std::string summary(VNRepoHandlerGit& handler, const VNTask& task) {
    std::size_t skip = handler.defaultArgsForPath("/", "x").size() - 1;
    std::string text;
    for (std::size_t i = skip; i < task.args().size(); ++i) {
        text += (text.empty() ? "" : " ") + task.args()[i];
    }
    return text;
}

bool runAll(const VNTaskList& tasks, std::string* error = nullptr) {
    for (const auto& task : tasks) {
        if (!task->run()) {
            if (error) {
                *error = task->errorOutput();
            }
            return false;
        }
    }
    return true;
}

// A working copy with a commit on main and a bare repository as its remote "origin".
struct RemotePair {
    TempDir remoteDir{"varnel-remote"};
    GitRepository work;
    std::shared_ptr<VNRepoHandlerGit> handler = std::make_shared<VNRepoHandlerGit>();

    RemotePair() {
        vn::test::runProgram(remoteDir.path(), "git", {"init", "-q", "--bare"});
        work.commitFile("a.txt", "one\n", "first");
        work.git({"remote", "add", "origin", url()});
    }
    std::string url() const { return "file://" + remoteDir.path(); }
    std::string remoteGit(const std::vector<std::string>& args) {
        return vn::test::runProgram(remoteDir.path(), "git", args)->output();
    }
};

TEST(GitPushList, GroupsBranchesByTrackingAndKeepsTheOrder) {
    RemotePair pair;
    auto& handler = *pair.handler;
    struct Case {
        const char* name;
        std::vector<VNGitPushBranchEntry> list;
        bool force;
        bool allTags;
        std::vector<std::string> expected;
    };
    auto e = [](bool push, std::string local, std::string remote, int64_t track) {
        return VNGitPushBranchEntry{push, std::move(local), std::move(remote), track};
    };
    std::string unsetA =
        "config --file " + pair.work.path() + "/.git/config --unset branch.a.merge";
    std::string unsetB =
        "config --file " + pair.work.path() + "/.git/config --unset branch.b.merge";
    const std::vector<Case> cases = {
        {"an empty list gives no tasks", {}, false, false, {}},
        {"an untracked branch that is not pushed still loses its upstream",
         {e(false, "a", "a", 0)},
         false,
         false,
         {unsetA}},
        {"untracked and not pushed: only upstream removals",
         {e(false, "a", "a", 0), e(false, "b", "other", 0)},
         false,
         false,
         {unsetA, unsetB}},
        {"no remote branch: nothing to untrack", {e(false, "a", "", 0)}, false, false, {}},
        {"neither pushed nor tracked: nothing", {e(false, "a", "a", 1)}, false, false, {}},
        {"tracking push, plain push, then removals",
         {e(true, "a", "", 0), e(true, "b", "c", -1), e(true, "d", "", 1), e(true, "e", "f", 1),
          e(true, "g", "", 7)},
         false,
         false,
         {"push -v --set-upstream origin refs/heads/d:refs/heads/d refs/heads/e:refs/heads/f",
          "push -v origin refs/heads/a:refs/heads/a refs/heads/b:refs/heads/c "
          "refs/heads/g:refs/heads/g"}},
        {"a pushed untracked entry with a remote branch is pushed and untracked",
         {e(true, "a", "a", 0)},
         false,
         false,
         {"push -v origin refs/heads/a:refs/heads/a", unsetA}},
        {"force and every tag",
         {e(true, "a", "", 1), e(true, "b", "", -1)},
         true,
         true,
         {"push -v --tags --force --set-upstream origin refs/heads/a:refs/heads/a",
          "push -v --tags --force origin refs/heads/b:refs/heads/b"}},
    };
    auto& prefs = vn::Preferences::standard();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        prefs.set("gitPushAllTags", c.allTags);
        auto tasks = handler.pushTasks(pair.work.path(), "origin", c.list, c.force);
        std::vector<std::string> got;
        for (const auto& task : tasks) {
            got.push_back(summary(handler, *task));
            if (got.back().rfind("push", 0) == 0) {
                // Pushes are prepared for password prompts about the remote's URL.
                ASSERT_TRUE(task->askpassEnvironment());
                EXPECT_EQ(task->askpassEnvironment()->at("AUTH_URL"), pair.url());
                EXPECT_EQ(task->remoteInfo(), "origin");
            }
        }
        EXPECT_EQ(got, c.expected);
    }
    prefs.remove("gitPushAllTags");
}

TEST(GitPushList, PushesTracksAndUntracksAgainstARealRemote) {
    RemotePair pair;
    auto& work = pair.work;
    for (const char* branch : {"a", "b", "d"}) {
        work.git({"branch", branch});
    }
    // d already has an upstream that the list removes.
    work.git({"push", "-q", "-u", "origin", "d"});
    std::vector<VNGitPushBranchEntry> list = {
        {true, "a", "", 1},
        {true, "b", "c", -1},
        {false, "d", "d", 0},
    };
    auto tasks = pair.handler->pushTasks(work.path(), "origin", list, false);
    ASSERT_EQ(tasks.size(), 3u);
    std::string error;
    ASSERT_TRUE(runAll(tasks, &error)) << error;

    std::string heads = pair.remoteGit({"for-each-ref", "--format=%(refname)", "refs/heads"});
    EXPECT_EQ(heads, "refs/heads/a\nrefs/heads/c\nrefs/heads/d\n");
    EXPECT_EQ(trimmed(work.git({"rev-parse", "--abbrev-ref", "a@{upstream}"})), "origin/a");
    auto bUpstream = vn::test::runProgram(work.path(), "git", {"config", "branch.b.merge"});
    EXPECT_FALSE(bUpstream->success());
    auto dUpstream = vn::test::runProgram(work.path(), "git", {"config", "branch.d.merge"});
    EXPECT_FALSE(dUpstream->success()) << "the upstream of d was removed";
}

TEST(GitPushDefault, ModesFromTheSettingAndTheGitVersion) {
    struct Case {
        const char* value;
        const char* version;
        unsigned expected;
    };
    const std::vector<Case> cases = {
        {"simple", "2.39.5", 3}, {"matching", "2.39.5", 0}, {"upstream", "1.8.0", 1},
        {"current", "2.0", 2},   {"nothing", "2.39.5", 4},  {"tracking", "2.39.5", 3},
        {"", "1.9.5", 0},        {"", "2.0.0", 3},          {"", "", 0},
        {"", "10.1", 3},         {"Matching", "2.1", 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.value) + " with git " + c.version);
        EXPECT_EQ(VNRepoHandlerGit::pushDefaultModeFor(c.value, c.version), c.expected);
    }

    GitRepository repo;
    auto handler = std::make_shared<VNRepoHandlerGit>();
    handler->setDetectedGitVersion("1.9.5");
    EXPECT_EQ(handler->pushBranchDefaultOption(repo.path()), 0u) << "unset with git 1.x";
    handler->setDetectedGitVersion(std::nullopt);
    EXPECT_EQ(handler->pushBranchDefaultOption(repo.path()), 3u) << "unset with git 2.x";
    repo.git({"config", "push.default", "nothing"});
    EXPECT_EQ(handler->pushBranchDefaultOption(repo.path()), 4u);
    // The user's own setting counts where no repository is named.
    EXPECT_EQ(handler->pushBranchDefaultOption(std::nullopt), 3u);
    repo.git({"config", "--global", "push.default", "current"});
    EXPECT_EQ(handler->pushBranchDefaultOption(std::nullopt), 2u);
    repo.git({"config", "--global", "--unset", "push.default"});
}

TEST(GitRemoteTasks, SimplePushesAndFetchesOfOneOrEveryRemote) {
    RemotePair pair;
    auto& work = pair.work;
    auto& handler = *pair.handler;
    work.git({"branch", "topic"});
    work.git({"tag", "v1"});
    ASSERT_TRUE(handler.pushTask(work.path(), "origin")->run());
    EXPECT_EQ(pair.remoteGit({"for-each-ref", "--format=%(refname)"}),
              "refs/heads/main\nrefs/heads/topic\n");
    ASSERT_TRUE(handler.pushTaskRef(work.path(), "origin", "v1")->run());
    EXPECT_NE(pair.remoteGit({"tag"}).find("v1"), std::string::npos);

    // A second remote: fetching without a name fetches both.
    TempDir second("varnel-second");
    vn::test::runProgram(second.path(), "git", {"clone", "-q", "--bare", pair.url(), "."});
    vn::test::runProgram(second.path(), "git", {"branch", "only-second", "main"});
    work.git({"remote", "add", "second", "file://" + second.path()});
    auto all = handler.fetchTasks(work.path(), std::nullopt, false, false);
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(summary(handler, *all[0]), "fetch origin");
    EXPECT_EQ(summary(handler, *all[1]), "fetch second");
    ASSERT_TRUE(runAll(all));
    EXPECT_NE(work.git({"branch", "-r"}).find("second/only-second"), std::string::npos);

    // Prune drops what the remote no longer has.
    pair.remoteGit({"branch", "-D", "topic"});
    auto pruned = handler.fetchTasks(work.path(), std::string("origin"), true, true);
    ASSERT_EQ(pruned.size(), 1u);
    EXPECT_EQ(summary(handler, *pruned[0]), "fetch --tags --prune origin");
    ASSERT_TRUE(runAll(pruned));
    EXPECT_EQ(work.git({"branch", "-r", "--list", "origin/*"}), "  origin/main\n");

    GitRepository lonely;
    EXPECT_TRUE(handler.fetchTasks(lonely.path(), std::nullopt, true, true).empty())
        << "no remotes, no fetch and no Subversion bridge";
}

TEST(GitRemoteTasks, PullMergesOrRebasesDivergedBranchesAndUpdatesSubmodules) {
    struct Case {
        const char* name;
        bool rebase;
        bool noFastForward;
        std::size_t headParents;
    };
    for (const Case& c :
         std::vector<Case>{{"merge", false, false, 2}, {"rebase", true, false, 1}}) {
        SCOPED_TRACE(c.name);
        RemotePair pair;
        auto& handler = *pair.handler;
        pair.work.git({"push", "-q", "-u", "origin", "main"});
        TempDir other("varnel-other");
        vn::test::runProgram(other.path(), "git", {"clone", "-q", pair.url(), "."});
        vn::test::writeFile(other.file("b.txt"), "theirs\n");
        vn::test::runProgram(other.path(), "git", {"add", "b.txt"});
        vn::test::runProgram(other.path(), "git", {"commit", "-q", "-m", "theirs"});
        vn::test::runProgram(other.path(), "git", {"push", "-q", "origin", "main"});
        pair.work.commitFile("c.txt", "mine\n", "mine");

        auto tasks = handler.pullTasks(pair.work.path(), "origin", "main", true, false,
                                       c.noFastForward, c.rebase, 0);
        ASSERT_EQ(tasks.size(), 3u);
        EXPECT_EQ(summary(handler, *tasks[0]), "fetch origin");
        EXPECT_EQ(summary(handler, *tasks[2]), "submodule update --init --recursive");
        std::string error;
        ASSERT_TRUE(runAll(tasks, &error)) << error;
        std::string parents = trimmed(pair.work.git({"log", "-1", "--format=%P"}));
        EXPECT_EQ(std::count(parents.begin(), parents.end(), ' ') + 1,
                  static_cast<long>(c.headParents));
        EXPECT_TRUE(vn::fs::exists(pair.work.file("b.txt")));
        EXPECT_TRUE(vn::fs::exists(pair.work.file("c.txt")));
    }
}

TEST(GitRemoteTasks, PullArgumentsFollowTheChoices) {
    RemotePair pair;
    auto& handler = *pair.handler;
    struct Case {
        bool commit, log, noFF, rebase;
        uint64_t submodules;
        const char* pull;
        const char* update;
    };
    const std::vector<Case> cases = {
        {false, false, false, false, 0, "pull --no-commit --no-rebase origin main",
         "submodule update --init --recursive"},
        {true, true, true, true, 1, "pull --rebase --log --no-ff origin main",
         "submodule update --init"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pull);
        auto tasks = handler.pullTasks(pair.work.path(), "origin", "main", c.commit, c.log, c.noFF,
                                       c.rebase, c.submodules);
        ASSERT_EQ(tasks.size(), 3u);
        EXPECT_EQ(summary(handler, *tasks[1]), c.pull);
        EXPECT_EQ(summary(handler, *tasks[2]), c.update);
        EXPECT_TRUE(tasks[2]->askpassEnvironment()) << "the update may reach submodule remotes";
    }
    EXPECT_EQ(summary(handler, *handler.pushTask(pair.work.path(), "origin", std::string("main"),
                                                 std::nullopt, true)),
              "push -v -f origin refs/heads/main:refs/heads/main");
    EXPECT_EQ(summary(handler, *handler.pushTask(pair.work.path(), "origin", std::string("main"),
                                                 std::string("HEAD~1"), false)),
              "push -v origin HEAD~1:refs/heads/main");
    // A remote that would read as an option is kept an operand.
    auto hostile = handler.pushTask(pair.work.path(), "--upload-pack=touch /tmp/x", false);
    EXPECT_EQ(summary(handler, *hostile), "push -v --all -- --upload-pack=touch /tmp/x");
}

// The Subversion bridge against a real Subversion repository over file://: a fetch of every
// remote brings the new Subversion revisions, and the push replays the local commits onto the
// Subversion head and commits them there.
TEST(GitRemoteTasks, TheSubversionBridgeFetchesRebasesAndCommitsToARealSubversionRepository) {
    if (!vn::fs::findExecutable("svnadmin") || !vn::fs::findExecutable("svn") ||
        !vn::test::runProgram("/", "git", {"svn", "--version"})->success()) {
        GTEST_SKIP() << "Subversion or git-svn is not installed (subversion, git-svn)";
    }
    TempDir dir("varnel-svn");
    auto svn = [&](const std::vector<std::string>& args) {
        auto task = vn::test::runProgram(dir.path(), "svn", args);
        EXPECT_TRUE(task->success()) << "svn " << args[0] << ": " << task->errorOutput();
        return task->output();
    };
    auto svnCommit = [&](const std::string& file, const std::string& contents,
                         const std::string& message) {
        bool added = vn::fs::exists(dir.file("wc/" + file));
        vn::test::writeFile(dir.file("wc/" + file), contents);
        if (!added) {
            svn({"add", "-q", dir.file("wc/" + file)});
        }
        svn({"commit", "-q", "-m", message, dir.file("wc")});
    };
    ASSERT_TRUE(vn::test::runProgram(dir.path(), "svnadmin", {"create", "repo"})->success());
    const std::string url = "file://" + dir.file("repo");
    svn({"checkout", "-q", url, dir.file("wc")});
    svnCommit("a.txt", "one\n", "first in svn");
    auto cloned = vn::test::runProgram(dir.path(), "git", {"svn", "clone", "-q", url, "clone"});
    ASSERT_TRUE(cloned->success()) << cloned->errorOutput();
    const std::string clone = dir.file("clone");
    GitRepository plain;
    auto handler = std::make_shared<VNRepoHandlerGit>();
    EXPECT_FALSE(handler->hasSvnInterop(plain.path()));
    EXPECT_FALSE(handler->isRemoteSvn(plain.path(), "Subversion"));
    EXPECT_TRUE(handler->hasSvnInterop(clone));
    EXPECT_TRUE(handler->isRemoteSvn(clone, "Subversion"));
    auto git = [&](const std::vector<std::string>& args) {
        return trimmed(vn::test::runProgram(clone, "git", args)->output());
    };

    // Fetch without a remote: the clone has no git remotes, so only the Subversion fetch runs.
    svnCommit("b.txt", "two\n", "second in svn");
    auto fetch = handler->fetchTasks(clone, std::nullopt, false, false);
    ASSERT_EQ(fetch.size(), 1u);
    EXPECT_EQ(summary(*handler, *fetch[0]), "svn fetch");
    std::string error;
    ASSERT_TRUE(runAll(fetch, &error)) << error;
    EXPECT_EQ(git({"log", "-1", "--format=%s", "refs/remotes/git-svn"}), "second in svn");
    EXPECT_EQ(git({"log", "-1", "--format=%s", "HEAD"}), "first in svn") << "fetch only";

    // A local commit goes to Subversion on top of a revision the clone has not seen yet.
    vn::test::writeFile(clone + "/c.txt", "from git\n");
    git({"add", "c.txt"});
    git({"commit", "-q", "-m", "made in git"});
    svnCommit("a.txt", "one, changed in svn\n", "third in svn");
    auto push = handler->svnDCommitTasks(clone, "main");
    ASSERT_EQ(push.size(), 2u);
    EXPECT_EQ(summary(*handler, *push[0]), "svn rebase");
    EXPECT_EQ(summary(*handler, *push[1]), "svn dcommit");
    ASSERT_TRUE(runAll(push, &error)) << error;
    EXPECT_NE(svn({"log", "-l", "1", url}).find("made in git"), std::string::npos);
    EXPECT_EQ(svn({"cat", url + "/c.txt"}), "from git\n");
    EXPECT_EQ(vn::test::readFile(clone + "/a.txt"), "one, changed in svn\n") << "rebased";
    EXPECT_NE(git({"log", "-1", "--format=%B", "HEAD"}).find("git-svn-id: " + url + "@4"),
              std::string::npos);
    EXPECT_EQ(git({"status", "--porcelain"}), "");
}

}  // namespace
