#include "DesktopSupport.h"

#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

#include <cstdlib>

namespace vn::test::desktop {

bool waitInLoop(const std::function<bool()>& done, int timeoutMs) {
    if (done()) {
        return true;
    }
    QEventLoop loop;
    QTimer check;
    QObject::connect(&check, &QTimer::timeout, &loop, [&] {
        if (done()) {
            loop.quit();
        }
    });
    check.start(10);
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    loop.exec();
    return done();
}

void idleFor(int ms) {
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

namespace {
QtMessageHandler gPrevious = nullptr;

void failOnWarning(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (type == QtWarningMsg || type == QtCriticalMsg || type == QtFatalMsg) {
        // The offscreen platform's notes about window features are no fault of ours.
        if (!message.contains(QStringLiteral("propagateSizeHints")) &&
            !message.contains(QStringLiteral("XDG_RUNTIME_DIR"))) {
            ADD_FAILURE() << "Qt warning: " << message.toStdString();
        }
    }
    if (gPrevious) {
        gPrevious(type, context, message);
    }
}
}  // namespace

WarningsFail::WarningsFail() {
    gPrevious = qInstallMessageHandler(failOnWarning);
}

WarningsFail::~WarningsFail() {
    qInstallMessageHandler(gPrevious);
    gPrevious = nullptr;
}

bool near(QRgb a, QRgb b, int tolerance) {
    return std::abs(qRed(a) - qRed(b)) <= tolerance &&
           std::abs(qGreen(a) - qGreen(b)) <= tolerance &&
           std::abs(qBlue(a) - qBlue(b)) <= tolerance;
}

}  // namespace vn::test::desktop
