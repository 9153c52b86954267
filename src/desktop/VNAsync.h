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
}  // namespace detail

// Runs `work` on the engine's work queue, then `done(result)` on the GUI thread, only if
// `receiver` still exists.
template <class R>
void runAsync(QObject* receiver, std::function<R()> work, std::function<void(R)> done) {
    QPointer<QObject> guard(receiver);
    vn::WorkQueue::global().async(
        [guard, work = std::move(work), done = std::move(done)]() mutable {
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

}  // namespace vn::desktop
