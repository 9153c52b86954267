#include "desktop/VNDesktopWindowController.h"

#include "desktop/VNRepoWindow.h"
#include "handler/VNRepoDocument.h"

namespace vn::desktop {

VNDesktopWindowController::VNDesktopWindowController(std::shared_ptr<VNRepoDocument> doc)
    : doc_(std::move(doc)), window_(new VNRepoWindow(doc_->handler(), doc_->path())) {}

// The window outlives its handle: it closes itself, and whoever shows it decides when it goes.
VNDesktopWindowController::~VNDesktopWindowController() = default;

VNRepoWindow* VNDesktopWindowController::window() const {
    return window_.data();
}

void VNDesktopWindowController::showWindow() {
    if (!window_) {
        return;
    }
    window_->show();
    window_->raise();
    window_->activateWindow();
}

void VNDesktopWindowController::close() {
    if (window_) {
        window_->close();
    }
}

void VNDesktopWindowController::registerFactory() {
    VNRepoWindowController::registerFactory(
        [](std::shared_ptr<VNRepoDocument> doc) -> std::shared_ptr<VNRepoWindowController> {
            if (!doc || !doc->handler()) {
                return nullptr;
            }
            return std::make_shared<VNDesktopWindowController>(std::move(doc));
        });
}

}  // namespace vn::desktop
