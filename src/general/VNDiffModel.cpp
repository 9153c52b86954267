#include "general/VNDiffModel.h"

#include "general/Record.h"

vn::Value VNDiffModel::jsonValue() const {
    vn::Value::Array files;
    files.reserve(fileEntries_.size());
    for (const auto& file : fileEntries_) {
        files.push_back(file ? file->jsonValue() : vn::Value());
    }
    return vn::Record{{"fileEntries", std::move(files)}};
}
