#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "handler/VNRepoHandler.h"

// The application object: it keeps one shared, stateless repository handler per repository type
// and tells which type a folder is.
class VNApplication {
  public:
    // The application's one instance, with the handlers of every backend built so far.
    static VNApplication& shared();

    // An application with no handlers; register them with `registerHandler`.
    VNApplication() = default;
    VNApplication(const VNApplication&) = delete;
    VNApplication& operator=(const VNApplication&) = delete;

    // Files the handler under its own `repositoryType()`, replacing one of the same type.
    void registerHandler(std::shared_ptr<VNRepoHandler> handler);
    // The shared handler for the type; null for a type without one.
    std::shared_ptr<VNRepoHandler> handlerForType(VNRepositoryType type) const;
    // Every registered handler, by ascending type.
    std::vector<std::shared_ptr<VNRepoHandler>> handlers() const;

    // The type of the first handler (by ascending type) that accepts the folder as a working
    // copy; VNRepositoryTypeUnknown when none does.
    VNRepositoryType determineRepositoryType(const std::string& path) const;

  private:
    mutable std::mutex mutex_;
    std::map<VNRepositoryType, std::shared_ptr<VNRepoHandler>> handlers_;
};
