#include "model/VNFileStatusEntity.h"

#include <typeinfo>

std::shared_ptr<VNFileStatusEntity> VNFileStatusEntity::entityWithType(int32_t type, bool checked) {
    return std::make_shared<VNFileStatusEntity>(type, checked);
}

std::shared_ptr<VNFileStatusEntity> VNFileStatusEntity::entityWithType(int32_t type,
                                                                       std::string filename,
                                                                       uint64_t status,
                                                                       bool checked) {
    return std::make_shared<VNFileStatusEntity>(type, std::move(filename), status, checked);
}

std::shared_ptr<VNFileStatusEntity> VNFileStatusEntity::entityWithStatusRecord(
    int32_t type, const vn::Record& record, bool checked) {
    std::string folder = record.string(VNFileStatusKeyPath);
    std::string name = record.string(VNFileStatusKeyFilename);
    std::string filename = folder.empty() ? name : folder + "/" + name;
    auto entity =
        entityWithType(type, std::move(filename), record[VNFileStatusKeyStatus].toUInt(), checked);
    entity->setPreviousFilename(record.string(VNFileStatusKeyPreviousName));
    entity->setOriginalDict(record);
    return entity;
}

VNFileStatusEntity::VNFileStatusEntity(int32_t type, bool checked)
    : type_(type), checked_(checked) {}

VNFileStatusEntity::VNFileStatusEntity(int32_t type, std::string filename, uint64_t status,
                                       bool checked)
    : type_(type), filename_(std::move(filename)), status_(status), checked_(checked) {}

void VNFileStatusEntity::setFilename(std::string filename) {
    std::lock_guard<std::mutex> lock(cacheMutex_);
    filename_ = std::move(filename);
    filenameNoPath_.reset();
    path_.reset();
}

void VNFileStatusEntity::makeNameParts() const {
    if (filenameNoPath_) {
        return;
    }
    std::string_view name = filename_;
    // A folder row may carry a trailing slash; it belongs to neither part.
    while (name.size() > 1 && name.back() == '/') {
        name.remove_suffix(1);
    }
    std::size_t slash = name.rfind('/');
    if (slash == std::string_view::npos) {
        filenameNoPath_ = std::string(name);
        path_ = std::string();
    } else {
        filenameNoPath_ = std::string(name.substr(slash + 1));
        path_ = std::string(name.substr(0, slash == 0 ? 1 : slash));
    }
}

std::string VNFileStatusEntity::filenameNoPath() const {
    std::lock_guard<std::mutex> lock(cacheMutex_);
    makeNameParts();
    return *filenameNoPath_;
}

std::string VNFileStatusEntity::path() const {
    std::lock_guard<std::mutex> lock(cacheMutex_);
    makeNameParts();
    return *path_;
}

bool VNFileStatusEntity::isEqual(const VNFileStatusEntity& other) const {
    if (this == &other) {
        return true;
    }
    return typeid(*this) == typeid(other) && type_ == other.type_ && filename_ == other.filename_;
}

std::size_t VNFileStatusEntity::hash() const {
    auto kind = static_cast<std::size_t>(static_cast<int64_t>(type_));
    return (kind * 31 + 31) * std::hash<std::string>{}(filename_);
}

vn::Value VNFileStatusEntity::jsonValue() const {
    vn::Record record{
        {"type", static_cast<int64_t>(type_)},
        {"filename", filename_},
        {"status", status_},
        {"checked", checked_},
    };
    if (!previousFilename_.empty()) {
        record.set("previousFilename", previousFilename_);
    }
    return record;
}
