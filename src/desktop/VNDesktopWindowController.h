#pragma once

#include <QPointer>

#include <memory>

#include "handler/VNRepoWindowController.h"

namespace vn::desktop {

class VNRepoWindow;

// The engine's handle on a repository window of the desktop: the handlers' window hook makes
// these through the factory `registerFactory` installs.
class VNDesktopWindowController : public VNRepoWindowController {
  public:
    explicit VNDesktopWindowController(std::shared_ptr<VNRepoDocument> doc);
    ~VNDesktopWindowController() override;

    void showWindow() override;
    void close() override;
    std::shared_ptr<VNRepoDocument> document() const override { return doc_; }

    // Null once the window has gone.
    VNRepoWindow* window() const;

    // Makes the desktop's windows the ones the engine opens.
    static void registerFactory();

  private:
    std::shared_ptr<VNRepoDocument> doc_;
    QPointer<VNRepoWindow> window_;
};

}  // namespace vn::desktop
