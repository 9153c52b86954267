#include "general/VNDiffModel.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "general/Json.h"
#include "general/VNDiffParser.h"
#include "general/VNFileDiffData.h"
#include "general/VNProcessDiffData.h"
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
        EXPECT_EQ(VNDiffFileModel::determineFileType(dir.file(c.name)), c.expected);
    }
    EXPECT_EQ(VNDiffFileModel::determineFileType(dir.file("missing.png")), VNDiffFileModel::Text);
    EXPECT_EQ(VNDiffFileModel::determineFileType(""), VNDiffFileModel::Text);
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

}  // namespace
