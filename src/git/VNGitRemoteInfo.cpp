#include "git/VNGitRemoteInfo.h"

#include "base/Record.h"

namespace {

vn::Value mapValue(const VNGitRemoteInfo::BranchMap& map) {
    vn::Record record;
    for (const auto& [local, remote] : map) {
        record.set(local, remote);
    }
    return record;
}

}  // namespace

vn::Value VNGitRemoteInfo::jsonValue() const {
    return vn::Record{
        {"name", name_},
        {"fetchUrl", fetchUrl_},
        {"pushUrl", pushUrl_},
        {"headBranch", headBranch_},
        {"remoteBranches", vn::Value::Array(remoteBranches_.begin(), remoteBranches_.end())},
        {"localToRemoteBranchPull", mapValue(localToRemoteBranchPull_)},
        {"localToRemoteBranchPush", mapValue(localToRemoteBranchPush_)},
    };
}
