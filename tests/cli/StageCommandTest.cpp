#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/Json.h"
#include "base/Record.h"
#include "handler/VNTask.h"
#include "support/GitDiffSupport.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::contentAt;
using vn::test::GitRepository;
using vn::test::numberedLines;
using vn::test::readFile;

std::shared_ptr<VNTask> vrnlIn(const std::string& folder, const std::vector<std::string>& args) {
    auto task = VNTask::taskWithCommand(VARNEL_TEST_VRNL, folder, args);
    task->run();
    return task;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    text.replace(text.find(from), from.size(), to);
    return text;
}

// The row `vrnl diff` prints before the line that ends with `content`.
std::string rowOf(const std::string& diffOutput, const std::string& content) {
    std::size_t at = diffOutput.find(content + "\n");
    std::size_t start = diffOutput.rfind('\n', at) + 1;
    std::string row = diffOutput.substr(start, diffOutput.find('|', start) - start);
    row.erase(0, row.find_first_not_of(' '));
    return row.substr(0, row.find(' '));
}

TEST(VrnlStage, HunksAndRowsAsDiffNumbersThem) {
    GitRepository repo;
    const std::string base = numberedLines(1, 24);
    repo.commitFile("f.txt", base, "base");
    std::string changed = replaced(base, "line 3\n", "changed 3\n");
    changed = replaced(changed, "line 12\n", "changed 12\n");
    changed = replaced(changed, "line 20\n", "changed 20\n");
    repo.write("f.txt", changed);

    auto diff = vrnlIn(repo.path(), {"diff"});
    ASSERT_EQ(diff->exitCode(), 0) << diff->errorOutput();
    for (const char* header :
         {"@@ -1,6 +1,6 @@ hunk 1", "@@ -9,7 +9,7 @@ hunk 2", "@@ -17,7 +17,7 @@ hunk 3"}) {
        EXPECT_NE(diff->output().find(header), std::string::npos) << header << diff->output();
    }

    auto hunk = vrnlIn(repo.path(), {"stage", "f.txt", "--hunk", "2"});
    EXPECT_EQ(hunk->exitCode(), 0) << hunk->errorOutput();
    EXPECT_EQ(hunk->output(), "MM f.txt\n");
    EXPECT_EQ(contentAt(repo, "", "f.txt"), replaced(base, "line 12\n", "changed 12\n"));

    // Hunk 2 is staged: the row of "+changed 20" is now in hunk 2 of the unstaged diff.
    diff = vrnlIn(repo.path(), {"diff"});
    std::string row = rowOf(diff->output(), "+changed 20");
    ASSERT_FALSE(row.empty()) << diff->output();
    auto lines = vrnlIn(repo.path(), {"stage", "f.txt", "--lines", row + "-" + row});
    EXPECT_EQ(lines->exitCode(), 0) << lines->errorOutput();
    EXPECT_EQ(contentAt(repo, "", "f.txt"), replaced(replaced(base, "line 12\n", "changed 12\n"),
                                                     "line 20\n", "line 20\nchanged 20\n"));

    auto unstage = vrnlIn(repo.path(), {"unstage", "f.txt", "--json"});
    EXPECT_EQ(unstage->exitCode(), 0) << unstage->errorOutput();
    auto json = vn::parseJson(unstage->output());
    ASSERT_TRUE(json) << unstage->output();
    const vn::Record* status = (*json->record())["status"].record();
    ASSERT_TRUE(status) << unstage->output();
    EXPECT_EQ((*status)["indexStatus"].toUInt(), 1u) << "clean in the index";
    EXPECT_EQ(contentAt(repo, "", "f.txt"), base);

    // Without a terminal, discarding needs --yes.
    auto unconfirmed = vrnlIn(repo.path(), {"discard", "f.txt", "--hunk", "1"});
    EXPECT_EQ(unconfirmed->exitCode(), 2);
    EXPECT_NE(unconfirmed->errorOutput().find("--yes"), std::string::npos);
    EXPECT_EQ(readFile(repo.file("f.txt")), changed);
    auto discard = vrnlIn(repo.path(), {"discard", "f.txt", "--hunk", "1", "--yes"});
    EXPECT_EQ(discard->exitCode(), 0) << discard->errorOutput();
    EXPECT_EQ(discard->output(), " M f.txt\n");
    EXPECT_EQ(readFile(repo.file("f.txt")), replaced(changed, "changed 3\n", "line 3\n"));
}

TEST(VrnlStage, WrongSelectionsAndFilesChangeNothing) {
    GitRepository repo;
    repo.commitFile("f.txt", numberedLines(1, 5), "base");
    repo.commitFile("same.txt", "same\n", "same");
    const std::string changed = numberedLines(1, 4) + "five\n";
    repo.write("f.txt", changed);
    repo.write("new file.txt", "new\n");
    struct Case {
        std::vector<std::string> args;
        int exitCode;
        const char* message;
    };
    const Case cases[] = {
        {{"stage", "f.txt", "--hunk", "2"}, 1, "has 1 hunk, not 2"},
        {{"stage", "f.txt", "--lines", "5-2"}, 2, "--lines needs rows"},
        {{"stage", "f.txt", "--lines", "40"}, 1, "are not rows of"},
        {{"stage", "f.txt", "--hunk", "x"}, 2, "--hunk needs a hunk number"},
        {{"stage", "f.txt", "--lines", "1-2"}, 1, "no added or removed line"},
        {{"stage", "same.txt"}, 1, "has no unstaged changes"},
        {{"unstage", "f.txt"}, 1, "has no staged changes"},
        {{"stage", "new file.txt", "--hunk", "1"}, 2, "staged as a whole"},
        {{"stage", "f.txt", "same.txt"}, 2, "takes one file"},
        {{"discard", "same.txt", "--yes"}, 1, "has no unstaged changes"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args[0] + " " + c.args[1]);
        auto task = vrnlIn(repo.path(), c.args);
        EXPECT_EQ(task->exitCode(), c.exitCode);
        EXPECT_NE(task->errorOutput().find(c.message), std::string::npos) << task->errorOutput();
    }
    EXPECT_EQ(readFile(repo.file("f.txt")), changed);
    EXPECT_EQ(repo.git({"status", "--porcelain"}), " M f.txt\n?? \"new file.txt\"\n");

    auto untracked = vrnlIn(repo.path(), {"stage", "new file.txt"});
    EXPECT_EQ(untracked->exitCode(), 0) << untracked->errorOutput();
    EXPECT_EQ(untracked->output(), "A  new file.txt\n");
}

}  // namespace
