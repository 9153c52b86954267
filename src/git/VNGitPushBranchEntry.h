#pragma once

#include <cstdint>
#include <string>

// One row of a push list: whether the branch goes, where to, and what becomes of its upstream.
struct VNGitPushBranchEntry {
    static constexpr int64_t TrackSet = 1;
    static constexpr int64_t TrackRemove = 0;
    // Any other value leaves the upstream as it is.
    static constexpr int64_t TrackKeep = -1;

    bool push = false;
    std::string localBranch;
    // Empty: the branch of the same name as the local one.
    std::string remoteBranch;
    int64_t track = TrackKeep;
};
