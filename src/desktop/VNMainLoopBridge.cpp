#include "desktop/VNMainLoopBridge.h"

#include <QAbstractEventDispatcher>
#include <QThread>

#include "platform/MainLoop.h"

namespace vn::desktop {

VNMainLoopBridge::VNMainLoopBridge(QObject* parent)
    : QObject(parent), loop_(&vn::MainLoop::createMain()) {
    loop_->setDrivenByOuterLoop(true);
    notifier_ = new QSocketNotifier(loop_->backendFd(), QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, &VNMainLoopBridge::runLoop);
    timeoutTimer_.setSingleShot(true);
    timeoutTimer_.setTimerType(Qt::PreciseTimer);
    connect(&timeoutTimer_, &QTimer::timeout, this, &VNMainLoopBridge::runLoop);
    readyTimer_.setSingleShot(true);
    readyTimer_.setInterval(0);
    connect(&readyTimer_, &QTimer::timeout, this, &VNMainLoopBridge::runLoop);
    // Work that a slot starts on the loop (a task's process and pipes, a timer) must reach libuv's
    // poll set before Qt sleeps. The check only arms the zero timer; running libuv here instead
    // would let callbacks queue Qt work after Qt has decided to sleep.
    if (auto* dispatcher = QAbstractEventDispatcher::instance(thread())) {
        connect(dispatcher, &QAbstractEventDispatcher::aboutToBlock, this,
                &VNMainLoopBridge::checkBeforeSleep);
    }
    // The wake-up handle and anything made before the bridge need one run to be registered.
    readyTimer_.start();
}

VNMainLoopBridge::~VNMainLoopBridge() {
    loop_->setDrivenByOuterLoop(false);
}

void VNMainLoopBridge::runLoop() {
    if (running_) {
        // A callback spun a nested Qt loop (a modal question); libuv cannot be run from inside
        // its own callback, so the outer run carries on once that returns.
        return;
    }
    running_ = true;
    ++runs_;
    // The descriptor stays readable until libuv reads it: off meanwhile, or a nested Qt loop
    // would be woken without end.
    notifier_->setEnabled(false);
    loop_->runReady();
    notifier_->setEnabled(true);
    running_ = false;
    schedule();
}

void VNMainLoopBridge::schedule() {
    if (loop_->needsRun()) {
        readyTimer_.start();
        timeoutTimer_.stop();
        return;
    }
    int timeout = loop_->nextTimeoutMs();
    if (timeout < 0) {
        timeoutTimer_.stop();
    } else {
        // A timer that is already due still goes through Qt, so that Qt's own events keep
        // their turn.
        timeoutTimer_.start(timeout);
    }
}

void VNMainLoopBridge::checkBeforeSleep() {
    if (running_ || readyTimer_.isActive()) {
        return;
    }
    if (loop_->needsRun()) {
        readyTimer_.start();
        return;
    }
    // A timer started by a slot since the last run may be due before the one that is armed.
    int timeout = loop_->nextTimeoutMs();
    if (timeout >= 0 && (!timeoutTimer_.isActive() || timeoutTimer_.remainingTime() > timeout)) {
        timeoutTimer_.start(timeout);
    }
}

}  // namespace vn::desktop
