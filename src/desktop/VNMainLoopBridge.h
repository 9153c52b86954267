#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <cstdint>

namespace vn {
class MainLoop;
}

namespace vn::desktop {

// Lets Qt's event loop drive the engine's libuv main loop on the GUI thread: a socket notifier on
// libuv's backend descriptor runs it when something is readable, one single-shot timer stands for
// libuv's next timeout, and a zero timer runs it when work was started outside a run (libuv puts
// new descriptors into its poll set only inside one).
class VNMainLoopBridge : public QObject {
    Q_OBJECT
  public:
    // Makes the engine's main loop on the calling (GUI) thread if there is none yet.
    explicit VNMainLoopBridge(QObject* parent = nullptr);
    ~VNMainLoopBridge() override;

    vn::MainLoop& loop() const { return *loop_; }
    // How often libuv has been run by the bridge: lets tests tell an idle loop from a busy one.
    uint64_t runCount() const { return runs_; }

  private:
    void runLoop();
    // Arms the timers for what libuv has to do next.
    void schedule();
    void checkBeforeSleep();

    vn::MainLoop* loop_;
    QSocketNotifier* notifier_;
    QTimer timeoutTimer_;
    QTimer readyTimer_;
    uint64_t runs_ = 0;
    bool running_ = false;
};

}  // namespace vn::desktop
