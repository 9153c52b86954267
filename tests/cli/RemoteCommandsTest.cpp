#include <gtest/gtest.h>

#include "base/Json.h"
#include "base/Record.h"
#include "cli/ProgressRenderer.h"
#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "support/TestEnvironment.h"

namespace {

using vn::cli::ProgressRenderer;
using vn::test::GitRepository;
using vn::test::TempDir;

std::string render(bool terminal, const std::vector<std::string>& pieces) {
    std::string out;
    ProgressRenderer renderer(terminal, [&](std::string_view text) { out.append(text); });
    for (const std::string& piece : pieces) {
        renderer.feed(piece);
    }
    renderer.finish();
    return out;
}

TEST(ProgressRenderer, DrawsBarsOnATerminalAndKeepsOnlyFinishedLinesElsewhere) {
    struct Case {
        const char* name;
        std::vector<std::string> pieces;
        std::string pipe;
        std::string terminal;
    };
    const std::string cl = "\x1b[K";
    const std::vector<Case> cases = {
        {"a counted phase redrawn, then done",
         {"Receiving objects:  50% (1/2)\r", "Receiving objects: 100% (2/2), done.\n"},
         "Receiving objects: 100% (2/2), done.\n",
         "\rReceiving objects [##########          ] 50% (1/2)" + cl +
             "\rReceiving objects [####################] 100% (2/2), done." + cl + "\n"},
        {"pieces split anywhere, even between \\r and \\n",
         {"Coun", "ting objects:  3", "3% (1/3)\r", "Counting objects: 100% (3/3)\r", "\n"},
         "Counting objects: 100% (3/3)\n",
         "\rCounting objects [######              ] 33% (1/3)" + cl +
             "\rCounting objects [####################] 100% (3/3)" + cl + "\n"},
        {"remote lines lose git's padding; plain messages pass",
         {"remote: Enumerating objects: 5, done.        \n", "To file:///r\n"},
         "remote: Enumerating objects: 5, done.\nTo file:///r\n",
         "\rremote: Enumerating objects: 5, done." + cl + "\n\rTo file:///r" + cl + "\n"},
        {"passwords in URLs are masked, control characters shown",
         {"fatal: unable to access 'https://bob:hunter2@h/r/': \x1b[31mno\n"},
         "fatal: unable to access 'https://bob:***@h/r/': \\x1b[31mno\n",
         "\rfatal: unable to access 'https://bob:***@h/r/': \\x1b[31mno" + cl + "\n"},
        {"an unfinished last line is written at the end",
         {"Updating files:  10% (1/10)\r", "error: cut"},
         "error: cut\n",
         "\rUpdating files [##                  ] 10% (1/10)" + cl + "\rerror: cut" + cl + "\n"},
        {"CRLF ends lines", {"one\r\ntwo\r\n"}, "one\ntwo\n", "\rone" + cl + "\n\rtwo" + cl + "\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(render(false, c.pieces), c.pipe);
        EXPECT_EQ(render(true, c.pieces), c.terminal);
    }
    EXPECT_EQ(ProgressRenderer::bar(0, 4), "[    ] 0%");
    EXPECT_EQ(ProgressRenderer::bar(250, 4), "[####] 100%");
}

std::shared_ptr<VNTask> vrnl(const std::string& folder, const std::vector<std::string>& args) {
    auto task = VNTask::taskWithCommand(VARNEL_TEST_VRNL, folder, args);
    task->run();
    return task;
}

vn::Record json(const VNTask& task) {
    auto value = vn::parseJson(task.output());
    return value && value->record() ? *value->record() : vn::Record{};
}

TEST(VrnlRemoteCommands, InitCommitCloneCommitPushPullFetch) {
    TempDir dir("varnel-cli-remote");
    std::string origin = dir.file("origin.git");
    vn::test::runProgram(dir.path(), "git", {"init", "-q", "--bare", origin});

    auto init = vrnl(dir.path(), {"init", "one"});
    ASSERT_TRUE(init->success()) << init->errorOutput();
    std::string one = dir.file("one");
    vn::test::writeFile(one + "/a.txt", "a\n");
    vn::test::runProgram(one, "git", {"add", "a.txt"});
    auto commit = vrnl(one, {"commit", "--message", "first"});
    ASSERT_TRUE(commit->success()) << commit->errorOutput();
    EXPECT_NE(commit->output().find("] first"), std::string::npos) << commit->output();
    vn::test::runProgram(one, "git", {"remote", "add", "origin", "file://" + origin});
    auto push = vrnl(one, {"push", "--json"});
    ASSERT_TRUE(push->success()) << push->errorOutput() << push->output();
    vn::Record pushed = json(*push);
    EXPECT_EQ(pushed.string("remote"), "origin");
    EXPECT_TRUE(pushed.boolean("success"));
    ASSERT_TRUE(pushed["tasks"].array());
    EXPECT_EQ(pushed["tasks"].array()->size(), 1u);
    EXPECT_EQ(vn::test::runProgram(one, "git", {"rev-parse", "--abbrev-ref", "main@{upstream}"})
                  ->output(),
              "origin/main\n")
        << "a first push sets the upstream";

    auto clone = vrnl(dir.path(), {"clone", "file://" + origin, "two"});
    ASSERT_TRUE(clone->success()) << clone->errorOutput();
    std::string two = dir.file("two");
    EXPECT_EQ(vn::test::readFile(two + "/a.txt"), "a\n");
    vn::test::writeFile(two + "/a.txt", "changed\n");
    auto all = vrnl(two, {"commit", "--all", "-m", "second", "--signoff"});
    ASSERT_TRUE(all->success()) << all->errorOutput();
    ASSERT_TRUE(vrnl(two, {"push"})->success());

    auto pull = vrnl(one, {"pull", "--json"});
    ASSERT_TRUE(pull->success()) << pull->output();
    EXPECT_EQ(json(*pull)["tasks"].array()->size(), 3u) << "fetch, pull, submodule update";
    EXPECT_EQ(vn::test::readFile(one + "/a.txt"), "changed\n");
    auto fetch = vrnl(one, {"fetch", "--prune"});
    EXPECT_TRUE(fetch->success()) << fetch->errorOutput();
}

TEST(VrnlRemoteCommands, FailuresShowGitsOwnTextAndAFailedCloneLeavesNothing) {
    TempDir dir("varnel-cli-fail");
    auto clone = vrnl(dir.path(), {"clone", "file://" + dir.file("missing.git"), "target"});
    EXPECT_EQ(clone->exitCode(), 1);
    EXPECT_NE(clone->errorOutput().find("does not appear to be a git repository"),
              std::string::npos)
        << clone->errorOutput();
    EXPECT_FALSE(vn::fs::exists(dir.file("target")));

    GitRepository repo;
    repo.commitFile("a.txt", "a\n", "first");
    auto nothing = vrnl(repo.path(), {"commit", "-m", "empty"});
    EXPECT_EQ(nothing->exitCode(), 1);
    EXPECT_NE(nothing->output().find("nothing to commit"), std::string::npos);
    auto noRemote = vrnl(repo.path(), {"push"});
    EXPECT_EQ(noRemote->exitCode(), 2);
    auto usage = vrnl(repo.path(), {"commit"});
    EXPECT_EQ(usage->exitCode(), 2);
    EXPECT_NE(usage->errorOutput().find("needs a message"), std::string::npos);
    repo.git({"remote", "add", "origin", "file://" + dir.file("nowhere.git")});
    auto refused = vrnl(repo.path(), {"push"});
    EXPECT_EQ(refused->exitCode(), 1);
    EXPECT_NE(refused->errorOutput().find("fatal:"), std::string::npos) << refused->errorOutput();
}

TEST(VrnlRemoteCommands, ProgressBarsOnATerminal) {
    auto script = vn::fs::findExecutable("script");
    if (!script) {
        GTEST_SKIP() << "util-linux's script, which gives vrnl a terminal, is not installed";
    }
    GitRepository source;
    for (int i = 0; i < 5; ++i) {
        source.commitFile("f" + std::to_string(i), std::to_string(i) + "\n", "commit");
    }
    TempDir dir("varnel-cli-tty");
    auto run = vn::test::runProgram(
        dir.path(), *script,
        {"-qec", std::string(VARNEL_TEST_VRNL) + " clone file://" + source.path() + " out",
         "/dev/null"});
    ASSERT_TRUE(run->success()) << run->output();
    const std::string& screen = run->output();
    // git's phases drawn as bars in place, each ended with its own final line.
    EXPECT_NE(screen.find("Receiving objects ["), std::string::npos) << screen;
    EXPECT_NE(screen.find("] 100% ("), std::string::npos);
    EXPECT_NE(screen.find("\x1b[K"), std::string::npos);
    EXPECT_TRUE(vn::fs::exists(dir.file("out/f4")));
}

}  // namespace
