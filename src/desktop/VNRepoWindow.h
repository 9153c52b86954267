#pragma once

#include <QMainWindow>

#include <memory>
#include <string>

class VNRepoHandler;

namespace vn::desktop {

// The window of one working copy.
class VNRepoWindow : public QMainWindow {
    Q_OBJECT
  public:
    VNRepoWindow(std::shared_ptr<VNRepoHandler> handler, std::string path,
                 QWidget* parent = nullptr);

    const std::string& path() const { return path_; }
    const std::shared_ptr<VNRepoHandler>& handler() const { return handler_; }

  private:
    std::shared_ptr<VNRepoHandler> handler_;
    std::string path_;
};

}  // namespace vn::desktop
