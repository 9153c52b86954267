#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/Value.h"
#include "model/VNDiffModel.h"

// Carries one diff from its request, through the command's output, to the model being filled
// (for work handed to another thread).
struct VNProcessDiffData : public vn::Object {
    std::vector<std::string> fileList;
    std::string revision;
    std::vector<std::string> revisions;
    std::string revisionFrom;
    std::string revisionParent1;
    std::string revisionParent2;
    uint64_t options = 0;
    // The diff command's text.
    std::string diffOutput;
    std::shared_ptr<VNDiffModel> model;
};
