#include "support/GitDiffSupport.h"

#include <gtest/gtest.h>

#include <limits>

#include "handler/VNRepoHandler.h"
#include "handler/VNTask.h"
#include "model/VNDiffModel.h"
#include "platform/FileSystem.h"
#include "support/TestEnvironment.h"

namespace vn::test {

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t from = 0;
    while (from < text.size()) {
        std::size_t end = text.find('\n', from);
        std::string line = text.substr(from, end == std::string::npos ? end : end - from);
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        lines.push_back(line);
        if (end == std::string::npos) {
            break;
        }
        from = end + 1;
    }
    return lines;
}

std::string numberedLines(int from, int to, const std::string& stem) {
    std::string text;
    for (int i = from; i <= to; ++i) {
        text += stem + std::to_string(i) + "\n";
    }
    return text;
}

std::string contentAt(GitRepository& repo, const std::string& revision, const std::string& file) {
    // The stored bytes, not their reading as text: files in other encodings stay as they are.
    auto task = VNTask::taskWithCommand(vn::fs::findExecutable("git").value_or("git"), repo.path(),
                                        {"show", revision + ":" + file});
    task->setRawOutput(true);
    if (!task->run()) {
        ADD_FAILURE() << "git show " << revision << ":" << file
                      << " failed: " << task->errorOutput();
    }
    return task->output();
}

int expectLinesAgree(const VNDiffFileModel& file, const std::string& oldText,
                     const std::string& newText) {
    SCOPED_TRACE("file " + file.filename());
    std::vector<std::string> oldLines = linesOf(oldText), newLines = linesOf(newText);
    uint64_t added = 0, removed = 0;
    int checked = 0;
    for (const auto& hunk : file.hunks()) {
        SCOPED_TRACE("hunk " + std::to_string(hunk->index()));
        int64_t before = hunk->startLineBefore(), after = hunk->startLineAfter();
        bool anyBefore = false, anyAfter = false;
        for (const Record& line : hunk->hunkLines()) {
            std::string beforeNumber = line.string("beforelineno");
            std::string afterNumber = line.string("afterlineno");
            const std::string content = line.string("line");
            if (!beforeNumber.empty()) {
                EXPECT_EQ(beforeNumber, std::to_string(before));
                if (before < 1 || before > static_cast<int64_t>(oldLines.size())) {
                    ADD_FAILURE() << "old line " << before << " is beyond the old content";
                    return checked;
                }
                EXPECT_EQ(content, oldLines[before - 1]) << "old line " << before;
                ++before;
                ++checked;
                anyBefore = true;
            }
            if (!afterNumber.empty()) {
                EXPECT_EQ(afterNumber, std::to_string(after));
                if (after < 1 || after > static_cast<int64_t>(newLines.size())) {
                    ADD_FAILURE() << "new line " << after << " is beyond the new content";
                    return checked;
                }
                EXPECT_EQ(content, newLines[after - 1]) << "new line " << after;
                ++after;
                ++checked;
                anyAfter = true;
            }
            std::string prefix = line.string("prefix");
            added += prefix == "+";
            removed += prefix == "-";
        }
        if (anyBefore) {
            EXPECT_EQ(before - 1, hunk->endLineBefore());
        }
        if (anyAfter) {
            EXPECT_EQ(after - 1, hunk->endLineAfter());
        }
    }
    EXPECT_EQ(file.linesAdded(), added);
    EXPECT_EQ(file.linesRemoved(), removed);
    return checked;
}

std::shared_ptr<VNDiffModel> runAndParse(const VNRepoHandler& handler,
                                         const std::shared_ptr<VNTask>& task, bool revisions) {
    auto model = std::make_shared<VNDiffModel>();
    if (!task) {
        ADD_FAILURE() << "no task";
        return model;
    }
    if (!task->run()) {
        ADD_FAILURE() << task->displayCommand() << " failed (" << task->exitCode()
                      << "): " << task->errorOutput();
        return model;
    }
    constexpr uint64_t noLimit = std::numeric_limits<uint64_t>::max();
    if (revisions) {
        handler.parseDiffsToModel(task->output(), model->fileEntries(), noLimit);
    } else {
        handler.parseDiffToModel(task->output(), model->fileEntries(), noLimit);
    }
    return model;
}

std::shared_ptr<VNDiffFileModel> fileNamed(const VNDiffModel& model, const std::string& filename) {
    for (const auto& file : model.fileEntries()) {
        if (file->filename() == filename) {
            return file;
        }
    }
    return nullptr;
}

std::string lfsPointer(char digit, int size) {
    // Asked of git-lfs once, so the pointers match what the installed version writes.
    static const std::string versionLine = [] {
        TempDir dir;
        writeFile(dir.file("content"), "x\n");
        auto task = runProgram(dir.path(), "git", {"lfs", "pointer", "--file=content"});
        EXPECT_TRUE(task->success()) << task->errorOutput();
        const std::string& output = task->output();
        return output.substr(0, output.find('\n'));
    }();
    return versionLine + "\noid sha256:" + std::string(64, digit) + "\nsize " +
           std::to_string(size) + "\n";
}

}  // namespace vn::test
