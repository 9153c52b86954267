#include "platform/MainLoop.h"

#include <uv.h>

#include <atomic>

namespace vn {

namespace {
std::atomic<MainLoop*> gMain{nullptr};
std::mutex gCreateMutex;
}  // namespace

MainLoop& MainLoop::createMain() {
    std::lock_guard<std::mutex> lock(gCreateMutex);
    if (MainLoop* existing = gMain.load()) {
        return *existing;
    }
    // Lives until the process ends: tasks and observers may still post to it during exit.
    auto* loop = new MainLoop();
    gMain.store(loop);
    return *loop;
}

MainLoop* MainLoop::main() {
    return gMain.load();
}

bool MainLoop::isMainThread() {
    MainLoop* loop = gMain.load();
    return loop && loop->owner_ == std::this_thread::get_id();
}

MainLoop::MainLoop() : owner_(std::this_thread::get_id()) {
    loop_ = new uv_loop_t;
    uv_loop_init(loop_);
    async_ = new uv_async_t;
    uv_async_init(loop_, async_, &MainLoop::drain);
    async_->data = this;
    // The wake-up handle alone must not keep run() from returning when there is nothing to do.
    uv_unref(reinterpret_cast<uv_handle_t*>(async_));
}

void MainLoop::drain(uv_async_s* handle) {
    auto* self = static_cast<MainLoop*>(handle->data);
    std::deque<std::function<void()>> work;
    {
        std::lock_guard<std::mutex> lock(self->mutex_);
        work.swap(self->pending_);
    }
    for (auto& fn : work) {
        fn();
    }
}

void MainLoop::post(std::function<void()> fn) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        pending_.push_back(std::move(fn));
    }
    uv_async_send(async_);
}

void MainLoop::run() {
    stopRequested_ = false;
    uv_ref(reinterpret_cast<uv_handle_t*>(async_));
    while (!stopRequested_) {
        uv_run(loop_, UV_RUN_ONCE);
    }
    uv_unref(reinterpret_cast<uv_handle_t*>(async_));
}

void MainLoop::stop() {
    post([this] { stopRequested_ = true; });
}

bool MainLoop::runUntil(const std::function<bool()>& done, double timeoutSeconds) {
    bool timedOut = false;
    uv_timer_t timer;
    if (timeoutSeconds >= 0) {
        uv_timer_init(loop_, &timer);
        timer.data = &timedOut;
        uv_timer_start(
            &timer, [](uv_timer_t* t) { *static_cast<bool*>(t->data) = true; },
            static_cast<uint64_t>(timeoutSeconds * 1000), 0);
    }
    // Keeps the loop blocking for posted work while the condition is pending.
    uv_ref(reinterpret_cast<uv_handle_t*>(async_));
    bool result;
    while (!(result = done()) && !timedOut) {
        uv_run(loop_, UV_RUN_ONCE);
    }
    uv_unref(reinterpret_cast<uv_handle_t*>(async_));
    if (timeoutSeconds >= 0) {
        uv_timer_stop(&timer);
        uv_close(reinterpret_cast<uv_handle_t*>(&timer), nullptr);
        uv_run(loop_, UV_RUN_NOWAIT);  // lets the close complete before `timer` goes away
    }
    return result;
}

void MainLoop::runOnce(bool wait) {
    uv_run(loop_, wait ? UV_RUN_ONCE : UV_RUN_NOWAIT);
}

int MainLoop::backendFd() const {
    return uv_backend_fd(loop_);
}

void MainLoop::setDrivenByOuterLoop(bool driven) {
    if (driven == driven_) {
        return;
    }
    driven_ = driven;
    if (driven) {
        uv_ref(reinterpret_cast<uv_handle_t*>(async_));
    } else {
        uv_unref(reinterpret_cast<uv_handle_t*>(async_));
    }
}

int MainLoop::nextTimeoutMs() const {
    uv_update_time(loop_);
    return uv_backend_timeout(loop_);
}

bool MainLoop::needsRun() const {
    // The watcher queue holds descriptors that were started but not yet added to epoll; it is a
    // public field of uv_loop_t on Unix.
    bool watchersPending = loop_->watcher_queue[0] != static_cast<void*>(loop_->watcher_queue);
    return watchersPending || uv_backend_timeout(loop_) == 0;
}

void MainLoop::runReady() {
    uv_run(loop_, UV_RUN_NOWAIT);
}

}  // namespace vn
