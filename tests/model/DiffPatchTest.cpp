#include "model/DiffPatch.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "model/VNDiffParser.h"

namespace {

std::shared_ptr<VNDiffFileModel> parse(const std::string& diff) {
    VNDiffFileList files;
    VNDiffParser::git().parseDiffToModel(diff, files, 20);
    return files.empty() ? nullptr : files.front();
}

const std::string header = "diff --git a/f b/f\n--- a/f\t\n+++ b/f\t\n";

TEST(DiffPatch, SelectionsBecomePatchesOfExactlyThoseChanges) {
    struct Case {
        const char* name;
        std::string diff;
        std::size_t location, length;
        bool staging;
        std::optional<std::string> expected;
    };
    const std::string replace =
        "diff --git a/f b/f\n--- a/f\n+++ b/f\n@@ -1,4 +1,4 @@\n a\n-b\n-c\n"
        "+B\n+C\n d\n";
    const std::string noNewline =
        "diff --git a/f b/f\n--- a/f\n+++ b/f\n@@ -1,2 +1,2 @@\n a\n-b\n"
        "\\ No newline at end of file\n+c\n"
        "\\ No newline at end of file\n";
    const Case cases[] = {
        {"staging one added line: removed lines around it are context, other additions gone",
         replace, 3, 1, true, header + "@@ -1,4 +1,5 @@\n a\n b\n c\n+B\n d\n"},
        {"unstaging the same row: additions around it are context, removals gone", replace, 3, 1,
         false, header + "@@ -1,3 +1,4 @@\n a\n+B\n C\n d\n"},
        {"staging one removed line", replace, 2, 1, true,
         header + "@@ -1,4 +1,3 @@\n a\n b\n-c\n d\n"},
        {"a range reaching past the hunk is cut at its end", replace, 4, 50, true,
         header + "@@ -1,4 +1,5 @@\n a\n b\n c\n+C\n d\n"},
        {"only context rows: no patch", replace, 0, 1, true, std::nullopt},
        {"an empty range: no patch", replace, 2, 0, true, std::nullopt},
        {"an addition at the very top", "diff --git a/f b/f\n@@ -1,2 +1,3 @@\n+x\n a\n b\n", 0, 1,
         true, header + "@@ -1,2 +1,3 @@\n+x\n a\n b\n"},
        {"a new file's lines: nothing to match before them",
         "diff --git a/f b/f\nnew file mode 100644\n@@ -0,0 +1,3 @@\n+x\n+y\n+z\n", 1, 1, true,
         header + "@@ -0,0 +1 @@\n+y\n"},
        {"unstaging a line of a deleted file",
         "diff --git a/f b/f\ndeleted file mode 100644\n@@ -1,3 +0,0 @@\n-x\n-y\n-z\n", 1, 1, false,
         header + "@@ -1 +0,0 @@\n-y\n"},
        {"the last line keeps its missing newline when its change is staged", noNewline, 3, 1,
         false, header + "@@ -1 +1,2 @@\n a\n+c\n\\ No newline at end of file\n"},
        {"a line that stops being the last one gets its newline", noNewline, 3, 1, true,
         header + "@@ -1,2 +1,3 @@\n a\n-b\n\\ No newline at end of file\n+b\n+c\n"
                  "\\ No newline at end of file\n"},
        {"staging the removal of a last line without newline", noNewline, 1, 1, true,
         header + "@@ -1,2 +1 @@\n a\n-b\n\\ No newline at end of file\n"},
        {"CRLF lines keep their line ends, the header does not take them",
         "diff --git a/f b/f\r\n@@ -1,2 +1,2 @@\r\n a\r\n-b\r\n+c\r\n", 2, 1, true,
         header + "@@ -1,2 +1,3 @@\n a\r\n b\r\n+c\r\n"},
        {"a header without counts: rows numbered from 0, the patch from the header",
         "diff --git a/f b/f\n@@ -7 +7 @@\n-x\n+y\n", 1, 1, false, header + "@@ -6,0 +7 @@\n+y\n"},
        {"three lines of context at most on each side",
         "diff --git a/f b/f\n@@ -1,9 +1,9 @@\n 1\n 2\n 3\n 4\n-5\n+five\n 6\n 7\n 8\n 9\n", 4, 2,
         true, header + "@@ -2,7 +2,7 @@\n 2\n 3\n 4\n-5\n+five\n 6\n 7\n 8\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto file = parse(c.diff);
        ASSERT_TRUE(file);
        ASSERT_FALSE(file->hunks().empty());
        file->setFilename("f");
        EXPECT_EQ(vn::createPatchForHunkLinesInRange(*file, *file->hunks().front(),
                                                     {c.location, c.length}, c.staging, false),
                  c.expected);
    }
}

TEST(DiffPatch, HunksGivenAsRecordsTakeTheFilesLineEnds) {
    VNDiffFileModel file;
    file.setFilename("f");
    VNDiffHunkModel hunk;
    hunk.setStartLineBefore(1);
    hunk.setEndLineBefore(1);
    hunk.setStartLineAfter(1);
    hunk.setEndLineAfter(2);
    hunk.setHunkLines({VNDiffHunkModel::lineRecord(" ", "1", "1", "a"),
                       VNDiffHunkModel::lineRecord("+", "", "2", "b")});
    EXPECT_EQ(vn::createPatchForHunkLinesInRange(file, hunk, {1, 1}, true, true),
              header + "@@ -1 +1,2 @@\n a\r\n+b\r\n");
}

TEST(DiffPatch, NamesThatWouldEndTheHeaderAreQuoted) {
    auto file = parse("diff --git a/x b/x\n@@ -1 +1,2 @@\n a\n+b\n");
    ASSERT_TRUE(file);
    for (auto [name, expected] : {
             std::pair<std::string, std::string>{"with space ",
                                                 "diff --git a/with space  b/with "
                                                 "space \n--- a/with space \t\n"},
             {"quo\"te\\tab\t",
              "diff --git \"a/quo\\\"te\\\\tab\\t\" \"b/quo\\\"te\\\\tab\\t\"\n"
              "--- \"a/quo\\\"te\\\\tab\\t\"\t\n"},
             {"caf\xC3\xA9", "diff --git a/caf\xC3\xA9 b/caf\xC3\xA9\n"},
         }) {
        SCOPED_TRACE(name);
        file->setFilename(name);
        std::string patch =
            vn::createPatchForHunkLinesInRange(*file, *file->hunks().front(), {1, 1}, true, false)
                .value_or("");
        EXPECT_EQ(patch.rfind(expected, 0), 0u) << patch;
    }
}

TEST(DiffPatch, LinesSplitAtOtherLineEndsCannotBePatched) {
    for (const char* body : {"+a\fb\n", "+a\rb\n", " x\v y\n"}) {
        SCOPED_TRACE(body);
        auto file = parse(std::string("diff --git a/f b/f\n@@ -1 +1,2 @@\n a\n") + body);
        ASSERT_TRUE(file);
        EXPECT_NE(vn::hunkPatchProblem(*file->hunks().front()), "");
    }
    auto plain = parse("diff --git a/f b/f\n@@ -1 +1,2 @@\n a\r\n+b\r\n");
    EXPECT_EQ(vn::hunkPatchProblem(*plain->hunks().front()), "");
}

TEST(DiffPatch, WholeFilePatchesCreateAndDeleteFiles) {
    auto added = parse(
        "diff --git a/n b/n\nnew file mode 100755\nindex 0000000..1\n--- /dev/null\n"
        "+++ b/n\n@@ -0,0 +1,2 @@\n+x\n+y\n\\ No newline at end of file\n");
    ASSERT_TRUE(added);
    EXPECT_EQ(vn::createPatch(*added, false, "100755"),
              "diff --git a/n b/n\nnew file mode 100755\n--- /dev/null\n+++ b/n\t\n"
              "@@ -0,0 +1,2 @@\n+x\n+y\n\\ No newline at end of file\n");
    auto deleted = parse("diff --git a/d b/d\ndeleted file mode 100644\n@@ -1 +0,0 @@\n-x\n");
    ASSERT_TRUE(deleted);
    EXPECT_EQ(vn::createPatch(*deleted, false),
              "diff --git a/d b/d\ndeleted file mode 100644\n--- a/d\t\n+++ /dev/null\n"
              "@@ -1 +0,0 @@\n-x\n");
    EXPECT_EQ(vn::createNewFilePatch("e", "", "100644"),
              "diff --git a/e b/e\nnew file mode 100644\n--- /dev/null\n+++ b/e\t\n");
    EXPECT_EQ(vn::createNewFilePatch("t", "a\r\nb", "100644"),
              "diff --git a/t b/t\nnew file mode 100644\n--- /dev/null\n+++ b/t\t\n"
              "@@ -0,0 +1,2 @@\n+a\r\n+b\n\\ No newline at end of file\n");
}

}  // namespace
