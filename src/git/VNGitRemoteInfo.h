#pragma once

#include <map>
#include <string>
#include <vector>

#include "base/Value.h"

// What is known about one remote of a Git repository: its addresses, its default branch, its
// branches, and which local branch pulls from and pushes to which of them.
class VNGitRemoteInfo : public vn::Object {
  public:
    using BranchMap = std::map<std::string, std::string>;

    VNGitRemoteInfo() = default;
    explicit VNGitRemoteInfo(std::string name) : name_(std::move(name)) {}

    const std::string& name() const { return name_; }
    void setName(std::string name) { name_ = std::move(name); }
    const std::string& fetchUrl() const { return fetchUrl_; }
    void setFetchUrl(std::string url) { fetchUrl_ = std::move(url); }
    const std::string& pushUrl() const { return pushUrl_; }
    void setPushUrl(std::string url) { pushUrl_ = std::move(url); }
    // The remote's default branch; empty when the remote was not asked.
    const std::string& headBranch() const { return headBranch_; }
    void setHeadBranch(std::string branch) { headBranch_ = std::move(branch); }
    // Branch names on the remote, without the remote's name.
    const std::vector<std::string>& remoteBranches() const { return remoteBranches_; }
    std::vector<std::string>& remoteBranches() { return remoteBranches_; }
    void setRemoteBranches(std::vector<std::string> branches) {
        remoteBranches_ = std::move(branches);
    }
    // Local branch name to the remote branch it merges or rebases from.
    const BranchMap& localToRemoteBranchPull() const { return localToRemoteBranchPull_; }
    BranchMap& localToRemoteBranchPull() { return localToRemoteBranchPull_; }
    // Local branch name to the remote branch `git push <remote>` updates from it.
    const BranchMap& localToRemoteBranchPush() const { return localToRemoteBranchPush_; }
    BranchMap& localToRemoteBranchPush() { return localToRemoteBranchPush_; }

    vn::Value jsonValue() const override;

  private:
    std::string name_;
    std::string fetchUrl_;
    std::string pushUrl_;
    std::string headBranch_;
    std::vector<std::string> remoteBranches_;
    BranchMap localToRemoteBranchPull_;
    BranchMap localToRemoteBranchPush_;
};
