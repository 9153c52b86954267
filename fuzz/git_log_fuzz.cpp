// The history listings: log lines, decorations, commit details, full messages, name-status and
// blame output. Every parser reads the whole input.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/Json.h"
#include "git/VNGitLogParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view input(reinterpret_cast<const char*>(data), size);
    vn::Record aheadBehind{
        {"main", vn::Value::Array{vn::Value(int64_t(2)), vn::Value(int64_t(1))}}};
    auto scan = size % 2 ? VNGitLogParser::LabelScan::Full : VNGitLogParser::LabelScan::Reduced;
    auto rows = VNGitLogParser::parseLog(input, scan, &aheadBehind);
    vn::toJson(vn::Value::Array(rows.begin(), rows.end()));
    VNGitLogParser::labelsFromDecoration(input, "0123456789abcdef0123456789abcdef01234567", scan,
                                         &aheadBehind);
    if (auto details = VNGitLogParser::parseDetails(input, size % 3 == 0, &aheadBehind)) {
        vn::toJson(*details);
    }
    vn::toJson(VNGitLogParser::parseFullMessages(input));
    auto changes = VNGitLogParser::parseNameStatus(input);
    vn::toJson(vn::Value::Array(changes.begin(), changes.end()));
    auto blame = VNGitLogParser::parseBlamePorcelain(input);
    vn::toJson(vn::Value::Array(blame.begin(), blame.end()));
    return 0;
}
