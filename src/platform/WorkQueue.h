#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

namespace vn {

// Counts outstanding work so that a caller can wait for all of it.
class WorkGroup {
  public:
    void enter();
    void leave();
    // Blocks until every enter has been matched by a leave.
    void wait();
    // As wait, for at most `seconds`; answers whether the group emptied.
    bool waitFor(double seconds);

  private:
    std::mutex mutex_;
    std::condition_variable emptied_;
    std::size_t count_ = 0;
};

// A concurrent queue served by a pool of worker threads. The pool starts with a thread per core
// (at least four) and adds a thread when work arrives while every thread is busy, up to a cap, so
// that work waiting for other work on the same queue cannot starve it.
class WorkQueue {
  public:
    enum class Priority { High, Default, Low, Background };

    static WorkQueue& global(Priority priority = Priority::Default);

    explicit WorkQueue(std::size_t baseThreads, std::size_t maxThreads = 64);
    ~WorkQueue();
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;

    void async(std::function<void()> work);
    // Enters the group now and leaves it when the work has run.
    void async(WorkGroup& group, std::function<void()> work);

  private:
    void startThread();
    void workerLoop();

    std::mutex mutex_;
    std::condition_variable available_;
    std::deque<std::function<void()>> work_;
    std::size_t threads_ = 0;
    std::size_t idle_ = 0;
    std::size_t maxThreads_;
    bool stopping_ = false;
};

}  // namespace vn
