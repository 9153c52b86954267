// The unified diff parser on `git diff` and multi-revision `git show` text, with the Git LFS
// pointer hooks, and the JSON of what it read.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/Json.h"
#include "model/VNDiffParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view input(reinterpret_cast<const char*>(data), size);
    VNDiffParser parser = VNDiffParser::git();
    VNDiffFileList files;
    parser.parseDiffToModel(input, files, size % 5 == 0 ? 2 : UINT64_MAX);
    parser.parseDiffsToModel(input, files, UINT64_MAX);
    std::size_t written = 0;
    vn::JsonWriter writer([&written](std::string_view chunk) { written += chunk.size(); });
    writer.beginArray();
    for (const auto& file : files) {
        file->writeJson(writer);
    }
    writer.endArray();
    return 0;
}
