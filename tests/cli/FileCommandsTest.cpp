#include <gtest/gtest.h>

#include <filesystem>

#include "base/Json.h"
#include "base/Record.h"
#include "handler/VNTask.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::GitRepository;
using vn::test::TempDir;

std::shared_ptr<VNTask> vrnlIn(const std::string& folder, const std::vector<std::string>& args) {
    auto task = VNTask::taskWithCommand(VARNEL_TEST_VRNL, folder, args);
    task->run();
    return task;
}

struct Repo {
    GitRepository repo;
    Repo() {
        repo.write("top.txt", "1\n");
        repo.write("sub/inner.txt", "i\n");
        repo.write("sub/keep.txt", "k\n");
        repo.git({"add", "-A"});
        repo.git({"commit", "-q", "-m", "base"});
    }
    std::string porcelain() { return repo.git({"status", "--porcelain", "--untracked-files=all"}); }
};

TEST(VrnlFileCommands, PathsAreRelativeToTheCurrentFolderAndOutputIsTheNewStatus) {
    Repo r;
    r.repo.write("sub/new file.txt", "n\n");
    r.repo.write("top.txt", "2\n");
    // From inside "sub": one file there and one above it.
    auto add = vrnlIn(r.repo.file("sub"), {"add", "new file.txt", "../top.txt"});
    ASSERT_EQ(add->exitCode(), 0) << add->errorOutput();
    EXPECT_EQ(r.porcelain(), "A  \"sub/new file.txt\"\nM  top.txt\n");
    EXPECT_EQ(add->output(), "\nStaged:\n  A  sub/new file.txt\n  M  top.txt\n");

    auto mv = vrnlIn(r.repo.path(), {"mv", "sub/inner.txt", "moved.txt", "--json"});
    ASSERT_EQ(mv->exitCode(), 0) << mv->errorOutput();
    auto json = vn::parseJson(mv->output());
    ASSERT_TRUE(json.has_value());
    const vn::Record* record = json->record();
    ASSERT_NE(record, nullptr);
    const auto* files = (*record)["files"].array();
    ASSERT_NE(files, nullptr);
    ASSERT_EQ(files->size(), 1u);
    const vn::Record& moved = *(*files)[0].record();
    EXPECT_EQ(moved.string("filename"), "moved.txt");
    EXPECT_EQ(moved.string("previousName"), "sub/inner.txt");
    EXPECT_EQ(moved["status"].toUInt(), 512u);
}

TEST(VrnlFileCommands, RemoveKeepsUncommittedWorkUnlessForced) {
    Repo r;
    r.repo.write("sub/keep.txt", "changed\n");
    auto refused = vrnlIn(r.repo.path(), {"rm", "sub/keep.txt", "top.txt"});
    EXPECT_EQ(refused->exitCode(), 1);
    EXPECT_NE(refused->errorOutput().find("sub/keep.txt"), std::string::npos);
    EXPECT_EQ(vn::test::readFile(r.repo.file("sub/keep.txt")), "changed\n");
    EXPECT_TRUE(std::filesystem::exists(r.repo.file("top.txt")));

    auto cached = vrnlIn(r.repo.path(), {"rm", "--cached", "sub/keep.txt"});
    ASSERT_EQ(cached->exitCode(), 0) << cached->errorOutput();
    EXPECT_EQ(r.porcelain(), "D  sub/keep.txt\n?? sub/keep.txt\n");

    auto removed = vrnlIn(r.repo.path(), {"rm", "top.txt"});
    ASSERT_EQ(removed->exitCode(), 0) << removed->errorOutput();
    EXPECT_FALSE(std::filesystem::exists(r.repo.file("top.txt")));
    EXPECT_NE(removed->output().find("  D  top.txt"), std::string::npos);

    r.repo.git({"add", "sub/keep.txt"});
    r.repo.write("sub/keep.txt", "again\n");
    auto forced = vrnlIn(r.repo.path(), {"rm", "--force", "sub/keep.txt"});
    ASSERT_EQ(forced->exitCode(), 0) << forced->errorOutput();
    EXPECT_FALSE(std::filesystem::exists(r.repo.file("sub/keep.txt")));
}

TEST(VrnlFileCommands, BadInputIsAClearErrorThatChangesNothing) {
    Repo r;
    TempDir outside;
    vn::test::writeFile(outside.file("x.txt"), "x\n");
    struct BadCall {
        std::vector<std::string> args;
        int exitCode;
        const char* message;
    };
    const std::vector<BadCall> calls = {
        {{"add"}, 2, "at least one file"},
        {{"add", outside.file("x.txt")}, 1, "outside the working copy"},
        {{"add", "../"}, 1, "outside the working copy"},
        {{"mv", "top.txt"}, 2, "source and a destination"},
        {{"mv", "nothing.txt", "b.txt"}, 1, "mv failed"},
        {{"rm", "--bogus", "top.txt"}, 2, "--bogus"},
    };
    for (const BadCall& call : calls) {
        SCOPED_TRACE(call.args.size() > 1 ? call.args[1] : call.args[0]);
        auto task = vrnlIn(r.repo.path(), call.args);
        EXPECT_EQ(task->exitCode(), call.exitCode);
        EXPECT_NE(task->errorOutput().find(call.message), std::string::npos) << task->errorOutput();
        EXPECT_EQ(r.porcelain(), "");
    }
    auto notRepo = vrnlIn(outside.path(), {"add", "x.txt"});
    EXPECT_EQ(notRepo->exitCode(), 1);
    EXPECT_NE(notRepo->errorOutput().find("not inside a repository"), std::string::npos);
}

}  // namespace
