// Repository states read from git's own markers, branches and upstreams from reference fields,
// and log fields that no name can shift, over repositories made with the real git.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "base/Json.h"
#include "git/VNGitRemoteInfo.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/FailureCollector.h"
#include "handler/VNTask.h"
#include "model/VNFileStatusEntity.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogLabel.h"
#include "platform/FileSystem.h"
#include "support/HistoryFixtures.h"
#include "support/StatusFixtures.h"

namespace {

using vn::test::chomp;
using vn::test::commitAt;
using vn::test::gitIn;
using vn::test::GitRepository;
using vn::test::tryGit;
using vn::test::UpstreamAndClone;

// "f.txt" changed on "main" and on "topic" differently, from a common commit, and "other.txt"
// changed on "topic" only; "topic" is checked out.
struct DivergedRepository {
    GitRepository repo;
    std::string base, mainTip, topicTip;
    DivergedRepository() {
        base = repo.commitFile("f.txt", "base\n", "base");
        repo.git({"checkout", "-q", "-b", "topic"});
        repo.commitFile("other.txt", "o\n", "other");
        topicTip = repo.commitFile("f.txt", "topic\n", "topic change");
        repo.git({"checkout", "-q", "main"});
        mainTip = repo.commitFile("f.txt", "main\n", "main change");
        repo.git({"checkout", "-q", "topic"});
    }
};

struct StateCase {
    const char* name;
    std::function<void(DivergedRepository&)> make;
    // Expected summary.
    std::string branch;
    bool rebase, am, bisect, cherryPick, revert, merge, detached;
    std::string originalBranch;
};

void expectFails(const std::string& folder, const std::vector<std::string>& args) {
    auto task = tryGit(folder, args);
    EXPECT_FALSE(task->success()) << "git " << ::testing::PrintToString(args)
                                  << " was to stop with a conflict";
}

TEST(RepositoryStates, ReadFromGitsOwnMarkers) {
    const StateCase cases[] = {
        {"rebase (merge backend) with a conflict",
         [](DivergedRepository& r) {
             expectFails(r.repo.path(), {"rebase", "main"});
         },
         "HEAD", true, false, false, false, false, false, true, "topic"},
        {"rebase (merge backend) stopped to edit, no conflict",
         [](DivergedRepository& r) {
             gitIn(r.repo.path(), {"rebase", "-q", "-i", "main"},
                   {{"GIT_SEQUENCE_EDITOR", "sed -i -e 1s/^pick/edit/"}});
         },
         "HEAD", true, false, false, false, false, false, true, "topic"},
        {"rebase (apply backend) with a conflict",
         [](DivergedRepository& r) {
             expectFails(r.repo.path(), {"rebase", "--apply", "main"});
         },
         "HEAD", true, false, false, false, false, false, true, "topic"},
        {"am with a conflict",
         [](DivergedRepository& r) {
             std::string patch = r.repo.file(".git/topic.patch");
             std::string text = r.repo.git({"format-patch", "-1", "--stdout", r.topicTip});
             vn::test::writeFile(patch, text);
             r.repo.git({"checkout", "-q", "main"});
             expectFails(r.repo.path(), {"am", patch});
         },
         "main", false, true, false, false, false, false, false, ""},
        {"bisect",
         [](DivergedRepository& r) {
             r.repo.git({"bisect", "start", "topic", r.base});
         },
         "HEAD", false, false, true, false, false, false, true, "topic"},
        {"cherry-pick with a conflict",
         [](DivergedRepository& r) {
             expectFails(r.repo.path(), {"cherry-pick", r.mainTip});
         },
         "topic", false, false, false, true, false, false, false, ""},
        {"revert with a conflict",
         [](DivergedRepository& r) {
             r.repo.commitFile("f.txt", "later\n", "later");
             expectFails(r.repo.path(), {"revert", "--no-edit", r.topicTip});
         },
         "topic", false, false, false, false, true, false, false, ""},
        {"merge with a conflict",
         [](DivergedRepository& r) {
             expectFails(r.repo.path(), {"merge", "main"});
         },
         "topic", false, false, false, false, false, true, false, ""},
        {"detached HEAD",
         [](DivergedRepository& r) {
             r.repo.git({"checkout", "-q", "--detach", r.base});
         },
         "HEAD", false, false, false, false, false, false, true, ""},
        {"unborn branch trunk",
         [](DivergedRepository& r) {
             r.repo.git({"checkout", "-q", "--orphan", "trunk"});
         },
         "trunk", false, false, false, false, false, false, false, ""},
    };
    auto handler = std::make_shared<VNRepoHandlerGit>();
    for (const StateCase& c : cases) {
        SCOPED_TRACE(c.name);
        DivergedRepository fixture;
        c.make(fixture);
        const std::string& path = fixture.repo.path();
        vn::FailureCollector failures;
        vn::Record summary = handler->summary(path);
        ASSERT_FALSE(summary.empty());
        EXPECT_EQ(summary.string("branch"), c.branch);
        EXPECT_EQ(handler->currentBranch(path), c.branch);
        EXPECT_EQ(summary.boolean("isrebase"), c.rebase);
        EXPECT_EQ(handler->isRebaseInProgress(path), c.rebase);
        EXPECT_EQ(summary.boolean("isam"), c.am);
        EXPECT_EQ(summary.boolean("isbisect"), c.bisect);
        EXPECT_EQ(summary.boolean("ischerrypick"), c.cherryPick);
        EXPECT_EQ(summary.boolean("isrevert"), c.revert);
        EXPECT_EQ(summary.boolean("ismerge"), c.merge);
        EXPECT_EQ(summary.boolean("isdetached"), c.detached);
        EXPECT_EQ(summary.string("originalbranch"), c.originalBranch);
        // What git says of the state in words is never taken for a branch.
        std::vector<std::string> branches = handler->branches(path);
        for (const std::string& branch : branches) {
            EXPECT_EQ(branch.find('('), std::string::npos) << branch;
            EXPECT_EQ(branch.find(' '), std::string::npos) << branch;
        }
        EXPECT_EQ(std::count(branches.begin(), branches.end(), "HEAD"), c.detached ? 1 : 0);
        EXPECT_EQ(std::count(branches.begin(), branches.end(), "topic"), 1);
        EXPECT_TRUE(failures.empty()) << failures.message();
    }
}

TEST(RepositoryStates, UnbornBranchIsNamedAsHeadNamesIt) {
    auto handler = std::make_shared<VNRepoHandlerGit>();
    for (const char* name : {"main", "trunk", "master", "feature/x"}) {
        SCOPED_TRACE(name);
        vn::test::TempDir dir;
        gitIn(dir.path(), {"init", "-q", "-b", name});
        EXPECT_EQ(handler->summary(dir.path()).string("branch"), name);
        EXPECT_TRUE(handler->branches(dir.path()).empty());
    }
}

// A branch without upstream whose subject reads like git's upstream bracket.
TEST(RepositoryStates, UpstreamsComeFromReferenceFieldsNotSubjects) {
    UpstreamAndClone remote;
    const std::string& path = remote.clone;
    gitIn(path, {"checkout", "-q", "-b", "lonely"});
    gitIn(path, {"commit", "-q", "--allow-empty", "-m", "[origin/fake: ahead 99, behind 7] wip"});
    gitIn(path, {"checkout", "-q", "main"});
    gitIn(path, {"commit", "-q", "--allow-empty", "-m", "local"});
    remote.advanceUpstream("upstream work");
    gitIn(path, {"fetch", "-q"});
    auto handler = std::make_shared<VNRepoHandlerGit>();
    vn::Record tracking = handler->trackingBranchesForPull(path);
    EXPECT_EQ(tracking.keys(), std::vector<std::string>{"main"});
    EXPECT_EQ(tracking.string("main"), "origin/main");
    vn::Record counts = handler->branchesWithCommitsAheadBehind(path);
    EXPECT_EQ(counts.keys(), std::vector<std::string>{"main"});
    EXPECT_EQ(counts["main"], vn::Value(vn::Value::Array{1, 1}));
    // The history's labels agree.
    auto rows = handler->logRevisions(path, "", 0, 0, std::string("lonely"),
                                      VNRepoHandlerGit::LogIncludeRemotes);
    ASSERT_FALSE(rows.empty());
    auto entry = rows[0]["descriptionentry"].objectAs<VNLogDescriptionEntry>();
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->description(), "[origin/fake: ahead 99, behind 7] wip");
    for (const auto& label : entry->labels()) {
        EXPECT_EQ(label->annotation(), "") << label->label();
    }
}

TEST(RepositoryStates, RemotesKeepFetchAndPushUrls) {
    UpstreamAndClone remote;
    const std::string& path = remote.clone;
    gitIn(path, {"remote", "set-url", "--push", "origin", "ssh://push.example/r.git"});
    auto handler = std::make_shared<VNRepoHandlerGit>();
    EXPECT_EQ(handler->remoteRepositories(path).string("origin"), remote.url());
    auto info = handler->remoteInfo(path, "origin", false);
    EXPECT_EQ(info->fetchUrl(), remote.url());
    EXPECT_EQ(info->pushUrl(), "ssh://push.example/r.git");
    auto urls = handler->remoteUrls(path);
    ASSERT_EQ(urls.size(), 1u);
    EXPECT_EQ(urls[0]["pushUrls"], vn::Value(vn::Value::Array{"ssh://push.example/r.git"}));
}

TEST(RepositoryStates, TypeChangeIsAChange) {
    GitRepository repo;
    repo.commitFile("link", "plain file\n", "file");
    repo.write("target", "t\n");
    ASSERT_EQ(::unlink(repo.file("link").c_str()), 0);
    ASSERT_EQ(::symlink("target", repo.file("link").c_str()), 0);
    auto handler = std::make_shared<VNRepoHandlerGit>();
    vn::Record summary = handler->summary(repo.path());
    EXPECT_FALSE(summary.boolean("isclean"));
    EXPECT_EQ(summary.integer("numfilesmodified"), 1);
    auto records = vn::test::statusRecordsByPath(handler->fileStatus(repo.path(), 766));
    ASSERT_TRUE(records.count("link"));
    EXPECT_EQ(records["link"].integer("status"), 2);
    EXPECT_EQ(records["link"].integer("treeStatus"), 2);
    EXPECT_FALSE(handler->isClean(repo.path()));
    // Staged, the change is on the index side.
    repo.git({"add", "link"});
    records = vn::test::statusRecordsByPath(handler->fileStatus(repo.path(), 766));
    EXPECT_EQ(records["link"].integer("indexStatus"), 2);
}

// Names and addresses holding the separator symbol, control characters and bytes that are not
// UTF-8 stay in their own fields, in the history, in a search and in the details.
TEST(RepositoryStates, OddAuthorNamesShiftNoField) {
    const std::string names[] = {
        "Sep\xE2\x90\x9E"
        "arated \xE2\x90\x9E Name",
        "Tab\tand \x01\x1f control",
        "Latin-1 J\xF6rg",
        "Quote \" and \\ backslash",
    };
    GitRepository repo;
    std::vector<std::string> commits;
    for (std::size_t i = 0; i < std::size(names); ++i) {
        repo.write("f.txt", std::to_string(i) + "\n");
        repo.git({"add", "f.txt"});
        gitIn(repo.path(), {"commit", "-q", "-m", "subject " + std::to_string(i) + " \xE2\x90\x9E"},
              {{"GIT_AUTHOR_NAME", names[i]},
               {"GIT_AUTHOR_EMAIL",
                "odd\xE2\x90\x9E"
                "mail@x"},
               {"GIT_AUTHOR_DATE", "2024-03-0" + std::to_string(i + 1) + "T12:00:00+05:30"},
               {"GIT_COMMITTER_DATE", "2024-03-0" + std::to_string(i + 1) + "T12:00:00-08:00"}});
        commits.push_back(chomp(repo.git({"rev-parse", "HEAD"})));
    }
    auto handler = std::make_shared<VNRepoHandlerGit>();
    auto rows = handler->logRevisions(repo.path(), "", 0, 0, std::nullopt, 0);
    ASSERT_EQ(rows.size(), std::size(names));
    for (std::size_t i = 0; i < rows.size(); ++i) {
        std::size_t n = rows.size() - 1 - i;
        SCOPED_TRACE(names[n]);
        const vn::Record& row = rows[i];
        EXPECT_EQ(row.string("rev"), commits[n]);
        // Bytes that are not UTF-8 are replaced for display; every other byte is kept.
        if (n != 2) {
            EXPECT_EQ(row.string("user"), names[n] + " <odd\xE2\x90\x9Email@x>");
        }
        EXPECT_EQ(row.string("committer"), "Test Committer <committer@example.com>");
        EXPECT_EQ(row["descriptionentry"].objectAs<VNLogDescriptionEntry>()->description(),
                  "subject " + std::to_string(n) + " \xE2\x90\x9E");
        EXPECT_EQ(vn::toJson(row["date"]),
                  "\"2024-03-0" + std::to_string(n + 1) + "T12:00:00-08:00\"");
        vn::Record details = handler->revisionDetails(repo.path(), commits[n]);
        EXPECT_EQ(vn::toJson(details["authordate"]),
                  "\"2024-03-0" + std::to_string(n + 1) + "T12:00:00+05:30\"");
        EXPECT_EQ(details.string("committer"), row.string("committer"));
    }
    auto search = handler->searchLogTask(repo.path(), "control", VNRepoHandlerGit::SearchAuthor,
                                         vn::Value::Date(), std::chrono::system_clock::now());
    ASSERT_TRUE(search && search->run());
    auto hit = handler->parseLogLine(chomp(search->output()));
    ASSERT_TRUE(hit);
    EXPECT_EQ(hit->string("rev"), commits[1]);
    EXPECT_EQ(hit->string("user"), names[1] + " <odd\xE2\x90\x9Email@x>");
}

TEST(RepositoryStates, BareRepositoryIsReadable) {
    UpstreamAndClone remote;
    auto handler = std::make_shared<VNRepoHandlerGit>();
    EXPECT_TRUE(handler->validateWorkingDirectory(remote.upstream));
    EXPECT_FALSE(handler->validateWorkingDirectory(remote.clone + "/.git"));
    vn::FailureCollector failures;
    auto rows = handler->logRevisions(remote.upstream, "", 0, 0, std::nullopt, 0);
    EXPECT_EQ(rows.size(), 3u);
    EXPECT_EQ(handler->branches(remote.upstream), (std::vector<std::string>{"feature", "main"}));
    EXPECT_FALSE(handler->revisionDetails(remote.upstream, "main").empty());
    EXPECT_TRUE(failures.empty()) << failures.message();
}

}  // namespace
