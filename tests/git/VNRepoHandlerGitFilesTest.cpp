#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <set>

#include "git/VNRepoHandlerGit.h"
#include "handler/VNTaskList.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::GitRepository;

// `git status --porcelain` lines, as a set: what git itself says of the working copy.
std::set<std::string> porcelain(GitRepository& repo) {
    std::string out = repo.git({"status", "--porcelain", "--untracked-files=all"});
    std::set<std::string> lines;
    std::size_t start = 0;
    while (start < out.size()) {
        std::size_t end = out.find('\n', start);
        if (end == std::string::npos) {
            end = out.size();
        }
        if (end > start) {
            lines.insert(out.substr(start, end - start));
        }
        start = end + 1;
    }
    return lines;
}

// A committed history of three files under an ignore rule, then a modified file, a new file, a
// new file whose name starts with a dash and an ignored file.
struct FilesFixture {
    GitRepository repo;
    std::shared_ptr<VNRepoHandlerGit> handler = std::make_shared<VNRepoHandlerGit>();
    FilesFixture() {
        repo.write(".gitignore", "*.log\n");
        repo.write("tracked.txt", "one\n");
        repo.write("keep me.txt", "keep\n");
        repo.write("dir/a.txt", "a\n");
        repo.git({"add", "-A"});
        repo.git({"commit", "-q", "-m", "base"});
        repo.write("tracked.txt", "two\n");
        repo.write("new.txt", "new\n");
        repo.write("-dash.txt", "dash\n");
        repo.write("x.log", "log\n");
    }
    bool exists(const std::string& file) const { return std::filesystem::exists(repo.file(file)); }
};

struct Case {
    const char* name;
    std::function<void(FilesFixture&)> before;
    std::function<VNTaskList(FilesFixture&)> tasks;
    std::set<std::string> status;
    std::function<void(FilesFixture&)> check;
};

TEST(VNRepoHandlerGitFiles, EachOperationLeavesTheStatusGitReports) {
    auto none = [](FilesFixture&) {};
    const std::vector<Case> cases = {
        {"add stages changes, new files, dashed names and named ignored files",
         none,
         [](FilesFixture& f) {
             return f.handler->addTasks(f.repo.path(),
                                        {"tracked.txt", "new.txt", "-dash.txt", "x.log"});
         },
         {"M  tracked.txt", "A  new.txt", "A  -dash.txt", "A  x.log"},
         none},
        {"unstage gives staged files back to the index's base, working files untouched",
         [](FilesFixture& f) {
             f.repo.git({"add", "tracked.txt", "new.txt"});
         },
         [](FilesFixture& f) {
             return f.handler->unstageTasks(f.repo.path(), {"tracked.txt", "new.txt"});
         },
         {" M tracked.txt", "?? new.txt", "?? -dash.txt"},
         [](FilesFixture& f) {
             EXPECT_EQ(vn::test::readFile(f.repo.file("tracked.txt")), "two\n");
         }},
        {"remove deletes a changed file from the index and the disk",
         none,
         [](FilesFixture& f) {
             return f.handler->removeTasks(f.repo.path(), {"tracked.txt", "keep me.txt"});
         },
         {"D  tracked.txt", "D  \"keep me.txt\"", "?? new.txt", "?? -dash.txt"},
         [](FilesFixture& f) {
             EXPECT_FALSE(f.exists("tracked.txt"));
             EXPECT_FALSE(f.exists("keep me.txt"));
         }},
        {"stop tracking keeps the file on disk, untracked",
         none,
         [](FilesFixture& f) {
             return f.handler->stopTrackingTasks(f.repo.path(), {"keep me.txt"});
         },
         {"D  \"keep me.txt\"", "?? \"keep me.txt\"", " M tracked.txt", "?? new.txt",
          "?? -dash.txt"},
         [](FilesFixture& f) { EXPECT_TRUE(f.exists("keep me.txt")); }},
        {"add/remove all stages deletions and new files but no ignored file",
         [](FilesFixture& f) { std::filesystem::remove(f.repo.file("keep me.txt")); },
         [](FilesFixture& f) { return f.handler->addRemoveTasks(f.repo.path()); },
         {"M  tracked.txt", "A  new.txt", "A  -dash.txt", "D  \"keep me.txt\""},
         none},
        {"move renames and stages the rename",
         none,
         [](FilesFixture& f) {
             return f.handler->moveTasks(f.repo.path(), "dir/a.txt", "moved a.txt");
         },
         {"R  dir/a.txt -> \"moved a.txt\"", " M tracked.txt", "?? new.txt", "?? -dash.txt"},
         [](FilesFixture& f) { EXPECT_FALSE(f.exists("dir/a.txt")); }},
        {"copy is the same move",
         none,
         [](FilesFixture& f) {
             return f.handler->copyTasks(f.repo.path(), "dir/a.txt", "dir/b.txt");
         },
         {"R  dir/a.txt -> dir/b.txt", " M tracked.txt", "?? new.txt", "?? -dash.txt"},
         none},
        {"revert drops unstaged changes and keeps staged ones",
         [](FilesFixture& f) {
             f.repo.git({"add", "tracked.txt"});
             f.repo.write("tracked.txt", "three\n");
         },
         [](FilesFixture& f) {
             return f.handler->revertTasks(f.repo.path(), {"tracked.txt"}, 0, 0);
         },
         {"M  tracked.txt", "?? new.txt", "?? -dash.txt"},
         [](FilesFixture& f) {
             EXPECT_EQ(vn::test::readFile(f.repo.file("tracked.txt")), "two\n");
         }},
        {"revert to a revision restores the index and the working file",
         [](FilesFixture& f) {
             f.repo.git({"add", "tracked.txt"});
             f.repo.write("tracked.txt", "three\n");
         },
         [](FilesFixture& f) {
             return f.handler->revertTasks(f.repo.path(), {"tracked.txt"}, "HEAD", 0, 0);
         },
         {"?? new.txt", "?? -dash.txt"},
         [](FilesFixture& f) {
             EXPECT_EQ(vn::test::readFile(f.repo.file("tracked.txt")), "one\n");
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FilesFixture fixture;
        c.before(fixture);
        VNTaskList tasks = c.tasks(fixture);
        ASSERT_FALSE(tasks.empty());
        auto failed = runTasksUntilFailure(tasks);
        ASSERT_EQ(failed, nullptr) << failed->errorOutput();
        EXPECT_EQ(porcelain(fixture.repo), c.status);
        c.check(fixture);
    }
}

TEST(VNRepoHandlerGitFiles, FailuresAndEmptyListsAreReportedNotHidden) {
    FilesFixture fixture;
    const std::string& path = fixture.repo.path();
    // No files, no command: an empty list must not turn into "git add --" of nothing.
    EXPECT_TRUE(fixture.handler->addTasks(path, {}).empty());
    EXPECT_TRUE(fixture.handler->unstageTasks(path, {}).empty());
    EXPECT_TRUE(fixture.handler->revertTasks(path, {}, 0, 0).empty());

    // A file git does not know fails the list, with git's reason, and the later tasks never run.
    VNTaskList tasks = fixture.handler->removeTasks(path, {"no such file"});
    VNTaskList more = fixture.handler->addTasks(path, {"new.txt"});
    tasks.insert(tasks.end(), more.begin(), more.end());
    auto failed = runTasksUntilFailure(tasks);
    ASSERT_NE(failed, nullptr);
    EXPECT_NE(failed->errorOutput().find("no such file"), std::string::npos);
    EXPECT_TRUE(porcelain(fixture.repo).count("?? new.txt"));

    // Unstaging before the first commit takes the new file out of the index again.
    GitRepository empty;
    empty.write("first.txt", "1\n");
    empty.git({"add", "first.txt"});
    auto unstaged =
        runTasksUntilFailure(fixture.handler->unstageTasks(empty.path(), {"first.txt"}));
    ASSERT_EQ(unstaged, nullptr) << unstaged->errorOutput();
    EXPECT_EQ(porcelain(empty), (std::set<std::string>{"?? first.txt"}));
}

TEST(VNRepoHandlerGitFiles, LongFileListsAreSplitAndEveryFileIsStaged) {
    GitRepository repo;
    auto handler = std::make_shared<VNRepoHandlerGit>();
    std::vector<std::string> files;
    for (int i = 0; i < 4100; ++i) {
        files.push_back("f" + std::to_string(i));
        std::FILE* out = std::fopen(repo.file(files.back()).c_str(), "w");
        ASSERT_NE(out, nullptr);
        std::fclose(out);
    }
    VNTaskList tasks = handler->addTasks(repo.path(), files);
    ASSERT_EQ(tasks.size(), 2u);
    auto failed = runTasksUntilFailure(tasks);
    ASSERT_EQ(failed, nullptr) << failed->errorOutput();
    std::string staged = repo.git({"diff", "--cached", "--name-only"});
    EXPECT_EQ(std::count(staged.begin(), staged.end(), '\n'), 4100);

    tasks = handler->unstageTasks(repo.path(), files);
    ASSERT_EQ(tasks.size(), 2u);
    failed = runTasksUntilFailure(tasks);
    ASSERT_EQ(failed, nullptr) << failed->errorOutput();
    EXPECT_EQ(repo.git({"diff", "--cached", "--name-only"}), "");
}

}  // namespace
