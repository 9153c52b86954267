#include "model/VNLogDescriptionEntry.h"

#include "base/Json.h"
#include "base/Record.h"
#include "model/VNLogLabel.h"

VNLogDescriptionEntry::VNLogDescriptionEntry(std::string description, LabelList labels)
    : description_(std::move(description)), labels_(std::move(labels)) {}

vn::Value VNLogDescriptionEntry::jsonValue() const {
    vn::Value::Array labels;
    labels.reserve(labels_.size());
    for (const auto& label : labels_) {
        labels.emplace_back(std::shared_ptr<const vn::Object>(label));
    }
    return vn::Record{
        {"description", description_},
        {"labels", std::move(labels)},
        {"baseColour", baseColour_.jsonValue()},
    };
}

void VNLogDescriptionEntry::writeJson(vn::JsonWriter& writer) const {
    writer.beginObject();
    writer.member("description", description_);
    writer.key("labels");
    writer.beginArray();
    for (const auto& label : labels_) {
        label->writeJson(writer);
    }
    writer.endArray();
    writer.key("baseColour");
    baseColour_.writeJson(writer);
    writer.endObject();
}
