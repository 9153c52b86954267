#include "model/VNLogRowData.h"

#include "base/Json.h"

namespace {

vn::Value graphStateValue(const std::shared_ptr<const vn::Object>& state) {
    return state ? vn::Value(state) : vn::Value();
}

}  // namespace

uint64_t VNLogRowData::logOptions() const {
    uint64_t options = static_cast<uint64_t>(orderingOption_) & 1;
    if (showRemotes_) {
        options |= 2;
    }
    if (followFirst_) {
        options |= 32;
    }
    return options;
}

vn::Value VNLogRowData::jsonValue() const {
    vn::Value::Array rows(logRows_.begin(), logRows_.end());
    return vn::Record{
        {"skip", skip_},
        {"limit", limit_},
        {"rowNum", rowNum_},
        {"showRemotes", showRemotes_},
        {"allBranches", allBranches_},
        {"followFirst", followFirst_},
        {"orderingOption", orderingOption_},
        {"lookForCurrentBranch", lookForCurrentBranch_},
        {"selectedBranch", selectedBranch_},
        {"currentBranch", currentBranch_},
        {"baseGraphState", graphStateValue(baseGraphState_)},
        {"logRows", std::move(rows)},
        {"moreRevisions", moreRevisions_},
        {"firstRowIsWorkingDir", firstRowIsWorkingDir_},
        {"currentBranchFound", currentBranchFound_},
    };
}

void VNLogRowData::writeJson(vn::JsonWriter& writer) const {
    writeJsonRequest(writer);
    for (const vn::Record& row : logRows_) {
        writeJsonRow(writer, row);
    }
    writeJsonResult(writer);
}

void VNLogRowData::writeJsonRequest(vn::JsonWriter& writer) const {
    writer.beginObject();
    writer.member("skip", skip_);
    writer.member("limit", limit_);
    writer.member("rowNum", rowNum_);
    writer.member("showRemotes", showRemotes_);
    writer.member("allBranches", allBranches_);
    writer.member("followFirst", followFirst_);
    writer.member("orderingOption", orderingOption_);
    writer.member("lookForCurrentBranch", lookForCurrentBranch_);
    writer.member("selectedBranch", selectedBranch_);
    writer.member("currentBranch", currentBranch_);
    writer.member("baseGraphState", graphStateValue(baseGraphState_));
    writer.key("logRows");
    writer.beginArray();
}

void VNLogRowData::writeJsonRow(vn::JsonWriter& writer, const vn::Record& row) {
    writer.beginObject();
    for (const auto& [key, value] : row) {
        writer.key(key);
        writer.value(value);
    }
    writer.endObject();
}

void VNLogRowData::writeJsonResult(vn::JsonWriter& writer) const {
    writer.endArray();
    writer.member("moreRevisions", moreRevisions_);
    writer.member("firstRowIsWorkingDir", firstRowIsWorkingDir_);
    writer.member("currentBranchFound", currentBranchFound_);
    writer.endObject();
}
