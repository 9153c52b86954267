#include "handler/VNRepoDocument.h"

#include <filesystem>

VNRepoDocument::VNRepoDocument(std::string path, std::shared_ptr<VNRepoHandler> handler)
    : handler_(std::move(handler)) {
    std::error_code ignored;
    std::filesystem::path absolute = std::filesystem::absolute(path, ignored);
    path_ = (ignored ? std::filesystem::path(path) : absolute).lexically_normal().string();
    while (path_.size() > 1 && path_.back() == '/') {
        path_.pop_back();
    }
    type_ = handler_ ? handler_->repositoryType() : VNRepositoryTypeUnknown;
}
