#include "model/VNLogLabel.h"

#include <algorithm>
#include <cctype>

#include "base/Json.h"
#include "base/Record.h"

VNLogLabel::VNLogLabel(std::string label, int32_t type, std::string revision, std::string sha,
                       std::string ref)
    : label_(std::move(label)),
      type_(type),
      revision_(std::move(revision)),
      commitSHA_(std::move(sha)),
      ref_(std::move(ref)) {}

std::shared_ptr<VNLogLabel> VNLogLabel::labelWithLabel(std::string label, int32_t type,
                                                       std::string revision, std::string sha) {
    return std::make_shared<VNLogLabel>(std::move(label), type, std::move(revision),
                                        std::move(sha));
}

std::shared_ptr<VNLogLabel> VNLogLabel::labelWithLabel(std::string label, int32_t type,
                                                       std::string revision, std::string sha,
                                                       std::string ref) {
    return std::make_shared<VNLogLabel>(std::move(label), type, std::move(revision), std::move(sha),
                                        std::move(ref));
}

int VNLogLabel::compareCaseInsensitive(const VNLogLabel& other) const {
    const std::string& a = label_;
    const std::string& b = other.label_;
    std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        // Bytes above ASCII compare as they are, so names in other scripts keep a stable order.
        int ca = std::tolower(static_cast<unsigned char>(a[i]));
        int cb = std::tolower(static_cast<unsigned char>(b[i]));
        if (ca != cb) {
            return ca < cb ? -1 : 1;
        }
    }
    if (a.size() == b.size()) {
        return 0;
    }
    return a.size() < b.size() ? -1 : 1;
}

void VNLogLabel::writeJson(vn::JsonWriter& writer) const {
    writer.beginObject();
    writer.member("label", label_);
    writer.member("type", static_cast<int64_t>(type_));
    writer.member("description", description_);
    writer.member("annotation", annotation_);
    writer.member("revision", revision_);
    writer.member("commitSHA", commitSHA_);
    writer.member("currentMarker", currentMarker_);
    writer.member("ref", ref_);
    writer.endObject();
}

vn::Value VNLogLabel::jsonValue() const {
    return vn::Record{
        {"label", label_},
        {"type", static_cast<int64_t>(type_)},
        {"description", description_},
        {"annotation", annotation_},
        {"revision", revision_},
        {"commitSHA", commitSHA_},
        {"currentMarker", currentMarker_},
        {"ref", ref_},
    };
}
