#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <thread>

struct uv_loop_s;
struct uv_async_s;

namespace vn {

// The main thread's run loop: a libuv loop owned by the thread that created it. Work can be posted
// to it from any thread. A front end with a loop of its own polls `backendFd()` and calls
// `runOnce(false)` when it is readable.
class MainLoop {
  public:
    // Makes the main loop on the calling thread (once per process; later calls return it).
    static MainLoop& createMain();
    // The main loop, or null when no front end made one.
    static MainLoop* main();
    // True on the thread that owns the main loop.
    static bool isMainThread();

    // Runs `fn` on the main thread, in order of posting.
    void post(std::function<void()> fn);

    // Runs until `stop()`.
    void run();
    void stop();
    // Runs until `done` answers true, or the timeout (seconds, negative for none) passes; answers
    // whether `done` became true. Must be called on the owning thread, not from inside the loop.
    bool runUntil(const std::function<bool()>& done, double timeoutSeconds = -1);
    // One iteration; with `wait`, blocks until something happens.
    void runOnce(bool wait);

    int backendFd() const;

    // ---- Driving from an outer loop (a toolkit's own event loop) -----------------------------
    // While driven, the wake-up handle is referenced so that libuv counts the loop as alive and
    // answers real timeouts instead of 0 (which would wake the outer loop without end).
    void setDrivenByOuterLoop(bool driven);
    bool drivenByOuterLoop() const { return driven_; }
    // Milliseconds until libuv's next timer is due, 0 when something is ready now, -1 when
    // nothing but a readable backend descriptor can give it work.
    int nextTimeoutMs() const;
    // Whether a run is owed before the outer loop may sleep on the backend descriptor: libuv
    // adds descriptors started outside a run (a process's pipes, a timer) to its poll set only
    // inside a run, and callbacks may be pending.
    bool needsRun() const;
    // Runs what is ready without blocking: due timers, readable descriptors, posted work.
    void runReady();
    uv_loop_s* uvLoop() const { return loop_; }
    std::thread::id ownerThread() const { return owner_; }

  private:
    MainLoop();
    static void drain(uv_async_s* handle);

    uv_loop_s* loop_;
    uv_async_s* async_;
    std::thread::id owner_;
    std::mutex mutex_;
    std::deque<std::function<void()>> pending_;
    bool stopRequested_ = false;
    bool driven_ = false;
};

}  // namespace vn
