#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <mutex>

#include "git/VNGitLogParser.h"
#include "git/VNGitRefsParser.h"
#include "git/VNGitRemoteInfo.h"
#include "git/VNRepoHandlerGit.h"
#include "model/VNFileStatusEntity.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogLabel.h"
#include "model/VNLogRowData.h"
#include "platform/FileSystem.h"
#include "platform/Preferences.h"
#include "platform/UserInterface.h"
#include "support/HistoryFixtures.h"

namespace {

using vn::test::chomp;
using vn::test::commitAt;
using vn::test::gitIn;
using vn::test::GitRepository;
using vn::test::TempDir;
using vn::test::UpstreamAndClone;

using Git = VNRepoHandlerGit;

// Counts the alerts the handler shows.
struct CountingUserInterface : vn::UserInterface {
    int showAlert(const vn::Alert& alert) override {
        std::lock_guard<std::mutex> lock(mutex);
        messages.push_back(alert.message);
        return 0;
    }
    std::size_t count() {
        std::lock_guard<std::mutex> lock(mutex);
        return messages.size();
    }
    std::mutex mutex;
    std::vector<std::string> messages;
};

class HistoryTest : public ::testing::Test {
  protected:
    void SetUp() override { vn::UserInterface::install(ui); }
    void TearDown() override {
        vn::UserInterface::install(nullptr);
        vn::Preferences::standard().remove("gitLogUseAuthorDate");
    }

    std::shared_ptr<CountingUserInterface> ui = std::make_shared<CountingUserInterface>();
    std::shared_ptr<Git> git = std::make_shared<Git>();
};

std::shared_ptr<const VNLogDescriptionEntry> entryOf(const vn::Record& row) {
    return row["descriptionentry"].objectAs<VNLogDescriptionEntry>();
}

std::string subjectOf(const vn::Record& row) {
    auto entry = entryOf(row);
    return entry ? entry->description() : "";
}

std::vector<std::string> subjects(const std::vector<vn::Record>& rows) {
    std::vector<std::string> result;
    for (const vn::Record& row : rows) {
        result.push_back(subjectOf(row));
    }
    return result;
}

// "name:type" for each label of the row, with "*" for the current branch and the annotation.
std::vector<std::string> labelsOf(const vn::Record& row) {
    std::vector<std::string> result;
    for (const auto& label : entryOf(row)->labels()) {
        std::string text = label->label() + ":" + std::to_string(label->type());
        if (label->currentMarker()) {
            text += "*";
        }
        if (!label->annotation().empty()) {
            text += "[" + label->annotation() + "]";
        }
        result.push_back(text);
    }
    return result;
}

const vn::Record* rowFor(const std::vector<vn::Record>& rows, const std::string& hash) {
    for (const vn::Record& row : rows) {
        if (row.string("rev") == hash) {
            return &row;
        }
    }
    return nullptr;
}

// ---- Log listing -------------------------------------------------------------------------------

TEST_F(HistoryTest, LabelsForBranchesRemoteBranchesTagsAndDetachedHead) {
    UpstreamAndClone remote;
    const std::string& path = remote.clone;
    std::string two = chomp(gitIn(path, {"rev-parse", "origin/main"}));
    std::string three = chomp(gitIn(path, {"rev-parse", "origin/feature"}));
    gitIn(path, {"tag", "-a", "-m", "release", "v1", two});
    gitIn(path, {"tag", "light", two});
    vn::test::writeFile(path + "/c.txt", "c\n");
    gitIn(path, {"add", "c.txt"});
    gitIn(path, {"commit", "-q", "-m", "four"}, {{"GIT_COMMITTER_DATE", "2024-03-01T00:00:00Z"}});
    std::string four = chomp(gitIn(path, {"rev-parse", "HEAD"}));

    auto rows = git->logRevisions(path, "", 0, 0, std::nullopt, Git::LogIncludeRemotes);
    EXPECT_EQ(subjects(rows), (std::vector<std::string>{"four", "three", "two", "one"}));
    ASSERT_TRUE(rowFor(rows, four));
    EXPECT_EQ(labelsOf(*rowFor(rows, four)), (std::vector<std::string>{"main:0*[1 ahead]"}));
    EXPECT_EQ(labelsOf(*rowFor(rows, three)), (std::vector<std::string>{"origin/feature:2"}));
    EXPECT_EQ(labelsOf(*rowFor(rows, two)),
              (std::vector<std::string>{"v1:1", "light:1", "origin/main:2", "origin/HEAD:2"}));

    // Without the remote bit the remote-only branch is not listed at all.
    auto local = git->logRevisions(path, "", 0, 0, std::nullopt, 0);
    EXPECT_EQ(subjects(local), (std::vector<std::string>{"four", "two", "one"}));
    EXPECT_EQ(labelsOf(*rowFor(local, two)),
              (std::vector<std::string>{"v1:1", "light:1", "origin/main:2", "origin/HEAD:2"}));

    gitIn(path, {"checkout", "-q", "--detach", two});
    auto detached = git->logRevisions(path, "", 0, 0, std::nullopt, 0);
    EXPECT_EQ(labelsOf(*rowFor(detached, two)).front(), "HEAD:1");
    EXPECT_EQ(labelsOf(*rowFor(detached, four)), (std::vector<std::string>{"main:0[1 ahead]"}));
    EXPECT_EQ(ui->count(), 0u);
}

TEST_F(HistoryTest, AheadAndBehindAgainstARealUpstream) {
    UpstreamAndClone remote;
    const std::string& path = remote.clone;
    gitIn(path, {"branch", "--track", "feature", "origin/feature"});
    gitIn(path, {"commit", "-q", "--allow-empty", "-m", "local 1"},
          {{"GIT_COMMITTER_DATE", "2024-03-01T00:00:00Z"}});
    gitIn(path, {"commit", "-q", "--allow-empty", "-m", "local 2"},
          {{"GIT_COMMITTER_DATE", "2024-03-02T00:00:00Z"}});
    remote.advanceUpstream("remote 1");
    gitIn(path, {"fetch", "-q"});

    vn::Record counts = git->branchesWithCommitsAheadBehind(path);
    EXPECT_EQ(counts.keys(), (std::vector<std::string>{"main"}));
    EXPECT_EQ(counts["main"], (vn::Value(vn::Value::Array{2, 1})));
    vn::Record upstreams = git->trackingBranchesForPull(path);
    EXPECT_EQ(upstreams.string("main"), "origin/main");
    EXPECT_EQ(upstreams.string("feature"), "origin/feature");

    auto rows = git->logRevisions(path, "", 0, 1, std::nullopt, 0);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(labelsOf(rows[0]), (std::vector<std::string>{"main:0*[2 ahead 1 behind]"}));

    // A branch and its remote: the upstream's commits are part of the page.
    auto withUpstream =
        git->logRevisions(path, "", 0, 0, std::string("main"), Git::LogIncludeRemotes);
    EXPECT_EQ(subjects(withUpstream).size(), 5u);
    auto branchOnly = git->logRevisions(path, "", 0, 0, std::string("main"), 0);
    EXPECT_EQ(subjects(branchOnly), (std::vector<std::string>{"local 2", "local 1", "two", "one"}));
}

TEST_F(HistoryTest, OctopusMergeAndRootCommit) {
    GitRepository repo;
    std::string root = repo.commitFile("base.txt", "base\n", "root");
    std::vector<std::string> tips;
    for (std::string name : {"a", "b"}) {
        repo.git({"checkout", "-q", "-b", name, root});
        tips.push_back(repo.commitFile(name + ".txt", name + "\n", "on " + name));
    }
    repo.git({"checkout", "-q", "main"});
    std::string mainWork = repo.commitFile("main.txt", "m\n", "main work");
    repo.git({"merge", "-q", "--no-edit", "a", "b"});
    std::string merge = chomp(repo.git({"rev-parse", "HEAD"}));
    EXPECT_EQ(git->parentRevisions(repo.path(), merge),
              (std::vector<std::string>{mainWork, tips[0], tips[1]}));

    auto rows = git->logRevisions(repo.path(), "", 0, 0, std::nullopt, 0);
    const vn::Record* octopus = rowFor(rows, merge);
    ASSERT_TRUE(octopus);
    EXPECT_EQ(octopus->string("parentid1"), mainWork);
    EXPECT_EQ(octopus->string("parentid2"), tips[0]);
    ASSERT_EQ((*octopus)["otherparentids"].array()->size(), 1u);
    EXPECT_EQ((*octopus)["otherparentids"].array()->at(0).toString(), tips[1]);
    const vn::Record* first = rowFor(rows, root);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->string("parentid1"), "");
    EXPECT_EQ(first->string("parentid2"), "");
    EXPECT_TRUE((*first)["otherparentids"].array()->empty());
    EXPECT_TRUE(git->parentRevisions(repo.path(), root).empty());

    // First parents only: the merged branches' own commits drop out.
    auto firstParent =
        git->logRevisions(repo.path(), "", 0, 0, std::string("main"), Git::LogFirstParent);
    EXPECT_EQ(subjects(firstParent),
              (std::vector<std::string>{subjectOf(*octopus), "main work", "root"}));
}

TEST_F(HistoryTest, SubjectWithTheSeparatorAndMessagesThatAreNotUtf8) {
    GitRepository repo;
    const std::string sep(VNGitLogParser::FieldSeparator);
    repo.commitFile("a.txt", "1\n", "first");
    repo.commitFile("a.txt", "2\n", "fields " + sep + " inside " + sep + " the subject");
    // Declared as Latin-1: git converts it for the log.
    repo.write("a.txt", "3\n");
    repo.git({"add", "a.txt"});
    vn::test::writeFile(repo.file(".git/latin1"), "caf\xE9 d\xE9j\xE0 vu\n");
    repo.git(
        {"-c", "i18n.commitEncoding=ISO-8859-1", "commit", "-q", "-F", repo.file(".git/latin1")});
    // Raw bytes without any declaration: git reads them as Latin-1 for the log.
    std::string head = chomp(repo.git({"rev-parse", "HEAD"}));
    vn::test::commitRawMessage(repo, {head}, "broken \xFF\xFE bytes\n\nbody \xE9\n");
    std::string after = repo.commitFile("a.txt", "5\n", "after");
    // Reference names are printed as the bytes they are: the log output is not UTF-8.
    repo.git({"branch", "caf\xE9", after});

    auto rows = git->logRevisions(repo.path(), "", 0, 0, std::nullopt, 0);
    ASSERT_EQ(rows.size(), 5u);
    EXPECT_EQ(subjectOf(rows[0]), "after");
    EXPECT_EQ(labelsOf(rows[0]), (std::vector<std::string>{"main:0*", "caf\xEF\xBF\xBD:0"}));
    EXPECT_EQ(subjectOf(rows[1]), "broken \xC3\xBF\xC3\xBE bytes");
    // One bad name must not turn the rest of the page into another encoding.
    EXPECT_EQ(subjectOf(rows[2]), "caf\xC3\xA9 d\xC3\xA9j\xC3\xA0 vu");
    EXPECT_EQ(subjectOf(rows[3]), "fields " + sep + " inside " + sep + " the subject");
    EXPECT_EQ(subjectOf(rows[4]), "first");

    vn::Record details = git->revisionDetails(repo.path(), after);
    EXPECT_EQ(labelsOf(details), (std::vector<std::string>{"main:0*", "caf\xEF\xBF\xBD:0"}));
    EXPECT_EQ(git->revisionDetails(repo.path(), rows[2].string("rev")).string("message"),
              "caf\xC3\xA9 d\xC3\xA9j\xC3\xA0 vu");
}

TEST_F(HistoryTest, PagesWithSkipAndLimit) {
    GitRepository repo;
    for (int i = 1; i <= 7; ++i) {
        commitAt(repo, "f.txt", std::to_string(i), "c" + std::to_string(i),
                 "2024-03-0" + std::to_string(i) + "T10:00:00Z");
    }
    EXPECT_EQ(subjects(git->logRevisions(repo.path(), "", 0, 3, std::nullopt, 0)),
              (std::vector<std::string>{"c7", "c6", "c5"}));
    EXPECT_EQ(subjects(git->logRevisions(repo.path(), "", 3, 3, std::nullopt, 0)),
              (std::vector<std::string>{"c4", "c3", "c2"}));
    EXPECT_EQ(subjects(git->logRevisions(repo.path(), "", 6, 3, std::nullopt, 0)),
              (std::vector<std::string>{"c1"}));

    VNLogRowData page;
    page.setSkip(3);
    page.setLimit(3);
    git->fillLogPage(repo.path(), page);
    EXPECT_TRUE(page.moreRevisions());
    EXPECT_FALSE(page.currentBranchFound());
    page.setSkip(6);
    git->fillLogPage(repo.path(), page);
    EXPECT_FALSE(page.moreRevisions());
    page.setSkip(0);
    git->fillLogPage(repo.path(), page);
    EXPECT_TRUE(page.currentBranchFound());
    EXPECT_EQ(page.currentBranch(), "main");
    EXPECT_EQ(git->revisionCount(repo.path()), 7u);
}

TEST_F(HistoryTest, TopologicalOrderKeepsBranchesTogether) {
    GitRepository repo;
    std::string base = commitAt(repo, "f", "0", "base", "2024-01-01T00:00:00Z");
    repo.git({"checkout", "-q", "-b", "side"});
    commitAt(repo, "s", "1", "side 1", "2024-01-02T00:00:00Z");
    repo.git({"checkout", "-q", "main"});
    commitAt(repo, "m", "1", "main 1", "2024-01-03T00:00:00Z");
    repo.git({"checkout", "-q", "side"});
    commitAt(repo, "s", "2", "side 2", "2024-01-04T00:00:00Z");
    repo.git({"checkout", "-q", "main"});
    EXPECT_EQ(subjects(git->logRevisions(repo.path(), "", 0, 0, std::nullopt, 0)),
              (std::vector<std::string>{"side 2", "main 1", "side 1", "base"}));
    auto topo = subjects(git->logRevisions(repo.path(), "", 0, 0, std::nullopt, Git::LogTopoOrder));
    ASSERT_EQ(topo.size(), 4u);
    // The two commits of each branch are next to each other.
    auto at = [&](const std::string& s) {
        return std::find(topo.begin(), topo.end(), s) - topo.begin();
    };
    EXPECT_EQ(std::abs(at("side 2") - at("side 1")), 1);
    EXPECT_EQ(topo.back(), "base");
}

TEST_F(HistoryTest, PendingMergeHeadShowsTheCommitsBeingMerged) {
    GitRepository repo;
    repo.commitFile("f.txt", "base\n", "base");
    repo.git({"checkout", "-q", "-b", "temp"});
    std::string theirs = repo.commitFile("f.txt", "theirs\n", "theirs");
    repo.git({"checkout", "-q", "main"});
    repo.commitFile("f.txt", "ours\n", "ours");
    repo.git({"branch", "-q", "-D", "temp"});
    // A conflict leaves the merge outstanding with MERGE_HEAD naming a commit no branch holds.
    auto task = vn::test::runProgram(repo.path(), "git", {"merge", "--no-edit", theirs});
    ASSERT_FALSE(task->success());
    ASSERT_TRUE(git->isMergeOutstanding(repo.path()));

    auto rows = git->logRevisions(repo.path(), "", 0, 0, std::nullopt, 0);
    EXPECT_TRUE(rowFor(rows, theirs));
    auto without = git->logRevisions(repo.path(), "", 0, 0, std::nullopt, Git::LogWithoutMergeHead);
    EXPECT_FALSE(rowFor(without, theirs));
    EXPECT_EQ(without.size(), 2u);
}

TEST_F(HistoryTest, AuthorDatePreference) {
    GitRepository repo;
    commitAt(repo, "f", "1", "dated", "2020-05-06T07:08:09Z", "2022-01-01T00:00:00Z");
    auto committer = git->logRevisions(repo.path(), "", 0, 0, std::nullopt, 0);
    ASSERT_EQ(committer.size(), 1u);
    auto seconds = [](const vn::Value& value) {
        return std::chrono::system_clock::to_time_t(*value.date());
    };
    // TZ is UTC in tests, so local time and the dates given agree.
    EXPECT_EQ(seconds(committer[0]["date"]), 1640995200);
    vn::Preferences::standard().set("gitLogUseAuthorDate", true);
    auto author = git->logRevisions(repo.path(), "", 0, 0, std::nullopt, 0);
    EXPECT_EQ(seconds(author[0]["date"]), 1588748889);
    // Search hits always carry the committer date.
    auto search = git->searchLogTask(repo.path(), "dated", Git::SearchMessage,
                                     std::chrono::system_clock::from_time_t(0),
                                     std::chrono::system_clock::now());
    ASSERT_TRUE(search->run());
    auto hit = git->parseLogLine(chomp(search->output()));
    ASSERT_TRUE(hit);
    EXPECT_EQ(seconds((*hit)["date"]), 1640995200);
}

TEST_F(HistoryTest, EmptyRepositoryIsNoError) {
    GitRepository repo;
    EXPECT_TRUE(git->logRevisions(repo.path(), "", 0, 100, std::nullopt, 0).empty());
    EXPECT_EQ(git->revisionCount(repo.path()), 0u);
    EXPECT_EQ(git->currentRevision(repo.path()), "");
    EXPECT_EQ(git->latestRevision(repo.path()), "");
    EXPECT_TRUE(git->lastCommitDetails(repo.path()).empty());
    EXPECT_TRUE(git->branches(repo.path()).empty());
    EXPECT_EQ(ui->count(), 0u);
}

TEST_F(HistoryTest, BadBranchIsShownToTheUser) {
    GitRepository repo;
    repo.commitFile("f", "1", "one");
    EXPECT_TRUE(git->logRevisions(repo.path(), "", 0, 0, std::string("no-such-branch"), 0).empty());
    EXPECT_EQ(ui->count(), 1u);
    // A branch named like an option is still a revision.
    EXPECT_TRUE(git->logRevisions(repo.path(), "", 0, 0, std::string("--output=x"), 0).empty());
    EXPECT_FALSE(std::filesystem::exists(repo.file("x")));
}

TEST_F(HistoryTest, FileHistoryFollowsRenames) {
    GitRepository repo;
    repo.commitFile("old name.txt", "some content that stays\nline 2\nline 3\n", "create");
    repo.commitFile("other.txt", "x", "unrelated");
    repo.git({"mv", "old name.txt", "new name.txt"});
    repo.git({"commit", "-q", "-m", "rename"});
    repo.commitFile("new name.txt", "some content that stays\nline 2\nline 3\nline 4\n", "edit");
    EXPECT_EQ(subjects(git->logRevisions(repo.path(), {"new name.txt"}, 0, true)),
              (std::vector<std::string>{"edit", "rename", "create"}));
    EXPECT_EQ(subjects(git->logRevisions(repo.path(), {"new name.txt"}, 0, false)),
              (std::vector<std::string>{"edit", "rename"}));
    EXPECT_EQ(subjects(git->logRevisions(repo.path(), {repo.file("other.txt")}, 1, false)),
              (std::vector<std::string>{"unrelated"}));
}

// ---- Search ------------------------------------------------------------------------------------

TEST_F(HistoryTest, SearchInEveryMode) {
    GitRepository repo;
    std::string first =
        commitAt(repo, "a.txt", "needle here\n", "Add the Needle", "2021-01-01T00:00:00Z");
    vn::test::gitIn(repo.path(), {"commit", "-q", "--allow-empty", "-m", "by someone else"},
                    {{"GIT_AUTHOR_NAME", "Zelda Zed"},
                     {"GIT_AUTHOR_EMAIL", "zelda@example.com"},
                     {"GIT_AUTHOR_DATE", "2021-06-01T00:00:00Z"},
                     {"GIT_COMMITTER_DATE", "2021-06-01T00:00:00Z"}});
    commitAt(repo, "a.txt", "gone\n", "remove it", "2022-01-01T00:00:00Z");
    repo.git({"checkout", "-q", "-b", "topic"});
    std::string topic = commitAt(repo, "t.txt", "t\n", "topic work", "2023-01-01T00:00:00Z");
    repo.git({"checkout", "-q", "main"});

    auto search = [&](const std::string& pattern, uint32_t mode,
                      vn::Value::Date from = std::chrono::system_clock::from_time_t(0)) {
        auto task =
            git->searchLogTask(repo.path(), pattern, mode, from, std::chrono::system_clock::now());
        EXPECT_TRUE(task);
        EXPECT_FALSE(task->isRunning());
        EXPECT_TRUE(task->lossyUTF8Output());
        if (!task || !task->run()) {
            ADD_FAILURE() << (task ? task->errorOutput() : "no task");
            return std::vector<std::string>();
        }
        std::vector<std::string> found;
        for (std::string_view line : VNGitRefsParser::lines(task->output())) {
            if (auto row = git->parseLogLine(std::string(line))) {
                found.push_back(subjectOf(*row));
            }
        }
        return found;
    };
    // Case does not matter for messages and authors.
    EXPECT_EQ(search("needle", Git::SearchMessage), (std::vector<std::string>{"Add the Needle"}));
    EXPECT_EQ(search("ZELDA", Git::SearchAuthor), (std::vector<std::string>{"by someone else"}));
    // Content: the commits that added or removed the text, on every branch.
    EXPECT_EQ(search("needle", Git::SearchContent),
              (std::vector<std::string>{"remove it", "Add the Needle"}));
    EXPECT_EQ(search("work", Git::SearchMessage), (std::vector<std::string>{"topic work"}));
    EXPECT_EQ(search(first, Git::SearchHash), (std::vector<std::string>{"Add the Needle"}));
    EXPECT_EQ(search(first.substr(0, 9), Git::SearchHash),
              (std::vector<std::string>{"Add the Needle"}));
    // A range: what the branch has that HEAD has not.
    EXPECT_EQ(search("topic", Git::SearchRange), (std::vector<std::string>{"topic work"}));
    // Dates limit the search.
    auto since2022 = std::chrono::system_clock::from_time_t(1640995200 + 86400);
    EXPECT_EQ(search("o", Git::SearchMessage, since2022), (std::vector<std::string>{"topic work"}));
    EXPECT_FALSE(git->searchLogTask(repo.path(), "x", 3, std::chrono::system_clock::now(),
                                    std::chrono::system_clock::now()));
    // A pattern cannot become an option of git.
    auto hostile = git->searchLogTask(repo.path(), "--output=" + repo.file("leak"), Git::SearchHash,
                                      std::chrono::system_clock::from_time_t(0),
                                      std::chrono::system_clock::now());
    hostile->run();
    EXPECT_FALSE(std::filesystem::exists(repo.file("leak")));
    (void)topic;
}

TEST_F(HistoryTest, SearchDatesAreClamped) {
    GitRepository repo;
    auto argsOf = [&](vn::Value::Date from, vn::Value::Date to) {
        return git->searchLogTask(repo.path(), "x", Git::SearchMessage, from, to)->args();
    };
    auto contains = [](const std::vector<std::string>& args, const std::string& word) {
        return std::find(args.begin(), args.end(), word) != args.end();
    };
    auto now = std::chrono::system_clock::now();
    auto dayText = [&](vn::Value::Date date) { return git->searchDateFormatter()(date); };
    auto args =
        argsOf(std::chrono::system_clock::from_time_t(0), now + std::chrono::hours(24 * 365));
    EXPECT_TRUE(contains(args, "--since=1980-01-01"));
    EXPECT_TRUE(contains(args, "--until=" + dayText(now + std::chrono::seconds(172800))));
    auto inside = argsOf(std::chrono::system_clock::from_time_t(1000000000), now);
    EXPECT_TRUE(contains(inside, "--since=2001-09-09"));
    EXPECT_TRUE(contains(inside, "--until=" + dayText(now)));
}

// ---- Revisions ---------------------------------------------------------------------------------

TEST_F(HistoryTest, RevisionDetailsAndFileChanges) {
    GitRepository repo;
    std::string root = repo.commitFile("dir/keep.txt", "keep\n", "root");
    repo.write("gone.txt", "bye\n");
    repo.write("old name.txt", "a fairly long text that survives a rename intact\n");
    repo.git({"add", "."});
    repo.git({"commit", "-q", "-m", "add files"});
    repo.git({"rm", "-q", "gone.txt"});
    repo.git({"mv", "old name.txt", "dir/new \"name\".txt"});
    repo.write("dir/keep.txt", "changed\n");
    repo.write("added.txt", "new\n");
    repo.git({"add", "."});
    vn::test::gitIn(repo.path(),
                    {"commit", "-q", "-m", "Rework files\n\nWith a body\nof two lines."},
                    {{"GIT_AUTHOR_DATE", "2020-01-01T00:00:00Z"},
                     {"GIT_COMMITTER_DATE", "2021-01-01T00:00:00Z"}});
    repo.git({"tag", "-a", "-m", "t", "rel"});
    std::string head = chomp(repo.git({"rev-parse", "HEAD"}));

    vn::Record details = git->revisionDetails(repo.path(), "rel");
    EXPECT_EQ(details.string("rev"), head);
    EXPECT_EQ(details.string("message"), "Rework files\n\nWith a body\nof two lines.");
    EXPECT_EQ(subjectOf(details), "Rework files");
    EXPECT_EQ(details.string("user"), "Test Author <author@example.com>");
    EXPECT_EQ(details.string("committer"), "Test Committer <committer@example.com>");
    EXPECT_EQ(std::chrono::system_clock::to_time_t(*details["authordate"].date()), 1577836800);
    EXPECT_EQ(std::chrono::system_clock::to_time_t(*details["committerdate"].date()), 1609459200);
    EXPECT_EQ(labelsOf(details), (std::vector<std::string>{"main:0*", "rel:1"}));
    ASSERT_EQ(details["parents"].array()->size(), 1u);
    EXPECT_EQ(git->lastCommitDetails(repo.path()).string("rev"), head);
    EXPECT_TRUE(git->revisionDetails(repo.path(), "nope").empty());

    auto changes = git->revisionFileChanges(repo.path(), head);
    std::map<std::string, std::pair<int64_t, std::string>> byPath;
    for (const vn::Record& change : changes) {
        std::string folder = change.string("path");
        std::string full = (folder.empty() ? "" : folder + "/") + change.string("filename");
        byPath[full] = {change.integer("status"), change.string("previousName")};
        EXPECT_EQ(change.integer("treeStatus"), static_cast<int64_t>(VNFileStatusClean));
    }
    using P = std::pair<int64_t, std::string>;
    EXPECT_EQ(byPath, (std::map<std::string, P>{
                          {"added.txt", P{VNFileStatusAdded, ""}},
                          {"dir/keep.txt", P{VNFileStatusModified, ""}},
                          {"dir/new \"name\".txt", P{VNFileStatusRenamed, "old name.txt"}},
                          {"gone.txt", P{VNFileStatusRemoved, ""}},
                      }));
    auto rootChanges = git->revisionFileChanges(repo.path(), root);
    ASSERT_EQ(rootChanges.size(), 1u);
    EXPECT_EQ(rootChanges[0].integer("status"), static_cast<int64_t>(VNFileStatusAdded));
    // From the root the renamed file is simply new, and the deleted one never existed.
    EXPECT_EQ(git->revisionRangeFileChanges(repo.path(), root, head).size(), 3u);

    vn::Record messages = git->fullCommitMessages(repo.path(), {head, root});
    EXPECT_EQ(messages.keys(), (std::vector<std::string>{head, root}));
    EXPECT_EQ(messages.string(head), "Rework files\n\nWith a body\nof two lines.");
    EXPECT_EQ(messages.string(root), "root");
}

TEST_F(HistoryTest, MergeChangesAreAgainstTheFirstParent) {
    GitRepository repo;
    repo.commitFile("base", "b", "base");
    repo.git({"checkout", "-q", "-b", "side"});
    repo.commitFile("side.txt", "s", "side");
    repo.git({"checkout", "-q", "main"});
    repo.commitFile("main.txt", "m", "main");
    repo.git({"merge", "-q", "--no-edit", "side"});
    auto changes = git->revisionFileChanges(repo.path(), "HEAD");
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].string("filename"), "side.txt");
}

TEST_F(HistoryTest, RevisionQueries) {
    GitRepository repo;
    std::string one = repo.commitFile("f", "1", "one");
    std::string two = repo.commitFile("f", "2", "two");
    repo.git({"tag", "-a", "-m", "annotated", "v1", one});
    EXPECT_EQ(git->currentRevision(repo.path()), two);
    EXPECT_EQ(git->latestRevision(repo.path()), two);
    EXPECT_TRUE(git->revisionIsValid(repo.path(), "v1"));
    EXPECT_TRUE(git->revisionIsValid(repo.path(), two.substr(0, 10)));
    EXPECT_FALSE(git->revisionIsValid(repo.path(), "v2"));
    EXPECT_FALSE(git->revisionIsValid(repo.path(), "--all"));
    EXPECT_FALSE(git->revisionIsValid(repo.path(), ""));
    // An annotated tag gives its commit, not the tag object.
    EXPECT_EQ(git->getCommitSHA(repo.path(), "v1"), one);
    EXPECT_EQ(git->getCommitSHA(repo.path(), "main"), two);
    EXPECT_EQ(git->getCommitSHA(repo.path(), "nope"), std::nullopt);
    EXPECT_EQ(git->parentRevisions(repo.path(), two), (std::vector<std::string>{one}));
}

TEST_F(HistoryTest, Blame) {
    GitRepository repo;
    std::string first = commitAt(repo, "f.txt", "alpha\nbeta\n", "first", "2020-01-01T00:00:00Z");
    vn::test::gitIn(repo.path(), {"config", "core.autocrlf", "false"});
    repo.write("f.txt", "alpha\n\tbeta changed\ngamma\n");
    repo.git({"add", "f.txt"});
    vn::test::gitIn(repo.path(), {"commit", "-q", "-m", "second"},
                    {{"GIT_AUTHOR_NAME", "Zoe \"Z\" Z"}, {"GIT_AUTHOR_EMAIL", "z@x"}});
    std::string second = chomp(repo.git({"rev-parse", "HEAD"}));
    repo.write("f.txt", "alpha\n\tbeta changed\ngamma\nuncommitted\n");

    auto lines = git->blame(repo.path(), "f.txt", std::nullopt);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].string("rev"), first);
    EXPECT_EQ(lines[0].integer("line"), 1);
    EXPECT_EQ(lines[0].string("user"), "Test Author <author@example.com>");
    EXPECT_EQ(std::chrono::system_clock::to_time_t(*lines[0]["date"].date()), 1577836800);
    EXPECT_EQ(lines[1].string("rev"), second);
    EXPECT_EQ(lines[1].string("linecontents"), "\tbeta changed");
    EXPECT_EQ(lines[1].string("user"), "Zoe \"Z\" Z <z@x>");
    EXPECT_TRUE(second.starts_with(lines[1].string("changesetshort")));
    EXPECT_EQ(lines[3].string("rev"), std::string(40, '0'));
    EXPECT_EQ(lines[3].string("linecontents"), "uncommitted");

    auto old = git->blame(repo.path(), repo.file("f.txt"), first);
    ASSERT_EQ(old.size(), 2u);
    EXPECT_EQ(old[1].string("linecontents"), "beta");
    EXPECT_TRUE(git->blame(repo.path(), "missing.txt", std::nullopt).empty());
}

TEST_F(HistoryTest, ExportFileContentAtRevision) {
    GitRepository repo;
    std::string binary("\x00\x01\xFF\xFE text \r\n\x80", 12);
    std::string one = repo.commitFile("data.bin", binary, "binary");
    repo.commitFile("data.bin", "later", "later");
    TempDir out;
    std::string destination = out.file("exported.bin");
    vn::test::writeFile(destination, "old contents");
    ASSERT_TRUE(git->exportFileContentAtRevision(repo.path(), "data.bin", one, destination));
    EXPECT_EQ(vn::test::readFile(destination), binary);
    // A failed export leaves the destination as it was and no temporary file behind.
    EXPECT_FALSE(git->exportFileContentAtRevision(repo.path(), "absent", one, destination));
    EXPECT_EQ(vn::test::readFile(destination), binary);
    std::size_t files = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(out.path())) {
        ++files;
    }
    EXPECT_EQ(files, 1u);
}

// ---- References --------------------------------------------------------------------------------

TEST_F(HistoryTest, BranchesTagsLabelsAndStashes) {
    GitRepository repo;
    commitAt(repo, "f", "1", "one", "2020-01-01T00:00:00Z");
    repo.git({"branch", "older"});
    repo.git({"tag", "t-old"});
    commitAt(repo, "f", "2", "two", "2021-01-01T00:00:00Z");
    repo.git({"checkout", "-q", "-b", "newest"});
    commitAt(repo, "f", "3", "three", "2022-01-01T00:00:00Z");
    vn::test::gitIn(repo.path(), {"tag", "-a", "-m", "m", "t-new"},
                    {{"GIT_COMMITTER_DATE", "2023-01-01T00:00:00Z"}});
    repo.git({"checkout", "-q", "main"});

    EXPECT_EQ(git->branches(repo.path()), (std::vector<std::string>{"main", "newest", "older"}));
    EXPECT_EQ(git->branchesSortedByMostRecentFirst(repo.path()),
              (std::vector<std::string>{"newest", "main", "older"}));
    EXPECT_EQ(git->tags(repo.path()), (std::vector<std::string>{"t-new", "t-old"}));
    EXPECT_EQ(git->tagsSortedByMostRecentFirst(repo.path()),
              (std::vector<std::string>{"t-new", "t-old"}));

    auto labels = git->allRevisionLabels(repo.path(), 0);
    std::vector<std::string> names;
    for (const auto& label : labels) {
        names.push_back(label->label() + (label->currentMarker() ? "*" : ""));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"main*", "newest", "older", "t-new", "t-old"}));
    EXPECT_EQ(labels[3]->commitSHA(), *git->getCommitSHA(repo.path(), "newest"));

    repo.git({"checkout", "-q", "--detach"});
    EXPECT_EQ(git->branches(repo.path()).front(), "HEAD");

    repo.git({"checkout", "-q", "main"});
    repo.write("f", "dirty");
    repo.git({"stash", "push", "-q", "-m", "first stash"});
    repo.write("f", "dirtier");
    repo.git({"stash", "push", "-q"});
    auto stashes = git->listStashes(repo.path());
    ASSERT_EQ(stashes.size(), 2u);
    EXPECT_EQ(stashes[0].string("name"), "stash@{0}");
    EXPECT_TRUE(stashes[0].string("msg").starts_with("WIP on main"));
    EXPECT_EQ(stashes[1].string("name"), "stash@{1}");
    EXPECT_EQ(stashes[1].string("msg"), "On main: first stash");
}

TEST_F(HistoryTest, RemotesAddChangeAndRemove) {
    UpstreamAndClone remote;
    const std::string& path = remote.clone;
    EXPECT_EQ(git->remoteRepositories(path).string("origin"), remote.url());
    gitIn(path, {"remote", "set-url", "--push", "origin", "/somewhere/else"});
    // The remote's URL stays where it fetches from; the push URL is kept beside it.
    EXPECT_EQ(git->remoteRepositories(path).string("origin"), remote.url());
    auto urls = git->remoteUrls(path);
    ASSERT_EQ(urls.size(), 1u);
    EXPECT_EQ(urls[0].string("fetchUrl"), remote.url());
    EXPECT_EQ(urls[0]["pushUrls"], vn::Value(vn::Value::Array{"/somewhere/else"}));
    auto paths = git->remotePaths(path);
    ASSERT_EQ(paths.size(), 1u);
    EXPECT_EQ(paths[0].string("path"), remote.url());

    EXPECT_TRUE(git->setRemotePaths(
        path, {vn::Record{{"name", "origin"}, {"path", remote.url()}},
               vn::Record{{"name", "second"}, {"path", "/srv/with space/repo.git"}}}));
    EXPECT_TRUE(
        git->setRemotePaths(path, {vn::Record{{"name", "second"}, {"path", "/srv/moved"}}}));
    paths = git->remotePaths(path);
    ASSERT_EQ(paths.size(), 2u);
    EXPECT_EQ(paths[1].string("name"), "second");
    EXPECT_EQ(paths[1].string("path"), "/srv/moved");
    EXPECT_FALSE(git->setRemotePaths(path, {vn::Record{{"name", ""}, {"path", "/x"}}}));
    EXPECT_FALSE(git->setRemotePaths(path, {vn::Record{{"name", "bad name"}, {"path", "/x"}}}));
    EXPECT_EQ(ui->count(), 1u);

    EXPECT_EQ(git->remoteBranches(path),
              (std::vector<std::string>{"origin/feature", "origin/main"}));
    EXPECT_TRUE(git->removeRemote(path, "second"));
    EXPECT_FALSE(git->removeRemote(path, "second"));
    EXPECT_EQ(git->remotePaths(path).size(), 1u);
}

TEST_F(HistoryTest, RemoteShowWithAndWithoutContactingTheRemote) {
    UpstreamAndClone remote;
    const std::string& path = remote.clone;
    gitIn(path, {"branch", "--track", "feat", "origin/feature"});
    // A branch that appeared on the remote after the clone is only known by asking it.
    gitIn(remote.upstream, {"branch", "late", "main"});

    auto offline = git->remoteInfo(path, "origin", false);
    EXPECT_EQ(offline->name(), "origin");
    EXPECT_EQ(offline->fetchUrl(), remote.url());
    EXPECT_EQ(offline->pushUrl(), remote.url());
    EXPECT_EQ(offline->headBranch(), "");
    EXPECT_EQ(offline->remoteBranches(), (std::vector<std::string>{"feature", "main"}));
    EXPECT_EQ(offline->localToRemoteBranchPull(),
              (VNGitRemoteInfo::BranchMap{{"feat", "feature"}, {"main", "main"}}));
    // git's default push rule ("simple") pushes the checked-out branch to its namesake.
    EXPECT_EQ(offline->localToRemoteBranchPush(), (VNGitRemoteInfo::BranchMap{{"main", "main"}}));

    auto online = git->remoteInfo(path, "origin", true);
    EXPECT_EQ(online->headBranch(), "main");
    EXPECT_EQ(online->remoteBranches(), (std::vector<std::string>{"feature", "late", "main"}));
    EXPECT_EQ(online->localToRemoteBranchPush(), (VNGitRemoteInfo::BranchMap{{"main", "main"}}));

    // On "feat", whose upstream is named differently, "simple" refuses and "upstream" pushes
    // to the upstream.
    gitIn(path, {"checkout", "-q", "feat"});
    EXPECT_TRUE(git->remoteInfo(path, "origin", false)->localToRemoteBranchPush().empty());
    gitIn(path, {"config", "push.default", "upstream"});
    EXPECT_EQ(git->remoteInfo(path, "origin", false)->localToRemoteBranchPush(),
              (VNGitRemoteInfo::BranchMap{{"feat", "feature"}}));
    gitIn(path, {"config", "push.default", "matching"});
    EXPECT_EQ(git->remoteInfo(path, "origin", false)->localToRemoteBranchPush(),
              (VNGitRemoteInfo::BranchMap{{"main", "main"}}));
    gitIn(path, {"config", "--add", "remote.origin.push", "refs/heads/*:refs/heads/review/*"});
    EXPECT_EQ(git->remoteInfo(path, "origin", false)->localToRemoteBranchPush(),
              (VNGitRemoteInfo::BranchMap{{"feat", "review/feat"}, {"main", "review/main"}}));

    // A remote that cannot be reached still answers with its name.
    gitIn(path, {"remote", "add", "lost", "file:///nonexistent/repo.git"});
    auto lost = git->remoteInfo(path, "lost", true);
    EXPECT_EQ(lost->name(), "lost");
    EXPECT_TRUE(lost->remoteBranches().empty());
}

}  // namespace
