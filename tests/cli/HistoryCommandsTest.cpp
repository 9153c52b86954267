#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "base/Json.h"
#include "base/Record.h"
#include "cli/HistoryCli.h"
#include "git/VNGitRefsParser.h"
#include "handler/VNTask.h"
#include "support/HistoryFixtures.h"

namespace {

using vn::test::chomp;
using vn::test::commitAt;
using vn::test::gitIn;
using vn::test::GitRepository;
using vn::test::UpstreamAndClone;

std::shared_ptr<VNTask> vrnlIn(const std::string& folder, const std::vector<std::string>& args) {
    auto task = VNTask::taskWithCommand(VARNEL_TEST_VRNL, folder, args);
    task->setEnvironmentCustomisations(vn::Environment{{"NO_COLOR", "1"}});
    task->run();
    return task;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (std::string_view line : VNGitRefsParser::lines(text)) {
        lines.emplace_back(line);
    }
    return lines;
}

vn::Value jsonOf(const std::shared_ptr<VNTask>& task) {
    auto value = vn::parseJson(task->output());
    EXPECT_TRUE(value) << task->output();
    return value.value_or(vn::Value());
}

// A clone with a local commit ahead of its upstream, a tag, and a second local branch.
struct HistoryRepository {
    UpstreamAndClone remote;
    std::string path = remote.clone;
    std::string head;
    HistoryRepository() {
        gitIn(path, {"tag", "v1", "origin/main~1"});
        gitIn(path, {"branch", "--track", "feat", "origin/feature"});
        gitIn(path, {"commit", "-q", "--allow-empty", "-m", "local work"},
              {{"GIT_COMMITTER_DATE", "2024-03-01T00:00:00Z"}});
        head = chomp(gitIn(path, {"rev-parse", "HEAD"}));
    }
};

TEST(HistoryCommandsTest, LogShowsLabelsAsGitUsersKnowThem) {
    HistoryRepository repo;
    auto task = vrnlIn(repo.path, {"log", "--remotes"});
    ASSERT_TRUE(task->success()) << task->errorOutput();
    auto lines = linesOf(task->output());
    ASSERT_EQ(lines.size(), 4u) << task->output();
    EXPECT_NE(lines[0].find("(HEAD -> main [1 ahead]) local work"), std::string::npos) << lines[0];
    // Labels keep git's order.
    EXPECT_NE(lines[1].find("(origin/feature, feat) three"), std::string::npos) << lines[1];
    EXPECT_NE(lines[2].find("(origin/main, origin/HEAD) two"), std::string::npos) << lines[2];
    EXPECT_NE(lines[3].find("(tag: v1) one"), std::string::npos) << lines[3];
    EXPECT_EQ(lines[0].substr(0, 7), repo.head.substr(0, 7));
    EXPECT_EQ(task->errorOutput(), "");
}

TEST(HistoryCommandsTest, LogPagesAndJson) {
    HistoryRepository repo;
    auto first = vrnlIn(repo.path, {"log", "--limit", "2", "--remotes"});
    ASSERT_TRUE(first->success());
    EXPECT_EQ(linesOf(first->output()).size(), 2u);
    // The next page's command is named on standard error.
    EXPECT_NE(first->errorOutput().find("vrnl log --skip 2 --limit 2 --remotes"), std::string::npos)
        << first->errorOutput();

    auto json =
        vrnlIn(repo.path, {"log", repo.path, "--skip=2", "--limit=3", "--remotes", "--json"});
    ASSERT_TRUE(json->success()) << json->errorOutput();
    vn::Value page = jsonOf(json);
    ASSERT_TRUE(page.record());
    EXPECT_EQ(page.record()->integer("skip"), 2);
    EXPECT_FALSE(page.record()->boolean("moreRevisions"));
    const vn::Value::Array* rows = (*page.record())["logRows"].array();
    ASSERT_TRUE(rows);
    ASSERT_EQ(rows->size(), 2u);
    const vn::Record& row = *rows->at(1).record();
    // No graph unless asked for.
    EXPECT_EQ(row.keys(),
              (std::vector<std::string>{"rev", "changeset", "changesetshort", "parentid1",
                                        "parentid2", "otherparentids", "date", "user", "committer",
                                        "branch", "descriptionentry"}));
    EXPECT_EQ(row["descriptionentry"].record()->string("description"), "one");
    auto withGraph =
        vrnlIn(repo.path, {"log", "--skip=2", "--limit=3", "--remotes", "--json", "--graph"});
    ASSERT_TRUE(withGraph->success()) << withGraph->errorOutput();
    vn::Value graphPage = jsonOf(withGraph);
    const vn::Value::Array* graphRows = (*graphPage.record())["logRows"].array();
    ASSERT_TRUE(graphRows && graphRows->size() == 2u);
    const vn::Record* graph = (*graphRows->at(1).record())["graph"].record();
    ASSERT_TRUE(graph);
    EXPECT_EQ(graph->keys(),
              (std::vector<std::string>{"commitColumn", "commitColour", "lineColumns"}));
    const vn::Value::Array* labels = (*row["descriptionentry"].record())["labels"].array();
    ASSERT_TRUE(labels);
    ASSERT_EQ(labels->size(), 1u);
    EXPECT_EQ(labels->at(0).record()->string("label"), "v1");
    EXPECT_EQ(labels->at(0).record()->integer("type"), 1);
}

TEST(HistoryCommandsTest, LogOptionsAndErrors) {
    HistoryRepository repo;
    auto branch = vrnlIn(repo.path, {"log", "--branch", "feat"});
    ASSERT_TRUE(branch->success());
    EXPECT_EQ(linesOf(branch->output()).size(), 3u);
    auto firstParent = vrnlIn(repo.path, {"log", "--first-parent", "--topo"});
    EXPECT_TRUE(firstParent->success());
    // A limit of 0 is the whole history.
    auto whole = vrnlIn(repo.path, {"log", "--limit", "0", "--remotes"});
    ASSERT_TRUE(whole->success());
    EXPECT_EQ(linesOf(whole->output()).size(), 4u);
    EXPECT_EQ(whole->errorOutput(), "") << "no next page after the whole history";
    EXPECT_EQ(vrnlIn(repo.path, {"log", "--limit", "x"})->exitCode(), 2);
    EXPECT_EQ(vrnlIn(repo.path, {"log", "--skip", "-3"})->exitCode(), 2);
    EXPECT_EQ(vrnlIn(repo.path, {"log", "--bogus"})->exitCode(), 2);
    auto missing = vrnlIn(repo.path, {"log", "--branch", "nope"});
    EXPECT_EQ(missing->exitCode(), 1);
    EXPECT_NE(missing->errorOutput().find("nope"), std::string::npos);
    vn::test::TempDir outside;
    auto notRepo = vrnlIn(outside.path(), {"log"});
    EXPECT_EQ(notRepo->exitCode(), 1);
    EXPECT_NE(notRepo->errorOutput().find("not inside a repository"), std::string::npos);
}

TEST(HistoryCommandsTest, ShowPrintsDetailsAndFiles) {
    GitRepository repo;
    repo.commitFile("old.txt", "the same text in both names\n", "first");
    repo.git({"mv", "old.txt", "new.txt"});
    repo.write("added.txt", "x\n");
    repo.git({"add", "added.txt"});
    repo.git({"commit", "-q", "-m", "Rename it\n\nBecause the name was wrong."});
    auto task = vrnlIn(repo.path(), {"show", "HEAD"});
    ASSERT_TRUE(task->success()) << task->errorOutput();
    const std::string& out = task->output();
    EXPECT_NE(out.find("(HEAD -> main)"), std::string::npos) << out;
    EXPECT_NE(out.find("Author:  Test Author <author@example.com>"), std::string::npos) << out;
    EXPECT_NE(out.find("    Because the name was wrong."), std::string::npos) << out;
    EXPECT_NE(out.find(" R  old.txt -> new.txt"), std::string::npos) << out;
    EXPECT_NE(out.find(" A  added.txt"), std::string::npos) << out;

    auto json = vrnlIn(repo.path(), {"show", "HEAD~1", "--json"});
    ASSERT_TRUE(json->success());
    vn::Value details = jsonOf(json);
    ASSERT_TRUE(details.record());
    EXPECT_EQ(details.record()->string("message"), "first");
    ASSERT_TRUE((*details.record())["files"].array());
    EXPECT_EQ((*details.record())["files"].array()->at(0).record()->string("filename"), "old.txt");
    EXPECT_EQ(vrnlIn(repo.path(), {"show", "nonexistent"})->exitCode(), 1);
}

TEST(HistoryCommandsTest, RefsListsEverything) {
    HistoryRepository repo;
    vn::test::writeFile(repo.path + "/a.txt", "changed\n");
    gitIn(repo.path, {"stash", "push", "-q", "-m", "saved"});
    auto task = vrnlIn(repo.path, {"refs"});
    ASSERT_TRUE(task->success()) << task->errorOutput();
    auto lines = linesOf(task->output());
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "Branches",
                         "  feat  origin/feature",
                         "* main  origin/main  [1 ahead]",
                         "Tags",
                         "  v1",
                         "Remotes",
                         "  origin  " + repo.remote.url(),
                         "Stashes",
                         "  stash@{0}  On main: saved",
                     }));
    auto json = vrnlIn(repo.path, {"refs", "--json"});
    ASSERT_TRUE(json->success());
    vn::Value refs = jsonOf(json);
    ASSERT_TRUE(refs.record());
    EXPECT_EQ(refs.record()->string("currentBranch"), "main");
    EXPECT_EQ((*refs.record())["aheadBehind"].record()->find("main")->array()->at(0).toInt(), 1);
    EXPECT_EQ((*refs.record())["trackingBranches"].record()->string("feat"), "origin/feature");
    EXPECT_EQ((*refs.record())["stashes"].array()->at(0).record()->string("msg"), "On main: saved");
}

TEST(HistoryCommandsTest, Blame) {
    GitRepository repo;
    repo.commitFile("dir/f.txt", "one\ntwo\n", "first");
    auto task = vrnlIn(repo.file("dir"), {"blame", "f.txt"});
    ASSERT_TRUE(task->success()) << task->errorOutput();
    auto lines = linesOf(task->output());
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[1].find("Test Author 2024-01-02 2 two"), std::string::npos) << lines[1];

    repo.commitFile("dir/f.txt", "uno\n", "second");
    auto old = vrnlIn(repo.path(), {"blame", "dir/f.txt", "--rev", "HEAD~1", "--json"});
    ASSERT_TRUE(old->success()) << old->errorOutput();
    vn::Value json = jsonOf(old);
    ASSERT_TRUE(json.array());
    EXPECT_EQ(json.array()->size(), 2u);
    EXPECT_EQ(json.array()->at(0).record()->string("linecontents"), "one");
    EXPECT_EQ(vrnlIn(repo.path(), {"blame", "missing.txt"})->exitCode(), 1);
    EXPECT_EQ(vrnlIn(repo.path(), {"blame"})->exitCode(), 2);
}

TEST(HistoryCommandsTest, SearchPrintsHits) {
    GitRepository repo;
    commitAt(repo, "a.txt", "find me\n", "Add a thing", "2019-05-01T00:00:00Z");
    std::string second = commitAt(repo, "a.txt", "other\n", "Change it", "2020-05-01T00:00:00Z");
    auto message = vrnlIn(repo.path(), {"search", "--message", "THING"});
    ASSERT_TRUE(message->success()) << message->errorOutput();
    auto lines = linesOf(message->output());
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("Add a thing"), std::string::npos);

    auto content = vrnlIn(repo.path(), {"search", "--content", "find me", "--json"});
    ASSERT_TRUE(content->success());
    vn::Value hits = jsonOf(content);
    ASSERT_TRUE(hits.array());
    EXPECT_EQ(hits.array()->size(), 2u);

    auto hash = vrnlIn(repo.path(), {"search", "--hash", second.substr(0, 8), "--json"});
    ASSERT_TRUE(hash->success());
    EXPECT_EQ(jsonOf(hash).array()->at(0).record()->string("rev"), second);

    auto dated = vrnlIn(repo.path(), {"search", "--author", "test", "--since", "2020-01-01"});
    EXPECT_EQ(linesOf(dated->output()).size(), 1u);
    auto none = vrnlIn(repo.path(), {"search", "--message", "absent"});
    EXPECT_EQ(none->exitCode(), 1);
    EXPECT_EQ(none->output(), "");
    auto empty = vrnlIn(repo.path(), {"search", "--message", "absent", "--json"});
    EXPECT_TRUE(jsonOf(empty).array());
    EXPECT_EQ(vrnlIn(repo.path(), {"search", "--message", "a", "--author", "b"})->exitCode(), 2);
    EXPECT_EQ(vrnlIn(repo.path(), {"search", "x"})->exitCode(), 2);
    EXPECT_EQ(vrnlIn(repo.path(), {"search", "--message", "a", "--since", "May"})->exitCode(), 2);
}

}  // namespace

namespace {

// The recorder's wall-clock time as the C library's calendar gives it, for comparison.
std::string calendarDate(int64_t seconds, int32_t offset) {
    std::time_t time = static_cast<std::time_t>(seconds + offset);
    std::tm wall{};
    ::gmtime_r(&time, &wall);
    char buffer[64];
    std::size_t length = std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M", &wall);
    int32_t magnitude = offset < 0 ? -offset : offset;
    std::snprintf(buffer + length, sizeof buffer - length, " %c%02d%02d", offset < 0 ? '-' : '+',
                  static_cast<int>(magnitude / 3600), static_cast<int>(magnitude / 60 % 60));
    return buffer;
}

TEST(HistoryText, ShortDatesFollowTheCalendarAcrossCenturiesAndOffsets) {
    std::mt19937_64 random(7);
    std::vector<int64_t> instants = {0,           -1,          86399,      86400,
                                     951782400,   951868799,   4107542399, 4107542400,
                                     -2208988800, -8520336000, 7258118399, 7258118400};
    for (int i = 0; i < 4000; ++i) {
        // 1700 to 2200, where git's dates live and the calendar has every kind of leap year.
        instants.push_back(-8520336000 + static_cast<int64_t>(random() % 15778800000ull));
    }
    const int32_t offsets[] = {0, 60, -60, 19800, -34200, 50400, -43200, 45900, 3599, -1};
    for (int64_t instant : instants) {
        for (int32_t offset : offsets) {
            vn::Value date(vn::Value::Date(std::chrono::seconds(instant)), offset);
            ASSERT_EQ(vn::cli::history::shortDate(date), calendarDate(instant, offset))
                << "at " << instant << " offset " << offset;
        }
    }
    EXPECT_EQ(vn::cli::history::shortDate(vn::Value("not a date")), "");
}

}  // namespace
