#include "platform/WorkQueue.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace vn {

void WorkGroup::enter() {
    std::lock_guard<std::mutex> lock(mutex_);
    ++count_;
}

void WorkGroup::leave() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (count_ > 0 && --count_ == 0) {
        emptied_.notify_all();
    }
}

void WorkGroup::wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    emptied_.wait(lock, [this] { return count_ == 0; });
}

bool WorkGroup::waitFor(double seconds) {
    std::unique_lock<std::mutex> lock(mutex_);
    return emptied_.wait_for(lock, std::chrono::duration<double>(seconds),
                             [this] { return count_ == 0; });
}

WorkQueue& WorkQueue::global(Priority priority) {
    // Never destroyed: work may still be running while the process exits.
    static WorkQueue* queues[4] = {};
    static std::once_flag once[4];
    int index = static_cast<int>(priority);
    std::call_once(once[index], [&] {
        std::size_t cores = std::max(1u, std::thread::hardware_concurrency());
        queues[index] = new WorkQueue(std::max<std::size_t>(4, cores));
    });
    return *queues[index];
}

WorkQueue::WorkQueue(std::size_t baseThreads, std::size_t maxThreads)
    : maxThreads_(std::max(baseThreads, maxThreads)) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (std::size_t i = 0; i < baseThreads; ++i) {
        startThread();
    }
}

WorkQueue::~WorkQueue() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    available_.notify_all();
    std::unique_lock<std::mutex> lock(mutex_);
    available_.wait(lock, [this] { return threads_ == 0; });
}

void WorkQueue::startThread() {
    ++threads_;
    std::thread([this] { workerLoop(); }).detach();
}

void WorkQueue::async(std::function<void()> work) {
    std::lock_guard<std::mutex> lock(mutex_);
    work_.push_back(std::move(work));
    if (idle_ < work_.size() && threads_ < maxThreads_) {
        startThread();
    }
    available_.notify_one();
}

void WorkQueue::async(WorkGroup& group, std::function<void()> work) {
    group.enter();
    async([&group, work = std::move(work)] {
        work();
        group.leave();
    });
}

void WorkQueue::workerLoop() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        ++idle_;
        available_.wait(lock, [this] { return stopping_ || !work_.empty(); });
        --idle_;
        if (work_.empty()) {  // stopping
            --threads_;
            available_.notify_all();
            return;
        }
        auto work = std::move(work_.front());
        work_.pop_front();
        lock.unlock();
        work();
        lock.lock();
    }
}

}  // namespace vn
