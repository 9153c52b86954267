#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/Record.h"
#include "base/Value.h"
#include "model/VNDiffHunkModel.h"

// One file of a diff: what happened to it, what kind of file it is, its counts and its hunks.
// Text fields that are empty mean "nothing" (no rename source, no revision, no large-file id).
class VNDiffFileModel : public vn::Object {
  public:
    enum ChangeType : uint64_t {
        Added = 0,
        Deleted = 1,
        Modified = 2,
        Renamed = 3,
        Copied = 4,
        // Only on placeholder entries that the diff views add for files without diff output.
        Untracked = 5,
        Unchanged = 6,
    };
    enum FileType : uint64_t { Text = 0, Binary = 1, LargeFilePointer = 2 };

    // The record a file list shows: "filename" (last path component), "path" (the rest),
    // "status" (a file status bit) and "previousName".
    vn::Record fileStatusDictionary() const;

    // A file model describes itself by its name.
    const std::string& description() const { return filename_; }

    const std::string& filename() const { return filename_; }
    void setFilename(std::string name) { filename_ = std::move(name); }
    const std::string& previousFilename() const { return previousFilename_; }
    void setPreviousFilename(std::string name) { previousFilename_ = std::move(name); }
    uint64_t changeType() const { return changeType_; }
    void setChangeType(uint64_t type) { changeType_ = type; }
    uint64_t fileType() const { return fileType_; }
    void setFileType(uint64_t type) { fileType_ = type; }
    uint64_t linesAdded() const { return linesAdded_; }
    void setLinesAdded(uint64_t count) { linesAdded_ = count; }
    uint64_t linesRemoved() const { return linesRemoved_; }
    void setLinesRemoved(uint64_t count) { linesRemoved_ = count; }
    // The mode's digits read as a decimal number: "100755" is 100755.
    int64_t oldFileMode() const { return oldFileMode_; }
    void setOldFileMode(int64_t mode) { oldFileMode_ = mode; }
    int64_t newFileMode() const { return newFileMode_; }
    void setNewFileMode(int64_t mode) { newFileMode_ = mode; }
    const std::vector<std::shared_ptr<VNDiffHunkModel>>& hunks() const { return hunks_; }
    void setHunks(std::vector<std::shared_ptr<VNDiffHunkModel>> hunks) {
        hunks_ = std::move(hunks);
    }
    bool suppressed() const { return suppressed_; }
    void setSuppressed(bool suppressed) { suppressed_ = suppressed; }
    const std::string& beforeLargeFileRef() const { return beforeLargeFileRef_; }
    void setBeforeLargeFileRef(std::string ref) { beforeLargeFileRef_ = std::move(ref); }
    const std::string& afterLargeFileRef() const { return afterLargeFileRef_; }
    void setAfterLargeFileRef(std::string ref) { afterLargeFileRef_ = std::move(ref); }
    // Abbreviated id of the revision the file belongs to in a diff of several revisions.
    const std::string& rev() const { return rev_; }
    void setRev(std::string rev) { rev_ = std::move(rev); }

    // The counters grow once per body line; plain members keep that cheap.
    void addLinesAdded(uint64_t count) { linesAdded_ += count; }
    void addLinesRemoved(uint64_t count) { linesRemoved_ += count; }

    // Empty text fields become null.
    vn::Value jsonValue() const override;
    void writeJson(vn::JsonWriter& writer) const override;

  private:
    std::string filename_;
    std::string previousFilename_;
    uint64_t changeType_ = Modified;
    uint64_t fileType_ = Text;
    uint64_t linesAdded_ = 0;
    uint64_t linesRemoved_ = 0;
    int64_t oldFileMode_ = 0;
    int64_t newFileMode_ = 0;
    std::vector<std::shared_ptr<VNDiffHunkModel>> hunks_;
    bool suppressed_ = false;
    std::string beforeLargeFileRef_;
    std::string afterLargeFileRef_;
    std::string rev_;
};

using VNDiffFileList = std::vector<std::shared_ptr<VNDiffFileModel>>;
