#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/Value.h"
#include "model/VNLogGraphEntry.h"

class VNLogLabel;

// What a history row shows beside its graph: the commit's subject and its labels.
class VNLogDescriptionEntry : public vn::Object, public VNLogGraphColoured {
  public:
    using LabelList = std::vector<std::shared_ptr<VNLogLabel>>;

    VNLogDescriptionEntry() = default;
    VNLogDescriptionEntry(std::string description, LabelList labels);

    const std::string& description() const { return description_; }
    void setDescription(std::string description) { description_ = std::move(description); }
    const LabelList& labels() const { return labels_; }
    void setLabels(LabelList labels) { labels_ = std::move(labels); }

    // The row's colour, set by the graph layout. Rows are shared read-only by then, so it is set
    // through a const entry; it takes no part in what the entry says about the commit.
    const VNLogGraphColour& baseColour() const { return baseColour_; }
    void setBaseColour(const VNLogGraphColour& colour) const override { baseColour_ = colour; }

    vn::Value jsonValue() const override;
    // The same members, written in place: every row of a history has one.
    void writeJson(vn::JsonWriter& writer) const override;

  private:
    std::string description_;
    LabelList labels_;
    mutable VNLogGraphColour baseColour_;
};
