// The reference listings: `git branch -vv`, branch and name lists, remotes, stashes,
// for-each-ref labels, `git remote show` and the push settings of `git config -z --list`.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/Json.h"
#include "git/VNGitRefsParser.h"
#include "git/VNGitRemoteInfo.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view input(reinterpret_cast<const char*>(data), size);
    VNGitRefsParser::parseBranchVerbose(input);
    vn::toJson(VNGitRefsParser::aheadBehindFromBranchVerbose(input));
    vn::toJson(VNGitRefsParser::trackingBranchesFromBranchVerbose(input));
    VNGitRefsParser::parseBranchList(input);
    vn::toJson(VNGitRefsParser::parseRemoteVerbose(input));
    VNGitRefsParser::parseRemotePaths(input);
    VNGitRefsParser::parseLsRemoteHeads(input);
    VNGitRefsParser::parseStashList(input);
    VNGitRefsParser::parseRefLabels(input, size % 2 == 0);
    auto show = VNGitRefsParser::parseRemoteShow(input);
    auto settings = VNGitRefsParser::pushSettingsFromConfig(input, "origin", "main");
    VNGitRemoteInfo info;
    VNGitRefsParser::completePushMapping(info, show, settings);
    return 0;
}
