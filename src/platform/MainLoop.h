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
};

}  // namespace vn
