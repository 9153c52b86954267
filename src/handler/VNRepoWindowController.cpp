#include "handler/VNRepoWindowController.h"

#include <mutex>

#include "handler/VNRepoDocument.h"
#include "platform/Log.h"

namespace {

std::mutex gMutex;
VNRepoWindowController::Factory gFactory;

}  // namespace

VNRepoWindowController::Factory VNRepoWindowController::registerFactory(Factory factory) {
    std::lock_guard<std::mutex> lock(gMutex);
    std::swap(gFactory, factory);
    return factory;
}

bool VNRepoWindowController::hasFactory() {
    std::lock_guard<std::mutex> lock(gMutex);
    return static_cast<bool>(gFactory);
}

std::shared_ptr<VNRepoWindowController> VNRepoWindowController::create(
    std::shared_ptr<VNRepoDocument> doc, std::string* error) {
    Factory factory;
    {
        // The factory runs unlocked: it may build a whole window, which may ask for another.
        std::lock_guard<std::mutex> lock(gMutex);
        factory = gFactory;
    }
    std::string problem;
    if (!doc) {
        problem = "No repository was given to open a window for.";
    } else if (!factory) {
        problem = "Cannot open a window for " + doc->path() +
                  ": this program has no repository windows (start varnel to open one).";
    }
    if (!problem.empty()) {
        vn::Log::error(problem);
        if (error) {
            *error = problem;
        }
        return nullptr;
    }
    return factory(std::move(doc));
}
