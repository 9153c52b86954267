#include "desktop/VNAsync.h"

namespace vn::desktop {

namespace detail {
void postToGui(std::function<void()> fn) {
    QCoreApplication* app = QCoreApplication::instance();
    if (!app) {
        return;
    }
    QMetaObject::invokeMethod(app, std::move(fn), Qt::QueuedConnection);
}

vn::WorkGroup& pendingWork() {
    static auto* group = new vn::WorkGroup;  // never destroyed: workers may outlive exit()
    return *group;
}
}  // namespace detail

bool waitForPendingWork(double seconds) {
    return detail::pendingWork().waitFor(seconds);
}

void runAsync(QObject* receiver, std::function<void()> work, std::function<void()> done) {
    QPointer<QObject> guard(receiver);
    vn::WorkQueue::global().async(detail::pendingWork(),
                                  [guard, work = std::move(work), done = std::move(done)] {
                                      work();
                                      detail::postToGui([guard, done] {
                                          if (guard) {
                                              done();
                                          }
                                      });
                                  });
}

}  // namespace vn::desktop
