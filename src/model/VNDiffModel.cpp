#include "model/VNDiffModel.h"

#include "base/Json.h"
#include "base/Record.h"

vn::Value VNDiffModel::jsonValue() const {
    vn::Value::Array files;
    files.reserve(fileEntries_.size());
    for (const auto& file : fileEntries_) {
        files.push_back(file ? file->jsonValue() : vn::Value());
    }
    return vn::Record{{"fileEntries", std::move(files)}};
}

void VNDiffModel::writeJson(vn::JsonWriter& writer) const {
    writer.beginObject();
    writer.key("fileEntries");
    writer.beginArray();
    for (const auto& file : fileEntries_) {
        if (file) {
            file->writeJson(writer);
        } else {
            writer.null();
        }
    }
    writer.endArray();
    writer.endObject();
}
