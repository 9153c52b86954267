// vrnl's write commands in a Mercurial working copy, each checked with hg itself, and the
// commands only Mercurial has (update, merge, resolve, tag, bookmark, backout, shelve).
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "base/Json.h"
#include "base/Record.h"
#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "support/HgRepository.h"

namespace {

using vn::test::HgRepository;

struct VrnlRun {
    bool ok = false;
    std::string out, err;
    vn::Value json;
};

VrnlRun vrnl(const std::string& folder, std::vector<std::string> args) {
    auto task = VNTask::taskWithCommand(VARNEL_TEST_VRNL, folder, args);
    task->setEnvironmentCustomisations(vn::Environment{{"NO_COLOR", "1"}});
    VrnlRun run;
    run.ok = task->run();
    run.out = task->output();
    run.err = task->errorOutput();
    if (std::find(args.begin(), args.end(), "--json") != args.end()) {
        std::string error;
        auto value = vn::parseJson(run.out, &error);
        EXPECT_TRUE(value) << error << "\n" << run.out << run.err;
        run.json = value.value_or(vn::Value());
    }
    return run;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class VrnlMercurialWrite : public ::testing::Test {
  protected:
    // vrnl's hg reads ~/.hgrc: a fixed user and date.
    void SetUp() override {
        vn::test::writeFile(hgrc(),
                            "[ui]\nusername = Test User <test@example.com>\n"
                            "[devel]\ndefault-date = 1704164645 0\n");
    }
    void TearDown() override { ::unlink(hgrc().c_str()); }
    static std::string hgrc() {
        return vn::fs::appendPathComponent(vn::fs::homeDirectory(), ".hgrc");
    }
};

// Each step runs one vrnl command and checks its effect with hg.
TEST_F(VrnlMercurialWrite, EveryWriteCommandChangesTheRepository) {
    HgRepository repo;
    repo.commitFile("a.txt", "one\ntwo\nthree\n", "first");
    const std::string name = "n\xc3\xa9w \"file\".txt";
    repo.write(name, "new\n");
    struct Step {
        std::vector<std::string> args;
        std::function<void(const VrnlRun&)> check;
    };
    const std::vector<Step> steps = {
        {{"add", name},
         [&](const VrnlRun&) {
             EXPECT_EQ(repo.hg({"status", "-a"}), "A " + name + "\n");
         }},
        {{"commit", "-m", "  add it\n\n", "--json"},
         [&](const VrnlRun& run) {
             EXPECT_EQ(repo.hg({"log", "-r", ".", "-T", "{desc}"}), "add it");
             EXPECT_EQ(run.json.record()->string("commit"),
                       repo.hg({"log", "-r", ".", "-T", "{node}"}));
             EXPECT_EQ(run.json.record()->string("rev"), "1");
         }},
        {{"mv", name, "moved.txt"},
         [&](const VrnlRun&) {
             EXPECT_EQ(repo.hg({"status", "-C"}), "A moved.txt\n  " + name + "\nR " + name + "\n");
         }},
        {{"commit", "--message", "moved", "--author", "Other <o@example.com>", "moved.txt", name},
         [&](const VrnlRun& run) {
             EXPECT_TRUE(contains(run.out, "[default 2:")) << run.out;
             EXPECT_EQ(repo.hg({"log", "-r", ".", "-T", "{author}"}), "Other <o@example.com>");
         }},
        {{"rm", "moved.txt"},
         [&](const VrnlRun&) { EXPECT_EQ(repo.hg({"status"}), "R moved.txt\n"); }},
        {{"commit", "-m", "gone", "--amend"},
         [&](const VrnlRun&) {
             EXPECT_EQ(repo.hg({"log", "-r", "tip", "-T", "{rev} {desc}"}), "2 gone");
         }},
        {{"tag", "v 1", "--rev", "0", "--json"},
         [&](const VrnlRun& run) {
             EXPECT_TRUE(contains(repo.hg({"tags"}), "v 1"));
             EXPECT_TRUE(contains(vn::toJson(run.json), "\"v 1\"")) << vn::toJson(run.json);
         }},
        {{"tag", "local", "--local"},
         [&](const VrnlRun&) {
             EXPECT_TRUE(contains(repo.hg({"tags", "-v"}), "local"));
         }},
        {{"tag", "v 1", "--remove"},
         [&](const VrnlRun&) { EXPECT_FALSE(contains(repo.hg({"tags"}), "v 1")); }},
        {{"bookmark", "mark", "--rev", "1"},
         [&](const VrnlRun&) {
             EXPECT_EQ(repo.hg({"log", "-r", "mark", "-T", "{rev}"}), "1");
         }},
        {{"bookmark", "mark", "--rename", "other mark"},
         [&](const VrnlRun&) {
             EXPECT_EQ(repo.hg({"log", "-r", "'other mark'", "-T", "{rev}"}), "1");
         }},
        {{"bookmark", "--json"},
         [&](const VrnlRun& run) {
             ASSERT_TRUE(run.json.record());
             EXPECT_EQ(run.json.record()->find("bookmarks")->array()->size(), 1u);
         }},
        {{"bookmark", "other mark", "--delete"},
         [&](const VrnlRun&) { EXPECT_EQ(repo.hg({"bookmarks"}), "no bookmarks set\n"); }},
        {{"update", "0", "--json"},
         [&](const VrnlRun& run) {
             EXPECT_EQ(repo.hg({"id", "-n"}), "0\n");
             EXPECT_EQ(run.json.record()->find("summary")->record()->string("parent1"), "0");
         }},
        {{"update"},
         [&](const VrnlRun& run) {
             EXPECT_EQ(repo.hg({"id", "-n"}), repo.hg({"tip", "-T", "{rev}\n"}));
             EXPECT_TRUE(contains(run.out, "Working copy at ")) << run.out;
         }},
        {{"backout", "1"},
         [&](const VrnlRun&) {
             EXPECT_TRUE(
                 contains(repo.hg({"log", "-r", "tip", "-T", "{desc}"}), "Backout changeset"));
         }},
    };
    for (const Step& step : steps) {
        std::string words;
        for (const std::string& word : step.args) {
            words += word + " ";
        }
        SCOPED_TRACE(words);
        VrnlRun run = vrnl(repo.path(), step.args);
        ASSERT_TRUE(run.ok) << run.err << run.out;
        step.check(run);
    }
}

TEST_F(VrnlMercurialWrite, ShelveDiscardAndNoStagingArea) {
    HgRepository repo;
    repo.commitFile("a.txt", "one\ntwo\nthree\n", "first");
    repo.write("a.txt", "one\nTWO\nthree\n");
    VrnlRun stage = vrnl(repo.path(), {"stage", "a.txt"});
    EXPECT_FALSE(stage.ok);
    EXPECT_TRUE(contains(stage.err, "no staging area")) << stage.err;
    ASSERT_TRUE(vrnl(repo.path(), {"shelve", "--name", "wip"}).ok);
    EXPECT_EQ(repo.hg({"status"}), "");
    VrnlRun list = vrnl(repo.path(), {"shelve", "--list", "--json"});
    ASSERT_TRUE(list.ok) << list.err;
    EXPECT_EQ(list.json.record()->find("shelves")->array()->at(0).record()->string("name"), "wip");
    ASSERT_TRUE(vrnl(repo.path(), {"shelve", "--apply", "wip", "--keep"}).ok);
    EXPECT_EQ(repo.hg({"status"}), "M a.txt\n");
    ASSERT_TRUE(vrnl(repo.path(), {"shelve", "--delete", "wip"}).ok);
    EXPECT_EQ(repo.hg({"shelve", "--list"}), "");
    VrnlRun missing = vrnl(repo.path(), {"shelve", "--delete", "wip"});
    EXPECT_FALSE(missing.ok);
    // Discarding works on the working file alone.
    VrnlRun discard = vrnl(repo.path(), {"discard", "a.txt", "--hunk", "1", "--yes"});
    ASSERT_TRUE(discard.ok) << discard.err;
    EXPECT_EQ(repo.hg({"status"}), "");
    EXPECT_EQ(vn::test::readFile(repo.file("a.txt")), "one\ntwo\nthree\n");
}

TEST_F(VrnlMercurialWrite, MergeConflictsResolvedFromTheCommandLine) {
    HgRepository repo;
    repo.commitFile("c.txt", "base\n", "base");
    repo.commitFile("c.txt", "mine\n", "mine");
    repo.hg({"update", "-q", "0"});
    repo.commitFile("c.txt", "theirs\n", "theirs");
    repo.commitFile("d.txt", "d\n", "more");
    repo.hg({"update", "-q", "1"});
    VrnlRun merge = vrnl(repo.path(), {"merge", "3"});
    EXPECT_FALSE(merge.ok) << merge.out;
    EXPECT_TRUE(contains(merge.out, "unresolved")) << merge.out;
    VrnlRun list = vrnl(repo.path(), {"resolve", "--json"});
    ASSERT_TRUE(list.ok) << list.err;
    ASSERT_EQ(list.json.record()->find("files")->array()->size(), 1u);
    EXPECT_EQ(list.json.record()->find("files")->array()->at(0).record()->integer("status"), 16);
    struct Case {
        const char* action;
        const char* content;  // nullptr: as the merge left it
        const char* listed;
    };
    const Case cases[] = {
        {"--mine", "mine\n", "R c.txt\n"},
        {"--unmark", "mine\n", "U c.txt\n"},
        {"--theirs", "theirs\n", "R c.txt\n"},
        {"--mark", "theirs\n", "R c.txt\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.action);
        VrnlRun run = vrnl(repo.path(), {"resolve", c.action, "c.txt"});
        ASSERT_TRUE(run.ok) << run.err;
        // After hg's own words, the list.
        EXPECT_TRUE(run.out.ends_with(c.listed)) << run.out;
        EXPECT_EQ(vn::test::readFile(repo.file("c.txt")), c.content);
        EXPECT_EQ(repo.hg({"resolve", "-l"}), c.listed);
    }
    VrnlRun commit = vrnl(repo.path(), {"commit", "-m", "merged"});
    ASSERT_TRUE(commit.ok) << commit.err;
    EXPECT_EQ(repo.hg({"log", "-r", ".", "-T", "{p1rev} {p2rev}"}), "1 3");
    VrnlRun none = vrnl(repo.path(), {"resolve", "--list"});
    EXPECT_TRUE(contains(none.out, "No merge in progress")) << none.out;
}

TEST_F(VrnlMercurialWrite, InitCloneFetchPullAndPushBetweenClones) {
    vn::test::TempDir dir("varnel-vrnl-hg");
    std::string origin = dir.file("origin");
    VrnlRun init = vrnl(dir.path(), {"init", "--hg", "origin", "--json"});
    ASSERT_TRUE(init.ok) << init.err;
    EXPECT_TRUE(vn::fs::isDirectory(origin + "/.hg"));
    HgRepository first(origin);
    first.commitFile("a.txt", "1\n", "one");
    // A local Mercurial repository is cloned with hg, without --hg.
    VrnlRun clone = vrnl(dir.path(), {"clone", "origin", "copy", "--json"});
    ASSERT_TRUE(clone.ok) << clone.err;
    HgRepository copy(dir.file("copy"));
    EXPECT_EQ(copy.hg({"log", "-T", "{desc}"}), "one");
    first.commitFile("a.txt", "2\n", "two");
    // fetch only downloads; pull --update moves the working copy too.
    ASSERT_TRUE(vrnl(copy.path(), {"fetch"}).ok);
    EXPECT_EQ(copy.hg({"log", "-r", "tip", "-T", "{desc}"}), "two");
    EXPECT_EQ(copy.hg({"id", "-n"}), "0\n");
    first.commitFile("b.txt", "b\n", "three");
    VrnlRun pull = vrnl(copy.path(), {"pull", "--update", "--json"});
    ASSERT_TRUE(pull.ok) << pull.err;
    EXPECT_EQ(pull.json.record()->string("remote"), "default");
    EXPECT_EQ(copy.hg({"id", "-n"}), "2\n");
    // A push takes new branches along.
    copy.hg({"branch", "-q", "side"});
    copy.commitFile("s.txt", "s\n", "side work");
    VrnlRun push = vrnl(copy.path(), {"push", "--json"});
    ASSERT_TRUE(push.ok) << push.err << push.out;
    EXPECT_EQ(first.hg({"log", "-r", "tip", "-T", "{branch} {desc}"}), "side side work");
    // A clone that fails leaves nothing behind.
    VrnlRun bad = vrnl(dir.path(), {"clone", "--hg", dir.file("nothing"), "bad"});
    EXPECT_FALSE(bad.ok);
    EXPECT_FALSE(vn::fs::exists(dir.file("bad")));
}

// Options that only one system has are refused plainly, and Mercurial's commands say where
// they work.
TEST_F(VrnlMercurialWrite, OptionsOfTheOtherSystemAreRefused) {
    HgRepository hg;
    hg.commitFile("a.txt", "1\n", "one");
    vn::test::GitRepository git;
    struct Case {
        bool inHg;
        std::vector<std::string> args;
        const char* says;
    };
    const Case cases[] = {
        {true, {"commit", "-m", "x", "--signoff"}, "are for Git"},
        {true, {"push", "--all"}, "Mercurial working copy push takes"},
        {true, {"pull", "--no-ff"}, "Mercurial working copy pull takes"},
        {true, {"pull", "--update", "--rebase"}, "one of --update and --rebase"},
        {true, {"fetch", "--prune"}, "are for Git"},
        {true, {"unstage", "a.txt"}, "no staging area"},
        {true, {"push"}, "no default path"},
        {true, {"resolve", "--mark"}, "name the files"},
        {true, {"shelve", "--keep"}, "shelve takes one of"},
        {true, {"bookmark", "--delete"}, "name the bookmark"},
        {false, {"update"}, "works in Mercurial working copies"},
        {false, {"shelve", "--list"}, "works in Mercurial working copies"},
        {false, {"push", "--rev", "1"}, "are for Mercurial"},
        {false, {"pull", "--update"}, "are for Mercurial"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args.front() + (c.inHg ? " in hg" : " in git"));
        VrnlRun run = vrnl(c.inHg ? hg.path() : git.path(), c.args);
        EXPECT_FALSE(run.ok);
        EXPECT_TRUE(contains(run.err, c.says)) << run.err;
    }
    EXPECT_EQ(hg.hg({"log", "-T", "{rev}"}), "0");
}

}  // namespace
