// File names in diff headers, text that is not UTF-8, and inputs built to overflow numbers or
// make a careless matcher backtrack.

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <vector>

#include "base/TextEncoding.h"
#include "model/VNDiffParser.h"

namespace {

constexpr uint64_t NoLimit = 1000000;

VNDiffFileList parse(std::string_view text) {
    VNDiffFileList files;
    VNDiffParser::git().parseDiffToModel(text, files, NoLimit);
    return files;
}

TEST(VNDiffParserNames, NamesComeFromWhicheverHeaderLineTellsThemSurely) {
    struct Case {
        const char* what;
        std::string diff;
        std::string filename;
        std::string previous;
    };
    const Case cases[] = {
        {"plain", "diff --git a/x.txt b/x.txt\n", "x.txt", ""},
        {"\" b/\" inside the name: the two halves are equal",
         "diff --git a/x b/y.txt b/x b/y.txt\nindex 1..2 100644\n--- a/x b/y.txt\t\n"
         "+++ b/x b/y.txt\t\n@@ -1 +1 @@\n-a\n+b\n",
         "x b/y.txt", ""},
        {"leading and trailing blanks", "diff --git a/ x  b/ x \n", " x ", ""},
        {"both names quoted", "diff --git \"a/tab\\there\" \"b/tab\\there\"\n", "tab\there", ""},
        {"every escape",
         "diff --git \"a/\\a\\b\\t\\n\\v\\f\\r\\\"\\\\\\303\\251\" "
         "\"b/\\a\\b\\t\\n\\v\\f\\r\\\"\\\\\\303\\251\"\n",
         "\a\b\t\n\v\f\r\"\\\xC3\xA9", ""},
        {"octal bytes that are not UTF-8", "diff --git \"a/caf\\351\" \"b/caf\\351\"\n", "caf\xE9",
         ""},
        {"raw bytes that are not UTF-8", "diff --git a/caf\xE9 b/caf\xE9\n", "caf\xE9", ""},
        {"rename with an ambiguous header",
         "diff --git a/p b/q b/r b/s\nsimilarity index 100%\nrename from p b/q\n"
         "rename to r b/s\n",
         "r b/s", "p b/q"},
        {"rename between quoted and plain names",
         "diff --git a/plain \"b/new\\nline\"\nsimilarity index 90%\nrename from plain\n"
         "rename to \"new\\nline\"\n",
         "new\nline", "plain"},
        {"copy", "diff --git a/a b/b\nsimilarity index 100%\ncopy from a\ncopy to b\n", "b", "a"},
        {"deleted file with an ambiguous header, named by its --- line",
         "diff --git a/d b/e.txt b/d b/e.txt b/f\ndeleted file mode 100644\n"
         "--- a/d b/e.txt b/d\t\n+++ /dev/null\n@@ -1 +0,0 @@\n-x\n",
         "d b/e.txt b/d", ""},
        {"new file with an ambiguous header, named by its +++ line",
         "diff --git a/n b/o b/n b/o b/p\nnew file mode 100644\n--- /dev/null\n"
         "+++ b/n b/o b/n b/o b/p\t\n@@ -0,0 +1 @@\n+x\n",
         "n b/o b/n b/o b/p", ""},
        {"combined diff with a quoted name", "diff --cc \"con\\tflict\"\n", "con\tflict", ""},
        {"--- and +++ in the body are lines, not names",
         "diff --git a/m b/m\n@@ -1,2 +1,2 @@\n--- a/other\n+++ b/other\n", "m", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto files = parse(c.diff);
        ASSERT_EQ(files.size(), 1u);
        EXPECT_EQ(files[0]->filename(), c.filename);
        EXPECT_EQ(files[0]->previousFilename(), c.previous);
    }
}

TEST(VNDiffParserNames, LinesThatAreNotUTF8ShowDecodedAndKeepTheirBytes) {
    auto files = parse(
        "diff --git a/f b/f\n@@ -1,3 +1,3 @@\n \xE6\x97\xA5\xE6\x9C\xAC\n-caf\xE9\n+caf\xC3\xA9\n");
    ASSERT_EQ(files.size(), 1u);
    ASSERT_EQ(files[0]->hunks().size(), 1u);
    const VNDiffHunkModel& hunk = *files[0]->hunks()[0];
    EXPECT_EQ(hunk.rawHunk(), " \xE6\x97\xA5\xE6\x9C\xAC\n-caf\xE9\n+caf\xC3\xA9\n");
    ASSERT_EQ(hunk.hunkLines().size(), 3u);
    EXPECT_EQ(hunk.hunkLines()[0].string("line"), "\xE6\x97\xA5\xE6\x9C\xAC");
    EXPECT_EQ(hunk.hunkLines()[1].string("prefix"), "-");
    EXPECT_EQ(hunk.hunkLines()[1].string("line"), "caf\xC3\xA9");
    EXPECT_EQ(hunk.hunkLines()[1].string("beforelineno"), "2");
    EXPECT_EQ(hunk.hunkLines()[2].string("line"), "caf\xC3\xA9");
    EXPECT_EQ(files[0]->linesRemoved(), 1u);
    EXPECT_EQ(files[0]->linesAdded(), 1u);
}

TEST(VNDiffParserNames, NumbersThatDoNotFitLeaveTheHeaderUnread) {
    struct Case {
        const char* what;
        std::string header;
        int64_t startBefore, endBefore, startAfter, endAfter;
    };
    const std::string huge = "99999999999999999999";
    const std::string justBelow = std::to_string(std::numeric_limits<int64_t>::max() / 4);
    const Case cases[] = {
        {"old start beyond 64 bits", "@@ -" + huge + ",1 +1,1 @@", 0, 0, 0, 0},
        {"new count beyond 64 bits", "@@ -1,1 +1," + huge + " @@", 0, 0, 0, 0},
        {"the largest number read", "@@ -" + justBelow + ",2 +1,1 @@",
         std::numeric_limits<int64_t>::max() / 4, std::numeric_limits<int64_t>::max() / 4 + 1, 1,
         1},
        {"20,000 digits", "@@ -" + std::string(20000, '7') + ",1 +1,1 @@", 0, 0, 0, 0},
        {"blanks between the parts", "@@  -3,2\t+4,2   @@ f()", 3, 4, 4, 5},
        {"a second @@ holds the header", "@@@ -3,2 +4,2 @@", 3, 4, 4, 5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        // The lines after the header are numbered on from its start: none may overflow.
        auto files = parse("diff --git a/f b/f\n" + c.header + "\n a\n-b\n+c\n a\n");
        ASSERT_EQ(files.size(), 1u);
        ASSERT_EQ(files[0]->hunks().size(), 1u);
        const VNDiffHunkModel& hunk = *files[0]->hunks()[0];
        EXPECT_EQ(hunk.startLineBefore(), c.startBefore);
        EXPECT_EQ(hunk.endLineBefore(), c.endBefore);
        EXPECT_EQ(hunk.startLineAfter(), c.startAfter);
        EXPECT_EQ(hunk.endLineAfter(), c.endAfter);
        EXPECT_EQ(hunk.lineCount(), 4u);
    }
}

// Lines built to make a backtracking matcher take quadratic time. The suite runs them; their
// time is watched by the benchmarks, not asserted here.
TEST(VNDiffParserNames, PathologicalLinesParse) {
    const std::string blanks(20000, ' ');
    struct Case {
        const char* what;
        std::string diff;
        std::size_t files;
    };
    const Case cases[] = {
        {"diff --git line padded with blanks",
         "diff --git a/x" + blanks + "b/y" + blanks + "\n@@ -1 +1,1 @@\n+z\n", 1},
        {"blanks without b/", "diff --git a/" + blanks + "\n", 1},
        {"hunk header of digits", "diff --git a/x b/x\n@@ -" + std::string(20000, '1') + "\n", 1},
        {"hunk header of blanks", "diff --git a/x b/x\n@@" + blanks + "-1" + blanks + "\n", 1},
        {"hunk header of repeated @@ -1,1",
         "diff --git a/x b/x\n" +
             [] {
                 std::string line;
                 for (int i = 0; i < 5000; ++i) {
                     line += "@@ -1,1 ";
                 }
                 return line;
             }() +
             "\n",
         1},
        {"mode line of digits", "diff --git a/x b/x\nold mode " + std::string(20000, '7') + "\n",
         1},
        {"quoted name never closed", "diff --git \"a/" + std::string(20000, '\\') + "\n", 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(parse(c.diff).size(), c.files);
    }
}

}  // namespace

namespace {

// Text stitched from the pieces the header readers look for, in random order: whatever comes
// out, the parser and the quoting reader finish, and the sanitizers see no fault.
TEST(VNDiffParserNames, RandomHeaderPiecesNeverFault) {
    const std::vector<std::string> pieces = {
        "diff --git ",
        "a/",
        " b/",
        "\"",
        "\\",
        "\\3",
        "\\351",
        "\n",
        "@@ -",
        " +",
        ",",
        "@@",
        "99999999999999999999",
        "1",
        " ",
        "\t",
        "rename to ",
        "rename from ",
        "--- ",
        "+++ ",
        "/dev/null",
        "\xE9",
        "\xE6\x97",
        std::string(1, '\0'),
        "old mode ",
        "diff --cc ",
        "copy to ",
        "-",
        "+",
    };
    std::mt19937 random(16);
    for (int round = 0; round < 2000; ++round) {
        std::string text;
        int count = static_cast<int>(random() % 60);
        for (int i = 0; i < count; ++i) {
            text += pieces[random() % pieces.size()];
        }
        SCOPED_TRACE(text);
        auto files = parse(text);
        for (const auto& file : files) {
            for (const auto& hunk : file->hunks()) {
                EXPECT_LE(hunk->startLineBefore(), hunk->endLineBefore() + 1);
                for (std::size_t i = 0; i < hunk->lineCount(); ++i) {
                    EXPECT_TRUE(vn::isValidUTF8(hunk->lineAt(i).line));
                }
            }
        }
        std::size_t consumed = 0;
        if (auto bytes = vn::readCQuoted(text, &consumed)) {
            EXPECT_LE(consumed, text.size());
            EXPECT_LE(bytes->size(), consumed);
        }
    }
}

}  // namespace
