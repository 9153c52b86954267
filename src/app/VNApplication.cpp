#include "app/VNApplication.h"

#include "git/VNRepoHandlerGit.h"
#include "hg/VNRepoHandlerMercurial.h"

VNApplication& VNApplication::shared() {
    // Never destroyed: work on other threads may still use the handlers while the process ends.
    static VNApplication* application = [] {
        auto* app = new VNApplication();
        app->registerHandler(std::make_shared<VNRepoHandlerGit>());
        app->registerHandler(std::make_shared<VNRepoHandlerMercurial>());
        return app;
    }();
    return *application;
}

void VNApplication::registerHandler(std::shared_ptr<VNRepoHandler> handler) {
    if (!handler) {
        return;
    }
    VNRepositoryType type = handler->repositoryType();
    std::lock_guard<std::mutex> lock(mutex_);
    handlers_[type] = std::move(handler);
}

std::shared_ptr<VNRepoHandler> VNApplication::handlerForType(VNRepositoryType type) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = handlers_.find(type);
    return it == handlers_.end() ? nullptr : it->second;
}

std::vector<std::shared_ptr<VNRepoHandler>> VNApplication::handlers() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::shared_ptr<VNRepoHandler>> list;
    for (const auto& [type, handler] : handlers_) {
        list.push_back(handler);
    }
    return list;
}

VNRepositoryType VNApplication::determineRepositoryType(const std::string& path) const {
    for (const auto& handler : handlers()) {
        if (handler->validateWorkingDirectory(path)) {
            return handler->repositoryType();
        }
    }
    return VNRepositoryTypeUnknown;
}
