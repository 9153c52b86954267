#include "model/VNDiffModel.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "base/Json.h"
#include "handler/FileType.h"
#include "model/VNDiffParser.h"
#include "model/VNFileDiffData.h"
#include "model/VNProcessDiffData.h"
#include "support/TestEnvironment.h"

namespace {

TEST(VNDiffFileModel, FileStatusDictionaryForEveryChangeType) {
    struct Case {
        uint64_t changeType;
        uint64_t status;
    };
    const std::vector<Case> cases = {{0, 4},   {1, 8}, {2, 2}, {3, 512}, {4, 512},
                                     {5, 128}, {6, 1}, {7, 2}, {99, 2}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.changeType);
        VNDiffFileModel file;
        file.setFilename("src/deep/name.txt");
        file.setChangeType(c.changeType);
        vn::Record record = file.fileStatusDictionary();
        EXPECT_EQ(record.keys(),
                  (std::vector<std::string>{"filename", "path", "status", "previousName"}));
        EXPECT_EQ(record.integer("status"), static_cast<int64_t>(c.status));
    }
}

TEST(VNDiffFileModel, FileStatusDictionarySplitsThePath) {
    struct Case {
        std::string filename, previous, name, path;
    };
    const std::vector<Case> cases = {
        {"top.txt", "", "top.txt", ""},
        {"a/b/c d.txt", "a/old.txt", "c d.txt", "a/b"},
        {"dossier été/à lire", "", "à lire", "dossier été"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.filename);
        VNDiffFileModel file;
        file.setFilename(c.filename);
        file.setPreviousFilename(c.previous);
        vn::Record record = file.fileStatusDictionary();
        EXPECT_EQ(record.string("filename"), c.name);
        EXPECT_EQ(record.string("path"), c.path);
        if (c.previous.empty()) {
            EXPECT_TRUE(record["previousName"].isNull());
        } else {
            EXPECT_EQ(record.string("previousName"), c.previous);
        }
    }
}

TEST(VNDiffFileModel, DetermineFileTypeAsksTheFileCommand) {
    vn::test::TempDir dir;
    static const char pngHeader[] =
        "\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\x10\0\0\0\x10\x08\x06\0\0\0";
    const std::string png(pngHeader, sizeof pngHeader - 1);
    struct Case {
        std::string name;
        std::string contents;
        uint64_t expected;
    };
    const std::vector<Case> cases = {
        {"notes.txt", "plain words\n", VNDiffFileModel::Text},
        {"script with spaces.sh", "#!/bin/sh\necho hi\n", VNDiffFileModel::Text},
        {"-looks-like-an-option.c", "int main(void) { return 0; }\n", VNDiffFileModel::Text},
        {"été.txt", "déjà vu\n", VNDiffFileModel::Text},
        {"image.png", png, VNDiffFileModel::Binary},
        {"blob.bin", std::string("\0\x01\x02\x03\xff\xfe\0\0", 8), VNDiffFileModel::Binary},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        vn::test::writeFile(dir.file(c.name), c.contents);
        EXPECT_EQ(vn::determineFileType(dir.file(c.name)), c.expected);
    }
    EXPECT_EQ(vn::determineFileType(dir.file("missing.png")), VNDiffFileModel::Text);
    EXPECT_EQ(vn::determineFileType(""), VNDiffFileModel::Text);
}

// `vrnl diff --json` and any other consumer read these names.
TEST(VNDiffModel, JsonUsesTheFieldNamesOfTheClasses) {
    VNDiffModel model;
    VNDiffParser::git().parseDiffToModel(
        "diff --git a/old.txt b/new.txt\nsimilarity index 90%\nrename from old.txt\n"
        "rename to new.txt\n@@ -1,2 +1,2 @@\n same\n-gone\n+come\n",
        model.fileEntries(), 20);
    auto json = vn::parseJson(vn::toJson(model.jsonValue()));
    ASSERT_TRUE(json && json->record());
    EXPECT_EQ(json->record()->keys(), std::vector<std::string>{"fileEntries"});
    const vn::Value::Array* files = (*json->record())["fileEntries"].array();
    ASSERT_TRUE(files);
    ASSERT_EQ(files->size(), 1u);
    const vn::Record& file = *(*files)[0].record();
    EXPECT_EQ(file.keys(),
              (std::vector<std::string>{"filename", "previousFilename", "changeType", "fileType",
                                        "linesAdded", "linesRemoved", "oldFileMode", "newFileMode",
                                        "suppressed", "beforeLargeFileRef", "afterLargeFileRef",
                                        "rev", "hunks"}));
    EXPECT_EQ(file.string("filename"), "new.txt");
    EXPECT_EQ(file.string("previousFilename"), "old.txt");
    EXPECT_EQ(file.integer("changeType"), 3);
    EXPECT_TRUE(file["rev"].isNull());
    EXPECT_TRUE(file["afterLargeFileRef"].isNull());
    const vn::Record& hunk = *(*file["hunks"].array())[0].record();
    EXPECT_EQ(hunk.keys(),
              (std::vector<std::string>{"index", "startLineBefore", "endLineBefore",
                                        "startLineAfter", "endLineAfter", "rawHunk", "hunkLines"}));
    EXPECT_EQ(hunk.string("rawHunk"), " same\n-gone\n+come\n");
    const vn::Value::Array& lines = *hunk["hunkLines"].array();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(*lines[1].record(),
              (vn::Record{
                  {"prefix", "-"}, {"beforelineno", "2"}, {"afterlineno", ""}, {"line", "gone"}}));
}

TEST(VNDiffModel, RequestHoldersCarryAModel) {
    VNProcessDiffData request;
    request.fileList = {"a.txt"};
    request.diffOutput = "diff --git a/a.txt b/a.txt\n@@ -1,1 +1,1 @@\n-a\n+b\n";
    request.model = std::make_shared<VNDiffModel>(request.fileList.size());
    VNDiffParser().parseDiffToModel(request.diffOutput, request.model->fileEntries(), 20);
    ASSERT_EQ(request.model->fileEntries().size(), 1u);
    EXPECT_EQ(request.model->fileEntries()[0]->description(), "a.txt");

    VNFileDiffData fileDiff;
    fileDiff.files = request.fileList;
    fileDiff.diff = request.model;
    vn::Value carried(std::make_shared<VNFileDiffData>(fileDiff));
    ASSERT_TRUE(carried.objectAs<VNFileDiffData>());
    EXPECT_EQ(carried.objectAs<VNFileDiffData>()->diff->fileEntries().size(), 1u);
}

// A diff with every kind of line, a long line, non-ASCII text, a large-file pointer, a file
// without hunks and a revision tag.
const char* const EveryKindOfLine =
    "\x61\x62\x63\x64\x65\x66\x30 subject\n"
    "diff --git a/d\xC3\xA9j\xC3\xA0 vu.txt b/d\xC3\xA9j\xC3\xA0 vu.txt\n"
    "index 1111111..2222222 100644\n--- a/x\n+++ b/x\n"
    "@@ -1,4 +1,4 @@ context\n same \xC3\xA9t\xC3\xA9\n-old\n+new\n\\ No newline at end of file\n"
    "@@ -20,1 +20 @@\n-a\n+b\n"
    "diff --git a/lfs.bin b/lfs.bin\n@@ -1,3 +1,3 @@\n version x\n"
    "-oid sha256:1111111111111111111111111111111111111111111111111111111111111111\n"
    "+oid sha256:2222222222222222222222222222222222222222222222222222222222222222\n"
    " size 3\n"
    "diff --git a/image.png b/image.png\nBinary files a/image.png and b/image.png differ\n";

TEST(VNDiffModel, StreamedJsonIsTheJsonOfItsRecords) {
    auto model = std::make_shared<VNDiffModel>();
    std::string text = EveryKindOfLine;
    text += "diff --git a/long.txt b/long.txt\n@@ -1,1 +1,1 @@\n-" + std::string(12000, 'x') +
            "\n+" + std::string(10001, 'y') + "\n";
    VNDiffParser::git().parseDiffToModel(text, model->fileEntries(), 20);
    ASSERT_EQ(model->fileEntries().size(), 4u);

    // toJson(Value) goes through writeJson; jsonValue() builds records the old way.
    std::string streamed = vn::toJson(vn::Value(model));
    std::string fromRecords = vn::toJson(model->jsonValue());
    EXPECT_EQ(streamed, fromRecords);
    auto json = vn::parseJson(streamed);
    ASSERT_TRUE(json && json->record());
    const vn::Record& file = *(*(*json->record())["fileEntries"].array())[0].record();
    EXPECT_EQ(file.string("rev"), "abcdef0");
    const vn::Record& hunk = *(*file["hunks"].array())[1].record();
    // The second hunk's header has no new count: numbered from 0, as the parser reads it.
    EXPECT_EQ(hunk.integer("startLineBefore"), 0);
    EXPECT_EQ((*hunk["hunkLines"].array())[0].record()->string("beforelineno"), "0");

    // Records set from outside are written as they are.
    auto hunkModel = std::make_shared<VNDiffHunkModel>();
    hunkModel->setHunkLines({VNDiffHunkModel::lineRecord("+", "", "7", "added"),
                             vn::Record{{"prefix", " "}, {"extra", 1}}});
    EXPECT_EQ(vn::toJson(vn::Value(hunkModel)), vn::toJson(hunkModel->jsonValue()));
}

TEST(VNDiffHunkModel, LineViewsAndRecordsAgree) {
    VNDiffModel model;
    VNDiffParser::git().parseDiffToModel(EveryKindOfLine, model.fileEntries(), 20);
    std::size_t lines = 0;
    for (const auto& file : model.fileEntries()) {
        for (const auto& hunk : file->hunks()) {
            SCOPED_TRACE(file->filename() + " hunk " + std::to_string(hunk->index()));
            // Views first, so that they are read before any record exists.
            std::vector<VNDiffHunkModel::LineView> views;
            for (std::size_t i = 0; i < hunk->lineCount(); ++i) {
                views.push_back(hunk->lineAt(i));
            }
            const auto& records = hunk->hunkLines();
            ASSERT_EQ(records.size(), views.size());
            for (std::size_t i = 0; i < views.size(); ++i) {
                auto number = [](int64_t n) {
                    return n == VNDiffHunkModel::NoLineNumber ? std::string() : std::to_string(n);
                };
                EXPECT_EQ(records[i], VNDiffHunkModel::lineRecord(std::string(views[i].prefix),
                                                                  number(views[i].beforeLineNumber),
                                                                  number(views[i].afterLineNumber),
                                                                  std::string(views[i].line)));
                ++lines;
            }
        }
    }
    EXPECT_EQ(lines, 10u);

    // A body replaced from outside keeps the records made from the old one; lines set as records
    // read back through the views.
    auto hunk = model.fileEntries()[0]->hunks()[0];
    auto records = hunk->hunkLines();
    hunk->setRawHunk("replaced\n");
    EXPECT_EQ(hunk->hunkLines(), records);
    EXPECT_EQ(hunk->lineAt(2).line, "new");
    EXPECT_EQ(hunk->lineAt(2).afterLineNumber, 2);
    EXPECT_EQ(hunk->lineAt(3).beforeLineNumber, VNDiffHunkModel::NoLineNumber);
    hunk->setHunkLines({VNDiffHunkModel::lineRecord("-", "12", "", "gone")});
    ASSERT_EQ(hunk->lineCount(), 1u);
    EXPECT_EQ(hunk->lineAt(0).prefix, "-");
    EXPECT_EQ(hunk->lineAt(0).beforeLineNumber, 12);
}

TEST(VNDiffHunkModel, RecordsAreMadeOnceWhenManyThreadsAsk) {
    std::string text = "diff --git a/f b/f\n@@ -1,2000 +1,2000 @@\n";
    for (int i = 0; i < 2000; ++i) {
        text += " line " + std::to_string(i) + "\n";
    }
    VNDiffModel model;
    VNDiffParser().parseDiffToModel(text, model.fileEntries(), 20);
    auto hunk = model.fileEntries()[0]->hunks()[0];
    std::vector<const std::vector<vn::Record>*> seen(4);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < seen.size(); ++t) {
        threads.emplace_back([&, t] { seen[t] = &hunk->hunkLines(); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    for (const auto* lines : seen) {
        EXPECT_EQ(lines, seen[0]);
        ASSERT_EQ(lines->size(), 2000u);
        EXPECT_EQ((*lines)[1999].string("afterlineno"), "2000");
    }
}

}  // namespace
