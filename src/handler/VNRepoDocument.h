#pragma once

#include <memory>
#include <string>

#include "handler/VNRepoHandler.h"
#include "handler/VNTemplateDocument.h"

// One open repository: its working copy, its type and the shared handler of that type. Windows
// are made for documents, through the handler's window-controller hook.
class VNRepoDocument : public VNTemplateDocument {
  public:
    // `path` is made absolute and loses any trailing slash; the type is the handler's.
    VNRepoDocument(std::string path, std::shared_ptr<VNRepoHandler> handler);

    std::string path() const override { return path_; }
    VNRepositoryType repositoryType() const { return type_; }
    const std::shared_ptr<VNRepoHandler>& handler() const { return handler_; }

    bool isCommitTemplateIgnored() const override { return commitTemplateIgnored_; }
    void setCommitTemplateIgnored(bool ignored) { commitTemplateIgnored_ = ignored; }

  private:
    std::string path_;
    VNRepositoryType type_;
    std::shared_ptr<VNRepoHandler> handler_;
    bool commitTemplateIgnored_ = false;
};
