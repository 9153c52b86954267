#pragma once

#include <cstdint>
#include <string>

namespace vn {

// VNDiffFileModel::Binary when the platform's `file` command describes the file at `path` as
// anything but text; VNDiffFileModel::Text otherwise, also when the file or the command is missing
// or the command fails.
uint64_t determineFileType(const std::string& path);

}  // namespace vn
