// What vrnl tells the user about dates, broken repositories, bad numbers and paths, over
// repositories made with the real git.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "base/Json.h"
#include "base/Record.h"
#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "support/HistoryFixtures.h"
#include "support/StatusFixtures.h"

namespace {

using vn::test::chomp;
using vn::test::gitIn;
using vn::test::GitRepository;
using vn::test::TempDir;
using vn::test::UpstreamAndClone;

std::shared_ptr<VNTask> vrnlIn(const std::string& folder, const std::vector<std::string>& args,
                               vn::Environment env = {}) {
    auto task = VNTask::taskWithCommand(VARNEL_TEST_VRNL, folder, args);
    env["NO_COLOR"] = "1";
    task->setEnvironmentCustomisations(env);
    task->run();
    return task;
}

// The line of standard error that vrnl itself wrote.
std::string vrnlMessage(const std::shared_ptr<VNTask>& task) {
    std::string text = task->errorOutput();
    std::size_t at = text.find("vrnl: ");
    if (at == std::string::npos) {
        return "";
    }
    return text.substr(at, text.find('\n', at) - at);
}

// Commits with author and committer dates in several offsets.
TEST(VrnlDates, JsonKeepsEachCommitsOffsetInEveryTimeZone) {
    struct Dated {
        const char* author;
        const char* committer;
    };
    const Dated dates[] = {
        {"2024-03-01T14:05:00+05:30", "2024-03-01T14:05:00+05:30"},
        {"2024-03-02T06:00:00-08:00", "2024-03-02T23:30:00+14:00"},
        {"2024-03-03T10:00:00-12:00", "2024-03-04T00:00:00+00:00"},
    };
    GitRepository repo;
    for (std::size_t i = 0; i < std::size(dates); ++i) {
        repo.write("f.txt", std::to_string(i));
        repo.git({"add", "f.txt"});
        gitIn(repo.path(), {"commit", "-q", "-m", "c" + std::to_string(i)},
              {{"GIT_AUTHOR_DATE", dates[i].author}, {"GIT_COMMITTER_DATE", dates[i].committer}});
    }
    std::string first;
    std::string firstShow;
    std::string firstText;
    for (const char* zone :
         {"UTC", "Asia/Kolkata", "America/Los_Angeles", "Pacific/Kiritimati", "Etc/GMT+12"}) {
        SCOPED_TRACE(zone);
        auto log = vrnlIn(repo.path(), {"log", "--json"}, {{"TZ", zone}});
        ASSERT_TRUE(log->success()) << log->errorOutput();
        auto show = vrnlIn(repo.path(), {"show", "HEAD~1", "--json"}, {{"TZ", zone}});
        ASSERT_TRUE(show->success()) << show->errorOutput();
        auto text = vrnlIn(repo.path(), {"log"}, {{"TZ", zone}});
        if (first.empty()) {
            first = log->output();
            firstShow = show->output();
            firstText = text->output();
            auto page = vn::parseJson(first);
            ASSERT_TRUE(page && page->record());
            const vn::Value::Array* rows = (*page->record())["logRows"].array();
            ASSERT_TRUE(rows && rows->size() == 3u);
            for (std::size_t i = 0; i < 3; ++i) {
                EXPECT_EQ(rows->at(i).record()->string("date"), dates[2 - i].committer);
            }
            auto details = vn::parseJson(firstShow);
            ASSERT_TRUE(details && details->record());
            EXPECT_EQ(details->record()->string("authordate"), dates[1].author);
            EXPECT_EQ(details->record()->string("committerdate"), dates[1].committer);
            // People read each commit's own clock and offset, as git shows them.
            EXPECT_NE(firstText.find("2024-03-01 14:05 +0530"), std::string::npos) << firstText;
            EXPECT_NE(firstText.find("2024-03-02 23:30 +1400"), std::string::npos) << firstText;
        } else {
            EXPECT_EQ(log->output(), first);
            EXPECT_EQ(show->output(), firstShow);
            EXPECT_EQ(text->output(), firstText);
        }
    }
}

// A commit dated past what 64 bits of nanoseconds hold.
TEST(VrnlDates, DatesBeyondTheRangeAreClamped) {
    GitRepository repo;
    repo.commitFile("f.txt", "one\n", "one");
    repo.write("f.txt", "far\n");
    repo.git({"add", "f.txt"});
    std::string tree = chomp(repo.git({"write-tree"}));
    std::string parent = chomp(repo.git({"rev-parse", "HEAD"}));
    std::string object = "tree " + tree + "\nparent " + parent +
                         "\nauthor Far <f@x> 99999999999999999999 +0530\n"
                         "committer Far <f@x> 300000000000 -0800\n\nfar future\n";
    vn::test::writeFile(repo.file(".git/far"), object);
    std::string far = chomp(
        repo.git({"hash-object", "-t", "commit", "-w", "--literally", repo.file(".git/far")}));
    repo.git({"update-ref", "refs/heads/main", far});
    auto log = vrnlIn(repo.path(), {"log", "--json"});
    ASSERT_TRUE(log->success()) << log->errorOutput();
    EXPECT_NE(log->output().find("\"2262-04-11T15:47:16-08:00\""), std::string::npos)
        << log->output();
    auto blame = vrnlIn(repo.path(), {"blame", "f.txt", "--json"});
    ASSERT_TRUE(blame->success()) << blame->errorOutput();
    auto lines = vn::parseJson(blame->output());
    ASSERT_TRUE(lines && lines->array() && lines->array()->size() == 1u);
    EXPECT_EQ(lines->array()->at(0).record()->string("date"), "2262-04-12T05:17:16+05:30");
}

// Repositories git cannot read: each command says why, in git's words, and fails.
TEST(VrnlErrors, BrokenRepositoriesFailWithGitsReason) {
    struct Case {
        const char* name;
        std::function<void(GitRepository&)> breakIt;
        std::vector<std::vector<std::string>> commands;
        const char* reason;
    };
    auto deleteObject = [](GitRepository& repo, const std::string& revision) {
        std::string sha = chomp(repo.git({"rev-parse", revision}));
        std::filesystem::remove(
            repo.file(".git/objects/" + sha.substr(0, 2) + "/" + sha.substr(2)));
    };
    const Case cases[] = {
        {"missing commit",
         [&](GitRepository& repo) { deleteObject(repo, "HEAD~1"); },
         {{"log"}, {"overview"}, {"show"}, {"show", "HEAD~1"}, {"refs"}},
         ""},
        {"missing tree",
         [&](GitRepository& repo) { deleteObject(repo, "HEAD^{tree}"); },
         {{"show"}, {"blame", "f.txt"}},
         ""},
        {"corrupt index",
         [](GitRepository& repo) { std::filesystem::resize_file(repo.file(".git/index"), 20); },
         {{"status"}, {"overview"}, {"log"}},
         "index file smaller than expected"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        GitRepository repo;
        for (int i = 0; i < 3; ++i) {
            repo.commitFile("f.txt", std::to_string(i) + "\n", "c" + std::to_string(i));
        }
        repo.git({"branch", "side", "HEAD~1"});
        c.breakIt(repo);
        for (const auto& command : c.commands) {
            SCOPED_TRACE(command[0]);
            auto task = vrnlIn(repo.path(), command);
            EXPECT_EQ(task->exitCode(), 1) << task->output();
            std::string message = vrnlMessage(task);
            EXPECT_NE(message.find(" failed: "), std::string::npos) << task->errorOutput();
            EXPECT_NE(message.find(c.reason), std::string::npos) << message;
            EXPECT_EQ(message.find("no commit"), std::string::npos) << message;
            EXPECT_EQ(message.find("is it tracked"), std::string::npos) << message;
        }
    }
}

TEST(VrnlErrors, DubiousOwnership) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to give the repository to another user";
    }
    GitRepository repo;
    repo.commitFile("f.txt", "x\n", "one");
    for (const auto& entry : std::filesystem::recursive_directory_iterator(repo.path())) {
        ASSERT_EQ(::lchown(entry.path().c_str(), 54321, 54321), 0);
    }
    ASSERT_EQ(::chown(repo.path().c_str(), 54321, 54321), 0);
    for (const std::vector<std::string>& command :
         std::vector<std::vector<std::string>>{{"log"},
                                               {"refs"},
                                               {"show"},
                                               {"overview"},
                                               {"status"},
                                               {"blame", "f.txt"},
                                               {"search", "--message", "one"}}) {
        SCOPED_TRACE(command[0]);
        auto task = vrnlIn(repo.path(), command);
        EXPECT_EQ(task->exitCode(), 1) << task->output();
        EXPECT_NE(vrnlMessage(task).find("dubious ownership"), std::string::npos)
            << task->errorOutput();
    }
    // Give it back, so that the folder can be removed.
    for (const auto& entry : std::filesystem::recursive_directory_iterator(repo.path())) {
        EXPECT_EQ(::lchown(entry.path().c_str(), 0, 0), 0);
    }
}

TEST(VrnlErrors, BlameSaysWhyInGitsWords) {
    GitRepository repo;
    repo.commitFile("f.txt", "x\n", "one");
    repo.write("untracked.txt", "u\n");
    auto untracked = vrnlIn(repo.path(), {"blame", "untracked.txt"});
    EXPECT_EQ(untracked->exitCode(), 1);
    EXPECT_NE(vrnlMessage(untracked).find("no such path 'untracked.txt' in HEAD"),
              std::string::npos)
        << untracked->errorOutput();
    // A file too large to blame is refused before git runs, not with the memory exhausted.
    std::string big(33u << 20, 'x');
    for (std::size_t i = 79; i < big.size(); i += 80) {
        big[i] = '\n';
    }
    repo.write("big.txt", big);
    auto huge = vrnlIn(repo.path(), {"blame", "big.txt"});
    EXPECT_EQ(huge->exitCode(), 1);
    EXPECT_NE(vrnlMessage(huge).find("too large to blame (33 MB"), std::string::npos)
        << huge->errorOutput();
    // Small in bytes, but lines enough for gigabytes of records; also at a revision.
    repo.commitFile("many.txt", std::string(600000, '\n'), "many lines");
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {"blame", "many.txt"}, {"blame", "many.txt", "--rev", "HEAD"}}) {
        SCOPED_TRACE(::testing::PrintToString(args));
        auto many = vrnlIn(repo.path(), args);
        EXPECT_EQ(many->exitCode(), 1);
        EXPECT_NE(vrnlMessage(many).find("too large to blame (600000 lines"), std::string::npos)
            << many->errorOutput();
    }
}

TEST(VrnlErrors, NumbersOutOfRangeAreUsageErrors) {
    GitRepository repo;
    repo.commitFile("f.txt", "x\n", "one");
    const std::vector<std::string> bad[] = {
        {"log", "--skip", "2147483648"},
        {"log", "--skip", "4294967296"},
        {"log", "--skip", "99999999999999999999999"},
        {"log", "--skip", "-1"},
        {"log", "--skip", "1e3"},
        {"log", "--skip", ""},
        {"log", "--limit", "-1"},
        {"log", "--limit", "2147483648"},
        {"log", "--limit", "ten"},
        {"status", "--mask", "0"},
        {"status", "--mask", "1024"},
        {"status", "--mask", "18446744073709551616"},
        {"status", "--mask", "0x2fe"},
        {"diff", "--context", " -5"},
        {"diff", "--context", "1048577"},
        {"diff", "--context", "+3"},
        {"diff", "--max-files", "4294967296"},
    };
    for (const auto& args : bad) {
        SCOPED_TRACE(::testing::PrintToString(args));
        auto task = vrnlIn(repo.path(), args);
        EXPECT_EQ(task->exitCode(), 2);
        EXPECT_EQ(task->output(), "");
        EXPECT_NE(vrnlMessage(task).find(args[1]), std::string::npos) << task->errorOutput();
    }
    // The largest counts git takes still work.
    auto last = vrnlIn(repo.path(), {"log", "--skip", "2147483646", "--limit", "1"});
    EXPECT_TRUE(last->success()) << last->errorOutput();
    EXPECT_EQ(last->output(), "");
    EXPECT_TRUE(vrnlIn(repo.path(), {"status", "--mask", "8959"})->success());
}

TEST(VrnlErrors, MessagesNameTheResolvedPath) {
    TempDir outside;
    auto here = vrnlIn(outside.path(), {"log"});
    EXPECT_EQ(here->exitCode(), 1);
    EXPECT_EQ(vrnlMessage(here), "vrnl: not inside a repository: " + outside.path());
    auto relative = vrnlIn(outside.path(), {"refs", "./sub/../"});
    EXPECT_NE(vrnlMessage(relative).find(outside.path()), std::string::npos)
        << relative->errorOutput();
    // The current folder deleted under vrnl.
    std::string gone = outside.path() + "/gone";
    for (const char* command : {"log", "status", "overview"}) {
        SCOPED_TRACE(command);
        auto task = VNTask::taskWithCommand(
            "/bin/sh", outside.path(),
            {"-c", "mkdir gone && cd gone && rmdir ../gone && exec \"$0\" \"$1\"", VARNEL_TEST_VRNL,
             command});
        task->run();
        EXPECT_EQ(task->exitCode(), 1);
        EXPECT_NE(vrnlMessage(task).find(gone), std::string::npos) << task->errorOutput();
    }
}

TEST(VrnlBare, LogRefsShowAndSearchReadABareRepository) {
    UpstreamAndClone remote;
    const std::string& bare = remote.upstream;
    auto log = vrnlIn(bare, {"log"});
    EXPECT_TRUE(log->success()) << log->errorOutput();
    EXPECT_NE(log->output().find("three"), std::string::npos);
    auto refs = vrnlIn(bare, {"refs", "--json"});
    ASSERT_TRUE(refs->success()) << refs->errorOutput();
    auto value = vn::parseJson(refs->output());
    ASSERT_TRUE(value && value->record());
    EXPECT_EQ((*value->record())["branches"], vn::Value(vn::Value::Array{"feature", "main"}));
    auto show = vrnlIn(bare, {"show", "feature"});
    EXPECT_TRUE(show->success()) << show->errorOutput();
    EXPECT_NE(show->output().find("three"), std::string::npos);
    auto search = vrnlIn(bare, {"search", "--message", "two"});
    EXPECT_TRUE(search->success()) << search->errorOutput();
    EXPECT_NE(search->output().find("two"), std::string::npos);
}

TEST(VrnlRefs, SeparatePushUrlAndNoInventedUpstream) {
    UpstreamAndClone remote;
    const std::string& path = remote.clone;
    gitIn(path, {"remote", "set-url", "--push", "origin", "ssh://push.example/r.git"});
    gitIn(path, {"checkout", "-q", "-b", "lonely"});
    gitIn(path, {"commit", "-q", "--allow-empty", "-m", "[origin/fake: ahead 99, behind 7]"});
    auto refs = vrnlIn(path, {"refs", "--json"});
    ASSERT_TRUE(refs->success()) << refs->errorOutput();
    auto value = vn::parseJson(refs->output());
    ASSERT_TRUE(value && value->record());
    const vn::Record& record = *value->record();
    EXPECT_EQ(record["remotes"].record()->string("origin"), remote.url());
    EXPECT_EQ((*record["remotePushUrls"].record())["origin"],
              vn::Value(vn::Value::Array{"ssh://push.example/r.git"}));
    EXPECT_EQ(record["trackingBranches"].record()->keys(), std::vector<std::string>{"main"});
    EXPECT_TRUE(record["aheadBehind"].record()->empty());
    auto text = vrnlIn(path, {"refs"});
    EXPECT_NE(text->output().find("ssh://push.example/r.git (push)"), std::string::npos)
        << text->output();
}

TEST(VrnlStatusStates, SummaryLineNamesTheOperation) {
    GitRepository repo;
    repo.commitFile("f.txt", "base\n", "base");
    repo.git({"checkout", "-q", "-b", "topic"});
    repo.commitFile("f.txt", "topic\n", "topic");
    repo.git({"checkout", "-q", "main"});
    repo.commitFile("f.txt", "main\n", "main");
    repo.git({"checkout", "-q", "topic"});
    vn::test::tryGit(repo.path(), {"rebase", "main"});
    auto status = vrnlIn(repo.path(), {"status"});
    EXPECT_TRUE(status->success()) << status->errorOutput();
    EXPECT_EQ(status->output().substr(0, status->output().find(':')),
              "HEAD detached, rebasing topic");
    auto refs = vrnlIn(repo.path(), {"refs", "--json"});
    auto value = vn::parseJson(refs->output());
    ASSERT_TRUE(value && value->record());
    EXPECT_EQ((*value->record())["branches"], vn::Value(vn::Value::Array{"HEAD", "main", "topic"}));
}

}  // namespace

namespace {

// A German locale in a private folder; empty when the system cannot build one.
std::string germanLocaleFolder() {
    static TempDir folder("varnel-locale");
    static const bool built = [] {
        auto task = VNTask::taskWithCommand(
            vn::fs::findExecutable("localedef").value_or("localedef"), folder.path(),
            {"-i", "de_DE", "-f", "UTF-8", folder.path() + "/de_DE.UTF-8"});
        task->run();
        return vn::fs::isDirectory(folder.path() + "/de_DE.UTF-8");
    }();
    return built ? folder.path() : "";
}

// Git words a detached HEAD and a rebase in the user's language; none of it becomes a branch.
TEST(VrnlStatusStates, GermanLocaleGivesTheSameAnswers) {
    std::string locales = germanLocaleFolder();
    if (locales.empty()) {
        GTEST_SKIP() << "localedef cannot build de_DE.UTF-8 here";
    }
    vn::Environment german{{"LOCPATH", locales},
                           {"LC_ALL", "de_DE.UTF-8"},
                           {"LANG", "de_DE.UTF-8"},
                           {"LANGUAGE", "de"}};
    GitRepository repo;
    repo.commitFile("f.txt", "base\n", "base");
    repo.git({"checkout", "-q", "-b", "topic"});
    repo.commitFile("f.txt", "topic\n", "topic");
    repo.git({"checkout", "-q", "main"});
    repo.commitFile("f.txt", "main\n", "main");
    repo.git({"checkout", "-q", "topic"});
    const std::vector<std::pair<const char*, std::function<void()>>> states = {
        {"detached HEAD",
         [&] {
             repo.git({"checkout", "-q", "--detach", "main"});
         }},
        {"rebase with a conflict",
         [&] {
             repo.git({"checkout", "-q", "topic"});
             vn::test::tryGit(repo.path(), {"rebase", "main"});
         }},
    };
    for (const auto& [name, make] : states) {
        SCOPED_TRACE(name);
        make();
        for (const char* command : {"refs", "status"}) {
            SCOPED_TRACE(command);
            auto plain = vrnlIn(repo.path(), {command, "--json"});
            auto translated = vrnlIn(repo.path(), {command, "--json"}, german);
            ASSERT_TRUE(plain->success()) << plain->errorOutput();
            EXPECT_EQ(translated->output(), plain->output());
            EXPECT_EQ(translated->output().find("(HEAD"), std::string::npos);
            EXPECT_EQ(translated->output().find("losgel"), std::string::npos);
        }
    }
}

}  // namespace
