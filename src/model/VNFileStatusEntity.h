#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "base/Record.h"
#include "base/Value.h"

// File status bits. Both backends report these values, one per side of a file and one summary
// status; a mask of them selects which files a listing includes.
inline constexpr uint64_t VNFileStatusClean = 1;
inline constexpr uint64_t VNFileStatusModified = 2;
inline constexpr uint64_t VNFileStatusAdded = 4;
inline constexpr uint64_t VNFileStatusRemoved = 8;
inline constexpr uint64_t VNFileStatusConflicted = 16;
inline constexpr uint64_t VNFileStatusMissing = 64;
inline constexpr uint64_t VNFileStatusUnknown = 128;
inline constexpr uint64_t VNFileStatusIgnored = 256;
inline constexpr uint64_t VNFileStatusRenamed = 512;
// A modified entry that is a folder on disk: a submodule whose commit changed.
inline constexpr uint64_t VNFileStatusSubmoduleModified = 8192;

// Keys of a status record.
inline constexpr const char* VNFileStatusKeyStatus = "status";
inline constexpr const char* VNFileStatusKeyIndexStatus = "indexStatus";
inline constexpr const char* VNFileStatusKeyTreeStatus = "treeStatus";
inline constexpr const char* VNFileStatusKeyFilename = "filename";
inline constexpr const char* VNFileStatusKeyPath = "path";
inline constexpr const char* VNFileStatusKeyPreviousName = "previousName";

// One row of a file list: a file (kinds 2 and 5) or a header (any other kind, named by the front
// end). Rows are equal when they are of the same class, kind and file name, so that a refreshed
// list finds its selected rows again.
class VNFileStatusEntity : public vn::Object {
  public:
    static constexpr int32_t FileType = 2;
    static constexpr int32_t AlternateFileType = 5;

    static std::shared_ptr<VNFileStatusEntity> entityWithType(int32_t type, bool checked);
    static std::shared_ptr<VNFileStatusEntity> entityWithType(int32_t type, std::string filename,
                                                              uint64_t status, bool checked);
    // A file row from a status record: the file name is the record's "path" and "filename"
    // joined, the previous name its "previousName", the status its "status".
    static std::shared_ptr<VNFileStatusEntity> entityWithStatusRecord(int32_t type,
                                                                      const vn::Record& record,
                                                                      bool checked);

    VNFileStatusEntity(int32_t type, bool checked);
    VNFileStatusEntity(int32_t type, std::string filename, uint64_t status, bool checked);

    int32_t type() const { return type_; }
    void setType(int32_t type) { type_ = type; }
    bool isFile() const { return type_ == FileType || type_ == AlternateFileType; }
    bool isHeader() const { return !isFile(); }

    // The path relative to the working copy.
    const std::string& filename() const { return filename_; }
    void setFilename(std::string filename);
    const std::string& previousFilename() const { return previousFilename_; }
    void setPreviousFilename(std::string name) { previousFilename_ = std::move(name); }
    uint64_t status() const { return status_; }
    void setStatus(uint64_t status) { status_ = status; }
    bool checked() const { return checked_; }
    void setChecked(bool checked) { checked_ = checked; }
    const vn::Record& originalDict() const { return originalDict_; }
    void setOriginalDict(vn::Record record) { originalDict_ = std::move(record); }

    // The last path component of the file name, and the file name without it (empty for a file
    // at the top); both made once and kept.
    std::string filenameNoPath() const;
    std::string path() const;

    // Clean rows cannot be checked.
    bool checkboxEnabled() const { return status_ != VNFileStatusClean; }

    bool isEqual(const VNFileStatusEntity& other) const;
    bool operator==(const VNFileStatusEntity& other) const { return isEqual(other); }
    // Agrees with isEqual: (type * 31 + 31) * hash of the file name.
    std::size_t hash() const;

    vn::Value jsonValue() const override;

  private:
    void makeNameParts() const;

    int32_t type_ = 0;
    std::string filename_;
    std::string previousFilename_;
    uint64_t status_ = 0;
    bool checked_ = false;
    vn::Record originalDict_;

    mutable std::mutex cacheMutex_;
    mutable std::optional<std::string> filenameNoPath_;
    mutable std::optional<std::string> path_;
};

template <>
struct std::hash<VNFileStatusEntity> {
    std::size_t operator()(const VNFileStatusEntity& entity) const { return entity.hash(); }
};
