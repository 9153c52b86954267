#include "desktop/VNRepoWindow.h"

#include <QFileInfo>
#include <QLabel>

#include "handler/VNRepoHandler.h"

namespace vn::desktop {

VNRepoWindow::VNRepoWindow(std::shared_ptr<VNRepoHandler> handler, std::string path,
                           QWidget* parent)
    : QMainWindow(parent), handler_(std::move(handler)), path_(std::move(path)) {
    QString shown = QString::fromStdString(path_);
    setWindowTitle(QFileInfo(shown).fileName() + QStringLiteral(" — Varnel"));
    setCentralWidget(new QLabel(shown, this));
    resize(1100, 720);
}

}  // namespace vn::desktop
