#pragma once

#include <QCoreApplication>
#include <QMetaObject>
#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>

#include "platform/WorkQueue.h"

namespace vn::desktop {

namespace detail {
// Runs `fn` on the GUI thread. The call is addressed to the application object, which outlives
// every window, so that a receiver deleted meanwhile is never touched from the worker thread.
void postToGui(std::function<void()> fn);
// The work started by runAsync that has not finished.
vn::WorkGroup& pendingWork();
}  // namespace detail

// Runs `work` on the engine's work queue, then `done(result)` on the GUI thread, only if
// `receiver` still exists.
template <class R>
void runAsync(QObject* receiver, std::function<R()> work, std::function<void(R)> done) {
    QPointer<QObject> guard(receiver);
    vn::WorkQueue::global().async(
        detail::pendingWork(), [guard, work = std::move(work), done = std::move(done)]() mutable {
            auto result = std::make_shared<R>(work());
            detail::postToGui([guard, result, done = std::move(done)] {
                if (guard) {
                    done(std::move(*result));
                }
            });
        });
}

// Same for work without a result.
void runAsync(QObject* receiver, std::function<void()> work, std::function<void()> done);

// Waits at most `seconds` for the work runAsync started; answers whether all of it finished. Called
// before the process exits, so that no worker still holds engine state while it is torn down.
bool waitForPendingWork(double seconds);

}  // namespace vn::desktop
