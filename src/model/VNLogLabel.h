#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "base/Value.h"

// A name drawn on a history row: a local branch, a tag (or the detached HEAD), a remote branch.
class VNLogLabel : public vn::Object {
  public:
    static constexpr int32_t LocalBranch = 0;
    // Tags, and "HEAD" when it is detached.
    static constexpr int32_t Tag = 1;
    static constexpr int32_t RemoteBranch = 2;

    VNLogLabel() = default;
    VNLogLabel(std::string label, int32_t type, std::string revision, std::string sha,
               std::string ref = {});

    static std::shared_ptr<VNLogLabel> labelWithLabel(std::string label, int32_t type,
                                                      std::string revision, std::string sha);
    static std::shared_ptr<VNLogLabel> labelWithLabel(std::string label, int32_t type,
                                                      std::string revision, std::string sha,
                                                      std::string ref);

    const std::string& label() const { return label_; }
    void setLabel(std::string label) { label_ = std::move(label); }
    int32_t type() const { return type_; }
    void setType(int32_t type) { type_ = type; }
    const std::string& description() const { return description_; }
    void setDescription(std::string description) { description_ = std::move(description); }
    // The ahead/behind text of a branch with an upstream ("2 ahead 1 behind").
    const std::string& annotation() const { return annotation_; }
    void setAnnotation(std::string annotation) { annotation_ = std::move(annotation); }
    const std::string& revision() const { return revision_; }
    void setRevision(std::string revision) { revision_ = std::move(revision); }
    const std::string& commitSHA() const { return commitSHA_; }
    void setCommitSHA(std::string sha) { commitSHA_ = std::move(sha); }
    // Set on the branch that is checked out.
    bool currentMarker() const { return currentMarker_; }
    void setCurrentMarker(bool current) { currentMarker_ = current; }
    // The full reference name ("refs/heads/main"), when known.
    const std::string& ref() const { return ref_; }
    void setRef(std::string ref) { ref_ = std::move(ref); }

    // Orders by `label` without regard to case: negative, 0 or positive.
    int compareCaseInsensitive(const VNLogLabel& other) const;

    vn::Value jsonValue() const override;
    void writeJson(vn::JsonWriter& writer) const override;

  private:
    std::string label_;
    int32_t type_ = LocalBranch;
    std::string description_;
    std::string annotation_;
    std::string revision_;
    std::string commitSHA_;
    bool currentMarker_ = false;
    std::string ref_;
};
