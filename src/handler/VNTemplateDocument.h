#pragma once

#include <string>

// What the commit-message template operations of a repository handler need to know about an open
// repository. The repository document implements it; tests use small stand-ins.
class VNTemplateDocument {
  public:
    virtual ~VNTemplateDocument() = default;

    // The working-copy root of the repository.
    virtual std::string path() const = 0;
    // The user dismissed the commit template for this repository.
    virtual bool isCommitTemplateIgnored() const = 0;
};
