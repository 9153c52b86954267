#include "model/VNDiffFileModel.h"

#include <filesystem>

#include "base/Json.h"
#include "platform/FileSystem.h"

namespace {

// File status bits of a working-copy listing.
constexpr uint64_t StatusClean = 1;
constexpr uint64_t StatusModified = 2;
constexpr uint64_t StatusAdded = 4;
constexpr uint64_t StatusRemoved = 8;
constexpr uint64_t StatusUntracked = 128;
constexpr uint64_t StatusRenamed = 512;

uint64_t statusForChangeType(uint64_t changeType) {
    switch (changeType) {
        case VNDiffFileModel::Added:
            return StatusAdded;
        case VNDiffFileModel::Deleted:
            return StatusRemoved;
        case VNDiffFileModel::Renamed:
        case VNDiffFileModel::Copied:
            return StatusRenamed;
        case VNDiffFileModel::Untracked:
            return StatusUntracked;
        case VNDiffFileModel::Unchanged:
            return StatusClean;
        default:
            return StatusModified;
    }
}

vn::Value textOrNull(const std::string& text) {
    return text.empty() ? vn::Value() : vn::Value(text);
}

}  // namespace

vn::Record VNDiffFileModel::fileStatusDictionary() const {
    return vn::Record{
        {"filename", vn::fs::lastPathComponent(filename_)},
        {"path", vn::fs::deletingLastPathComponent(filename_)},
        {"status", statusForChangeType(changeType_)},
        {"previousName", textOrNull(previousFilename_)},
    };
}

vn::Value VNDiffFileModel::jsonValue() const {
    vn::Value::Array hunks;
    hunks.reserve(hunks_.size());
    for (const auto& hunk : hunks_) {
        hunks.push_back(hunk ? hunk->jsonValue() : vn::Value());
    }
    return vn::Record{
        {"filename", textOrNull(filename_)},
        {"previousFilename", textOrNull(previousFilename_)},
        {"changeType", changeType_},
        {"fileType", fileType_},
        {"linesAdded", linesAdded_},
        {"linesRemoved", linesRemoved_},
        {"oldFileMode", oldFileMode_},
        {"newFileMode", newFileMode_},
        {"suppressed", suppressed_},
        {"beforeLargeFileRef", textOrNull(beforeLargeFileRef_)},
        {"afterLargeFileRef", textOrNull(afterLargeFileRef_)},
        {"rev", textOrNull(rev_)},
        {"hunks", std::move(hunks)},
    };
}

void VNDiffFileModel::writeJson(vn::JsonWriter& writer) const {
    auto textOrNull = [&writer](std::string_view name, const std::string& text) {
        writer.key(name);
        if (text.empty()) {
            writer.null();
        } else {
            writer.string(text);
        }
    };
    writer.beginObject();
    textOrNull("filename", filename_);
    textOrNull("previousFilename", previousFilename_);
    writer.member("changeType", changeType_);
    writer.member("fileType", fileType_);
    writer.member("linesAdded", linesAdded_);
    writer.member("linesRemoved", linesRemoved_);
    writer.member("oldFileMode", oldFileMode_);
    writer.member("newFileMode", newFileMode_);
    writer.member("suppressed", suppressed_);
    textOrNull("beforeLargeFileRef", beforeLargeFileRef_);
    textOrNull("afterLargeFileRef", afterLargeFileRef_);
    textOrNull("rev", rev_);
    writer.key("hunks");
    writer.beginArray();
    for (const auto& hunk : hunks_) {
        if (hunk) {
            hunk->writeJson(writer);
        } else {
            writer.null();
        }
    }
    writer.endArray();
    writer.endObject();
}
