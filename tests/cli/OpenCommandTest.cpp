#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "handler/VNTask.h"
#include "support/TestEnvironment.h"

namespace {

struct OpenRun {
    int64_t exitCode;
    std::string out;
    std::string err;
};

OpenRun vrnlOpen(const std::vector<std::string>& env, const std::vector<std::string>& words) {
    std::vector<std::string> args = {"-u", "DISPLAY", "-u", "WAYLAND_DISPLAY"};
    args.insert(args.end(), env.begin(), env.end());
    args.push_back(VARNEL_TEST_VRNL);
    args.push_back("open");
    args.insert(args.end(), words.begin(), words.end());
    auto task = VNTask::taskWithCommand("/usr/bin/env", vn::test::sandboxPath(), args);
    task->run();
    return {task->exitCode(), task->output(), task->errorOutput()};
}

// vrnl open refuses what it cannot open with a reason, and otherwise starts the desktop program
// detached with the working copy's absolute path.
TEST(VrnlOpen, RefusesWhatItCannotOpenAndStartsTheWindowDetached) {
    vn::test::GitRepository repo;
    repo.commitFile("a.txt", "a\n", "first");
    vn::test::TempDir plain;
    vn::test::TempDir tools;
    std::string record = tools.file("started.txt");
    std::string fake = vn::test::writeScript(tools.path(), "fake-varnel",
                                             "printf '%s\\n' \"$@\" > '" + record +
                                                 ".part'\n"
                                                 "mv '" +
                                                 record + ".part' '" + record + "'\n");
    const std::string desktop = "VARNEL_DESKTOP=" + fake;
    struct Case {
        const char* name;
        std::vector<std::string> env;
        std::vector<std::string> words;
        int64_t exitCode;
        const char* message;
    };
    const Case cases[] = {
        {"no such folder", {"DISPLAY=:77", desktop}, {plain.file("missing")}, 1, "no folder"},
        {"not a working copy", {"DISPLAY=:77", desktop}, {plain.path()}, 1, "not a working copy"},
        {"no display", {desktop}, {repo.path()}, 1, "vrnl overview"},
        {"no program",
         {"DISPLAY=:77", "VARNEL_DESKTOP=" + plain.file("none")},
         {repo.path()},
         1,
         "is not installed"},
        {"two paths", {"DISPLAY=:77", desktop}, {repo.path(), repo.path()}, 2, "at most one"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        OpenRun run = vrnlOpen(c.env, c.words);
        EXPECT_EQ(run.exitCode, c.exitCode) << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
        EXPECT_FALSE(std::filesystem::exists(record));
    }

    OpenRun run = vrnlOpen({"WAYLAND_DISPLAY=wayland-0", desktop}, {repo.path() + "/.", "--json"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("\"started\":true"), std::string::npos) << run.out;
    for (int i = 0; i < 500 && !std::filesystem::exists(record); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(vn::test::readFile(record), "--detached\n" + repo.path() + "\n");
}

}  // namespace
