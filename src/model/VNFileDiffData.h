#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/Value.h"
#include "model/VNDiffModel.h"

// A request for the diff of some files and, once run, its parsed result.
struct VNFileDiffData : public vn::Object {
    std::vector<std::string> files;
    std::string revision;
    std::string revisionFrom;
    uint64_t opts = 0;
    int context = 3;
    std::shared_ptr<VNDiffModel> diff;
};
