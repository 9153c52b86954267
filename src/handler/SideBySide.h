#pragma once

#include <functional>

#include "handler/FailureCollector.h"
#include "platform/WorkQueue.h"

namespace vn {

// Runs `work` on the shared queue while the caller goes on with its own command; `wait` (or the
// end of the scope) joins.
class SideBySide {
  public:
    explicit SideBySide(std::function<void()> work) {
        // Failures on the other thread belong to the same request.
        WorkQueue::global().async(group_, FailureCollector::bind(std::move(work)));
    }
    ~SideBySide() { group_.wait(); }
    SideBySide(const SideBySide&) = delete;
    SideBySide& operator=(const SideBySide&) = delete;
    void wait() { group_.wait(); }

  private:
    WorkGroup group_;
};

}  // namespace vn
