#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/TextEncoding.h"

namespace vn {

// VNDiffFileModel::Binary when the platform's `file` command describes the file at `path` as
// anything but text; VNDiffFileModel::Text otherwise, also when the file or the command is missing
// or the command fails.
uint64_t determineFileType(const std::string& path);

// How a text file stores its lines, as patches for it must be written.
struct TextFormat {
    bool crlf = false;
    TextEncoding encoding = TextEncoding::UTF8;
};
// Read from what `file -b` says of the file: CRLF line ends for " CRLF "; Mac OS Roman for
// "Non-ISO extended-ASCII", else UTF-8 for "UTF-8", else ISO Latin-1 for "ISO-8859", else UTF-8.
TextFormat textFormatFromDescription(std::string_view description);
// Runs `file -b` on the file; LF and UTF-8 when it cannot be run or fails.
TextFormat textFormatOfFile(const std::string& path);

}  // namespace vn
