// `git status --porcelain`, `git ls-files`, `git branch` and the small files of the git folder.
// The input is split at its first two NUL bytes into the status, tracked and ignored listings.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/Json.h"
#include "git/VNGitStatusParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view input(reinterpret_cast<const char*>(data), size);
    std::string_view parts[3];
    for (std::string_view& part : parts) {
        std::size_t end = input.find('\0');
        part = input.substr(0, end);
        input = end == std::string_view::npos ? std::string_view() : input.substr(end + 1);
    }
    uint64_t mask = size > 0 ? 766 | (data[0] & 1) | (data[size - 1] & 256) : 1023;
    auto records = VNGitStatusParser::fileStatusRecords(
        parts[0], parts[1], parts[2], mask,
        [](const std::string& path) { return path.size() % 3 == 0; });
    vn::toJson(vn::Value::Array(records.begin(), records.end()));
    VNGitStatusParser::countStatuses(parts[0]);
    VNGitStatusParser::currentBranchFromBranchOutput(parts[0]);
    std::string second;
    std::vector<std::string> others;
    VNGitStatusParser::parseMergeHeadParents(parts[0], second, others);
    VNGitStatusParser::gitDirFromDotGitFile(parts[0]);
    return 0;
}
