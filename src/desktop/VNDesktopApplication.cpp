#include "desktop/VNDesktopApplication.h"

#include "desktop/VNAsync.h"

#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDir>
#include <QEventLoop>
#include <QFileDialog>
#include <QFileInfo>
#include <QIcon>
#include <QItemSelectionModel>
#include <QLabel>
#include <QListView>
#include <QListWidget>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QTimer>
#include <QUrl>
#include <QUrlQuery>
#include <QVBoxLayout>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include "app/VNApplication.h"
#include "desktop/VNCommitDetails.h"
#include "desktop/VNDesktopWindowController.h"
#include "desktop/VNFileListModel.h"
#include "desktop/VNHistoryModel.h"
#include "desktop/VNMainLoopBridge.h"
#include "desktop/VNPasswordDialog.h"
#include "desktop/VNRemoteSheets.h"
#include "desktop/VNRepoWindow.h"
#include "desktop/VNSidebar.h"
#include "desktop/VNTheme.h"
#include "desktop/VNWorkingCopyPane.h"
#include "handler/VNRepoDocument.h"
#include "platform/Preferences.h"
#include "platform/Resources.h"

namespace vn::desktop {

namespace {

constexpr const char* RecentKey = "desktopRecentRepositories";
constexpr const char* OpenWindowsKey = "desktopOpenWindows";
constexpr int RecentLimit = 20;

const char* const Usage =
    "usage: varnel [PATH | varnel://open?path=PATH]...\n"
    "       varnel --screenshot FILE [--size WxH] [--theme light|dark] [--scale F]\n"
    "              [--select REVISION|working] [--sheet push] PATH\n"
    "       varnel --ask-password QUESTION\n"
    "Opens the repository window of each working copy; without one, the windows that were\n"
    "open when Varnel last quit, or a list of recent repositories. --ask-password shows\n"
    "a password dialog and prints the answer (for git's password questions).\n";

QStringList stringList(const vn::Value& value) {
    QStringList list;
    if (const vn::Value::Array* array = value.array()) {
        for (const vn::Value& item : *array) {
            if (const std::string* text = item.string()) {
                list << QString::fromStdString(*text);
            }
        }
    }
    return list;
}

void storeList(const char* key, const QStringList& list) {
    vn::Value::Array array;
    for (const QString& item : list) {
        array.emplace_back(item.toStdString());
    }
    vn::Preferences::standard().set(key, std::move(array));
}

// The folder a command-line word or a varnel:// address names; empty with `error` set when the
// address is not one Varnel takes.
QString folderOf(const QString& pathOrUrl, QString* error) {
    if (pathOrUrl.startsWith(QStringLiteral("varnel:"), Qt::CaseInsensitive)) {
        QUrl url(pathOrUrl);
        QString command = url.host().isEmpty() ? url.path() : url.host();
        if (command != QStringLiteral("open")) {
            *error = QObject::tr(
                         "Varnel cannot handle the address \"%1\" (only "
                         "varnel://open?path=... is known).")
                         .arg(pathOrUrl);
            return {};
        }
        QString path = QUrlQuery(url).queryItemValue(QStringLiteral("path"), QUrl::FullyDecoded);
        if (path.isEmpty()) {
            *error = QObject::tr("The address \"%1\" names no path.").arg(pathOrUrl);
            return {};
        }
        return QFileInfo(path).absoluteFilePath();
    }
    if (pathOrUrl.startsWith(QStringLiteral("file:"))) {
        return QFileInfo(QUrl(pathOrUrl).toLocalFile()).absoluteFilePath();
    }
    return QFileInfo(pathOrUrl).absoluteFilePath();
}

}  // namespace

VNLaunchRequest VNLaunchRequest::parse(const QStringList& arguments) {
    VNLaunchRequest request;
    for (int i = 1; i < arguments.size(); ++i) {
        const QString& word = arguments.at(i);
        auto value = [&](QString& into) {
            if (i + 1 >= arguments.size()) {
                request.error = QStringLiteral("%1 needs a value").arg(word);
                return false;
            }
            into = arguments.at(++i);
            return true;
        };
        QString text;
        if (word == QStringLiteral("--screenshot")) {
            if (value(request.screenshotFile) && request.screenshotFile.isEmpty()) {
                request.error = QStringLiteral("--screenshot needs a file name");
            }
        } else if (word == QStringLiteral("--size")) {
            if (value(text)) {
                QStringList parts = text.split(QLatin1Char('x'));
                bool okWidth = false;
                bool okHeight = false;
                int width = parts.size() == 2 ? parts[0].toInt(&okWidth) : 0;
                int height = parts.size() == 2 ? parts[1].toInt(&okHeight) : 0;
                if (!okWidth || !okHeight || width < 200 || height < 150 || width > 10000 ||
                    height > 10000) {
                    request.error = QStringLiteral(
                                        "--size takes WIDTHxHEIGHT from 200x150 to 10000x10000, "
                                        "not \"%1\"")
                                        .arg(text);
                } else {
                    request.screenshotSize = QSize(width, height);
                }
            }
        } else if (word == QStringLiteral("--theme")) {
            if (value(request.theme) && request.theme != QStringLiteral("light") &&
                request.theme != QStringLiteral("dark")) {
                request.error =
                    QStringLiteral("--theme takes light or dark, not \"%1\"").arg(request.theme);
            }
        } else if (word == QStringLiteral("--scale")) {
            if (value(text)) {
                bool ok = false;
                request.scale = text.toDouble(&ok);
                if (!ok || request.scale < 0.5 || request.scale > 4) {
                    request.error =
                        QStringLiteral("--scale takes a number from 0.5 to 4, not \"%1\"")
                            .arg(text);
                }
            }
        } else if (word == QStringLiteral("--select")) {
            value(request.select);
        } else if (word == QStringLiteral("--sheet")) {
            if (value(request.sheet) && request.sheet != QStringLiteral("push") &&
                request.sheet != QStringLiteral("pull") &&
                request.sheet != QStringLiteral("fetch")) {
                request.error = QStringLiteral("--sheet takes push, pull or fetch, not \"%1\"")
                                    .arg(request.sheet);
            }
        } else if (word == QStringLiteral("--detached")) {
            request.detached = true;
        } else if (word == QStringLiteral("--help") || word == QStringLiteral("-h")) {
            request.help = true;
        } else if (word.startsWith(QStringLiteral("--"))) {
            request.error = QStringLiteral("unknown option %1").arg(word);
        } else {
            request.paths << word;
        }
        if (!request.error.isEmpty()) {
            break;
        }
    }
    if (request.error.isEmpty() && !request.screenshotFile.isEmpty() && request.paths.size() != 1) {
        request.error = QStringLiteral("--screenshot takes exactly one repository path");
    }
    return request;
}

VNDesktopApplication::VNDesktopApplication(QObject* parent) : QObject(parent) {
    VNDesktopWindowController::registerFactory();
    connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { quitting_ = true; });
}

QStringList VNDesktopApplication::recentRepositories() {
    return stringList(vn::Preferences::standard().valueForKey(RecentKey));
}

void VNDesktopApplication::addRecentRepository(const QString& path) {
    QStringList recent = recentRepositories();
    recent.removeAll(path);
    recent.prepend(path);
    while (recent.size() > RecentLimit) {
        recent.removeLast();
    }
    storeList(RecentKey, recent);
}

QStringList VNDesktopApplication::lastOpenWindows() {
    return stringList(vn::Preferences::standard().valueForKey(OpenWindowsKey));
}

QList<VNRepoWindow*> VNDesktopApplication::windows() const {
    return windows_;
}

void VNDesktopApplication::rememberOpenWindows() {
    QStringList paths;
    for (VNRepoWindow* window : windows()) {
        paths << QString::fromStdString(window->path());
    }
    storeList(OpenWindowsKey, paths);
}

void VNDesktopApplication::windowClosed(QObject* window) {
    // Only compared: the window is being destroyed.
    bool last = windows_.size() == 1;
    windows_.removeIf([window](VNRepoWindow* open) { return open == window; });
    controllers_.remove(window);
    // Closing the last window, like quitting, leaves the list as it was: it reopens next time.
    if (!last && !quitting_) {
        rememberOpenWindows();
    }
}

VNRepoWindow* VNDesktopApplication::open(const QString& pathOrUrl, QString* error) {
    QString message;
    QString folder = folderOf(pathOrUrl, &message);
    if (folder.isEmpty()) {
        if (error) {
            *error = message;
        }
        return nullptr;
    }
    for (VNRepoWindow* window : windows()) {
        if (QString::fromStdString(window->path()) == folder) {
            window->raise();
            window->activateWindow();
            return window;
        }
    }
    if (!QFileInfo(folder).isDir()) {
        if (error) {
            *error = tr("There is no folder %1.").arg(folder);
        }
        return nullptr;
    }
    auto& shared = VNApplication::shared();
    std::string path = folder.toStdString();
    auto handler = shared.handlerForType(shared.determineRepositoryType(path));
    if (!handler) {
        if (error) {
            *error = tr("%1 is not a working copy of Git or Mercurial.").arg(folder);
        }
        return nullptr;
    }
    // Through the engine's window hook, as every window of a document is made.
    auto doc = std::make_shared<VNRepoDocument>(path, handler);
    auto controller = std::dynamic_pointer_cast<VNDesktopWindowController>(
        handler->newWindowControllerWithDoc(doc));
    VNRepoWindow* window = controller ? controller->window() : nullptr;
    if (!window) {
        if (error) {
            *error = tr("No window could be made for %1.").arg(folder);
        }
        return nullptr;
    }
    window->setAttribute(Qt::WA_DeleteOnClose, true);
    windows_ << window;
    controllers_.insert(window, controller);
    connect(window, &QObject::destroyed, this, &VNDesktopApplication::windowClosed);
    addRecentRepository(folder);
    rememberOpenWindows();
    controller->showWindow();
    return window;
}

std::shared_ptr<VNRepoWindowController> VNDesktopApplication::controllerOf(
    VNRepoWindow* window) const {
    return controllers_.value(window);
}

void VNDesktopApplication::showOpenDialog() {
    QDialog dialog;
    dialog.setWindowTitle(tr("Open Repository"));
    auto* layout = new QVBoxLayout(&dialog);
    layout->addWidget(new QLabel(tr("Recent repositories:"), &dialog));
    auto* list = new QListWidget(&dialog);
    for (const QString& path : recentRepositories()) {
        if (QFileInfo(path).isDir()) {
            list->addItem(path);
        }
    }
    list->setCurrentRow(0);
    layout->addWidget(list);
    auto* buttons =
        new QDialogButtonBox(QDialogButtonBox::Open | QDialogButtonBox::Cancel, &dialog);
    QPushButton* browse = buttons->addButton(tr("Choose Folder…"), QDialogButtonBox::ActionRole);
    layout->addWidget(buttons);
    QString chosen;
    connect(buttons, &QDialogButtonBox::accepted, &dialog, [&] {
        if (list->currentItem()) {
            chosen = list->currentItem()->text();
            dialog.accept();
        }
    });
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    connect(list, &QListWidget::itemActivated, &dialog, [&](QListWidgetItem* item) {
        chosen = item->text();
        dialog.accept();
    });
    connect(browse, &QPushButton::clicked, &dialog, [&] {
        QString folder = QFileDialog::getExistingDirectory(&dialog, tr("Choose a Working Copy"),
                                                           QDir::homePath());
        if (!folder.isEmpty()) {
            chosen = folder;
            dialog.accept();
        }
    });
    dialog.resize(560, 360);
    if (dialog.exec() != QDialog::Accepted || chosen.isEmpty()) {
        return;
    }
    QString error;
    if (!open(chosen, &error)) {
        QMessageBox::warning(nullptr, tr("Cannot Open Repository"), error);
        if (windows().isEmpty()) {
            QTimer::singleShot(0, this, &VNDesktopApplication::showOpenDialog);
        }
    }
}

namespace {

// Runs Qt's loop until `done` answers true or the time runs out.
bool waitUntil(const std::function<bool()>& done, int timeoutMs) {
    QEventLoop loop;
    QTimer check;
    QObject::connect(&check, &QTimer::timeout, &loop, [&] {
        if (done()) {
            loop.quit();
        }
    });
    check.start(25);
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    if (!done()) {
        loop.exec();
    }
    return done();
}

}  // namespace

int VNDesktopApplication::screenshot(const VNLaunchRequest& request) {
    QString error;
    QString folder = folderOf(request.paths.front(), &error);
    auto& shared = VNApplication::shared();
    std::string path = folder.toStdString();
    auto handler =
        folder.isEmpty() ? nullptr : shared.handlerForType(shared.determineRepositoryType(path));
    if (!handler) {
        std::cerr << "varnel: "
                  << (error.isEmpty() ? folder.toStdString() + " is not a working copy"
                                      : error.toStdString())
                  << "\n";
        return 1;
    }
    VNDesktopWindowController::registerFactory();
    auto controller = std::dynamic_pointer_cast<VNDesktopWindowController>(
        handler->newWindowControllerWithDoc(std::make_shared<VNRepoDocument>(path, handler)));
    if (!controller || !controller->window()) {
        std::cerr << "varnel: no window could be made for " << path << "\n";
        return 1;
    }
    std::unique_ptr<VNRepoWindow> owned(controller->window());
    VNRepoWindow& window = *owned;
    // The sidebar and the working copy read once the first rows are in; the picture waits for
    // their first answers too, Mercurial's being slow to come.
    bool sidebarRead = false;
    bool statusRead = false;
    QObject::connect(window.sidebar(), &VNSidebar::refreshed, &window,
                     [&sidebarRead] { sidebarRead = true; });
    QObject::connect(window.workingCopyPane(), &VNWorkingCopyPane::statusRefreshed, &window,
                     [&statusRead] { statusRead = true; });
    window.resize(request.screenshotSize);
    controller->showWindow();
    if (!waitUntil([&] { return !window.historyModel()->isLoading(); }, 120000)) {
        std::cerr << "varnel: the history did not load in time\n";
        return 1;
    }
    if (!request.select.isEmpty()) {
        bool found = request.select == QStringLiteral("working")
                         ? window.historyModel()->rowOfRevision("-1") >= 0 &&
                               (window.selectRow(window.historyModel()->rowOfRevision("-1")), true)
                         : window.selectRevision(request.select);
        if (!found) {
            std::cerr << "varnel: no row for \"" << request.select.toStdString() << "\"\n";
            return 1;
        }
    }
    waitUntil([&] { return sidebarRead && statusRead; }, 30000);
    // The chosen commit's files and first diff, when a commit is chosen.
    VNCommitDetails* details = window.details();
    waitUntil([&] { return details->settled(); }, 30000);
    if (request.select == QStringLiteral("working")) {
        VNWorkingCopyPane* pane = window.workingCopyPane();
        waitUntil(
            [&] { return pane->stagedModel()->rowCount() + pane->unstagedModel()->rowCount() > 0; },
            10000);
        // The first changed file's diff with its first hunk chosen, as someone about to stage
        // it would see it.
        QListView* list =
            pane->unstagedModel()->rowCount() > 0 ? pane->unstagedList() : pane->stagedList();
        if (list->model()->rowCount() > 0) {
            bool shown = false;
            QMetaObject::Connection connection = QObject::connect(
                pane, &VNWorkingCopyPane::diffShown, pane, [&shown] { shown = true; });
            list->selectionModel()->select(list->model()->index(0, 0),
                                           QItemSelectionModel::ClearAndSelect);
            waitUntil([&] { return shown; }, 10000);
            QObject::disconnect(connection);
            pane->chooseHunk(
                list->model()->index(0, 0).data(VNFileListModel::PathRole).toString().toStdString(),
                0);
        }
    }
    waitUntil([] { return false; }, 300);  // lets the panes settle and paint
    QPixmap image = window.grab();
    if (!request.sheet.isEmpty()) {
        VNRemoteSheet* sheet =
            window.openSheet(request.sheet == QStringLiteral("push")   ? VNRepoWindow::PushSheet
                             : request.sheet == QStringLiteral("pull") ? VNRepoWindow::PullSheet
                                                                       : VNRepoWindow::FetchSheet);
        if (!sheet || !waitUntil([&] { return sheet->loaded(); }, 30000)) {
            std::cerr << "varnel: the sheet did not open\n";
            return 1;
        }
        waitUntil([] { return false; }, 300);
        // The sheet drawn over the window's top centre, where a window-modal sheet appears.
        QPixmap drawn = sheet->grab();
        QPainter painter(&image);
        painter.fillRect(image.rect(), QColor(0, 0, 0, 60));
        qreal ratio = image.devicePixelRatio();
        int x = static_cast<int>(
            (image.width() / ratio - drawn.width() / drawn.devicePixelRatio()) / 2);
        painter.drawPixmap(QPoint(std::max(x, 0), 40), drawn);
    }
    if (!image.save(request.screenshotFile, "PNG")) {
        std::cerr << "varnel: cannot write " << request.screenshotFile.toStdString() << "\n";
        return 1;
    }
    std::cout << request.screenshotFile.toStdString() << ": " << image.width() << "x"
              << image.height() << " pixels\n";
    return 0;
}

int VNDesktopApplication::main(int argc, char** argv) {
    if (argc > 1 && std::string_view(argv[1]) == "--ask-password") {
        return askPasswordMain(argc, argv);
    }
    QStringList arguments;
    for (int i = 0; i < argc; ++i) {
        arguments << QString::fromLocal8Bit(argv[i]);
    }
    VNLaunchRequest request = VNLaunchRequest::parse(arguments);
    if (!request.error.isEmpty()) {
        std::cerr << "varnel: " << request.error.toStdString() << "\n" << Usage;
        return 2;
    }
    if (request.help) {
        std::cout << Usage;
        return 0;
    }
    if (request.detached) {
        // Started by `vrnl open`: nobody reads the terminal it came from.
        std::freopen("/dev/null", "r", stdin);
        std::freopen("/dev/null", "w", stdout);
        std::freopen("/dev/null", "w", stderr);
    }
    if (!request.screenshotFile.isEmpty()) {
        // Screenshots are drawn offscreen unless a platform was chosen on purpose.
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
    }
    if (request.scale > 0) {
        setenv("QT_SCALE_FACTOR", QByteArray::number(request.scale).constData(), 1);
    }
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Varnel"));
    QApplication::setApplicationVersion(QStringLiteral(VARNEL_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("varnel"));
    QString icon =
        QString::fromStdString(vn::Resources::path()) + QStringLiteral("/desktop/varnel.svg");
    if (QFileInfo::exists(icon)) {
        QApplication::setWindowIcon(QIcon(icon));
    }
    auto* bridge = new VNMainLoopBridge(&app);
    (void)bridge;
    installPasswordPrompter(QCoreApplication::applicationDirPath());
    VNTheme::Kind theme =
        request.theme.isEmpty() ? VNTheme::preferred() : VNTheme::fromName(request.theme);
    VNTheme::apply(theme, false);

    if (!request.screenshotFile.isEmpty()) {
        return screenshot(request);
    }

    VNDesktopApplication desktop;
    QStringList toOpen = request.paths;
    bool reopening = toOpen.isEmpty();
    if (reopening) {
        toOpen = lastOpenWindows();
    }
    QStringList problems;
    for (const QString& item : toOpen) {
        QString error;
        if (!desktop.open(item, &error)) {
            problems << error;
        }
    }
    if (!problems.isEmpty() && !reopening) {
        for (const QString& problem : problems) {
            std::cerr << "varnel: " << problem.toStdString() << "\n";
        }
        if (desktop.windows().isEmpty()) {
            return 1;
        }
    }
    if (desktop.windows().isEmpty()) {
        QTimer::singleShot(0, &desktop, &VNDesktopApplication::showOpenDialog);
        QApplication::setQuitOnLastWindowClosed(true);
    }
    int result = QApplication::exec();
    waitForPendingWork(30);
    return result;
}

}  // namespace vn::desktop
