#pragma once

#include <cstddef>

#include "base/Value.h"
#include "model/VNDiffFileModel.h"

// One parsed diff: its files in output order.
class VNDiffModel : public vn::Object {
  public:
    // The capacity hint is the number of files asked for; the diff views ask for 20.
    explicit VNDiffModel(std::size_t capacityHint = 20) { fileEntries_.reserve(capacityHint); }

    // The parser appends to this list, so it is handed out for writing.
    VNDiffFileList& fileEntries() { return fileEntries_; }
    const VNDiffFileList& fileEntries() const { return fileEntries_; }

    vn::Value jsonValue() const override;
    // Writes the same JSON as it goes: a large diff is never copied into records.
    void writeJson(vn::JsonWriter& writer) const override;

  private:
    VNDiffFileList fileEntries_;
};
