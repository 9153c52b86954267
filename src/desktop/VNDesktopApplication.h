#pragma once

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSize>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

class VNRepoWindowController;

namespace vn::desktop {

class VNRepoWindow;

// What `varnel` was asked to do by its command line.
struct VNLaunchRequest {
    QStringList paths;  // folders or varnel:// addresses to open
    QString screenshotFile;
    QSize screenshotSize{1400, 900};
    QString theme;     // "light", "dark" or empty for the preference
    QString select;    // a revision to select in a screenshot; "working" for the working copy
    QString sheet;     // "push", "pull" or "fetch": a screenshot with that sheet open
    double scale = 0;  // a device-pixel ratio to render at; 0 for the screen's
    bool detached = false;
    bool help = false;
    QString error;  // set when the command line is wrong

    static VNLaunchRequest parse(const QStringList& arguments);
};

// The desktop application: opens repository windows, remembers recent repositories and the
// windows that were open, and renders screenshots.
class VNDesktopApplication : public QObject {
    Q_OBJECT
  public:
    explicit VNDesktopApplication(QObject* parent = nullptr);

    // The whole program; answers the exit status.
    static int main(int argc, char** argv);

    // Opens (or raises) the window of the working copy at `path` or of a varnel://open address;
    // answers null with `error` set when it is not a working copy Varnel can open.
    VNRepoWindow* open(const QString& pathOrUrl, QString* error = nullptr);
    // The dialog with the recent repositories and a folder chooser.
    void showOpenDialog();
    QList<VNRepoWindow*> windows() const;
    // The engine's handle on an open window.
    std::shared_ptr<VNRepoWindowController> controllerOf(VNRepoWindow* window) const;

    static QStringList recentRepositories();
    static void addRecentRepository(const QString& path);
    // The windows that were open when the application last quit.
    static QStringList lastOpenWindows();

    // Renders the window of `path` after its history and the chosen commit have loaded and
    // writes it as PNG; answers the exit status.
    static int screenshot(const VNLaunchRequest& request);

  private:
    void rememberOpenWindows();
    void windowClosed(QObject* window);

    QList<VNRepoWindow*> windows_;
    QHash<QObject*, std::shared_ptr<VNRepoWindowController>> controllers_;
    bool quitting_ = false;
};

}  // namespace vn::desktop
