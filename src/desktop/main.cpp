#include <QApplication>
#include <QDir>
#include <QFileInfo>

#include <iostream>

#include "app/VNApplication.h"
#include "desktop/VNMainLoopBridge.h"
#include "desktop/VNRepoWindow.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Varnel"));
    QApplication::setDesktopFileName(QStringLiteral("varnel"));
    vn::desktop::VNMainLoopBridge bridge;

    QStringList args = QApplication::arguments();
    QString path = args.size() > 1 ? args.at(1) : QDir::currentPath();
    std::string folder = QFileInfo(path).absoluteFilePath().toStdString();
    auto& shared = VNApplication::shared();
    auto handler = shared.handlerForType(shared.determineRepositoryType(folder));
    if (!handler) {
        std::cerr << "varnel: " << folder << " is not a Git working copy\n";
        return 1;
    }
    vn::desktop::VNRepoWindow window(handler, folder);
    window.show();
    return QApplication::exec();
}
