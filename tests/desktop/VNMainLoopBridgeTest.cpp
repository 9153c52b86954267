#include <QCoreApplication>
#include <QEventLoop>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>
#include <uv.h>

#include <atomic>
#include <functional>
#include <thread>

#include "desktop/VNAsync.h"
#include "desktop/VNMainLoopBridge.h"
#include "handler/VNTask.h"
#include "platform/MainLoop.h"
#include "platform/WorkQueue.h"

namespace {

// Waits in a real event loop: QTest::qWait polls without ever letting Qt block, so it would hide
// work that only runs when Qt is about to sleep.
bool waitInLoop(const std::function<bool()>& done, int timeoutMs) {
    QEventLoop loop;
    QTimer check;
    QObject::connect(&check, &QTimer::timeout, &loop, [&] {
        if (done()) {
            loop.quit();
        }
    });
    check.start(20);
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    if (!done()) {
        loop.exec();
    }
    return done();
}

void idleFor(int ms) {
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

vn::desktop::VNMainLoopBridge* bridge() {
    return QCoreApplication::instance()->findChild<vn::desktop::VNMainLoopBridge*>();
}

// Tasks, timers and handle closes started inside a Qt slot must complete although no libuv run
// was under way when they were armed: the bridge has to notice them before Qt sleeps. Each kind
// goes alone, so that one cannot wake the loop for another.
TEST(VNMainLoopBridge, TasksAndTimersStartedFromASlotComplete) {
    uv_loop_t* loop = vn::MainLoop::main()->uvLoop();
    bool timerFired = false;
    uv_timer_t timer;
    QTimer::singleShot(0, [&] {
        uv_timer_init(loop, &timer);
        timer.data = &timerFired;
        uv_timer_start(
            &timer, [](uv_timer_t* t) { *static_cast<bool*>(t->data) = true; }, 30, 0);
    });
    ASSERT_TRUE(waitInLoop([&] { return timerFired; }, 10000));

    bool closed = false;
    QTimer::singleShot(0, [&] {
        timer.data = &closed;
        uv_close(reinterpret_cast<uv_handle_t*>(&timer),
                 [](uv_handle_t* handle) { *static_cast<bool*>(handle->data) = true; });
    });
    ASSERT_TRUE(waitInLoop([&] { return closed; }, 10000));

    std::shared_ptr<VNTask> task;
    QTimer::singleShot(0, [&] {
        task = VNTask::taskWithCommand("/bin/sh", "/", {"-c", "printf 'from child'"});
        task->launch();
    });
    ASSERT_TRUE(waitInLoop([&] { return task && !task->isRunning(); }, 10000));
    EXPECT_TRUE(task->success());
    EXPECT_EQ(task->output(), "from child");
}

TEST(VNMainLoopBridge, WorkerPostsRunOnTheGuiThread) {
    const auto gui = std::this_thread::get_id();
    std::atomic<int> ranOnGui{0};
    std::atomic<int> ranElsewhere{0};
    std::thread worker([&] {
        for (int i = 0; i < 50; ++i) {
            vn::MainLoop::main()->post(
                [&, gui] { (std::this_thread::get_id() == gui ? ranOnGui : ranElsewhere)++; });
        }
    });
    worker.join();
    ASSERT_TRUE(waitInLoop([&] { return ranOnGui + ranElsewhere == 50; }, 10000));
    EXPECT_EQ(ranElsewhere, 0);

    // runAsync: the work off the GUI thread, the answer on it, and none for a receiver that went.
    std::thread::id workThread;
    std::thread::id doneThread;
    int answer = 0;
    auto* receiver = new QObject;
    vn::desktop::runAsync<int>(
        receiver,
        [&] {
            workThread = std::this_thread::get_id();
            return 42;
        },
        [&](int value) {
            doneThread = std::this_thread::get_id();
            answer = value;
        });
    ASSERT_TRUE(waitInLoop([&] { return answer == 42; }, 10000));
    EXPECT_NE(workThread, gui);
    EXPECT_EQ(doneThread, gui);

    std::atomic<bool> workDone{false};
    bool lateAnswer = false;
    vn::WorkGroup hold;
    hold.enter();
    vn::desktop::runAsync(
        receiver,
        [&] {
            hold.wait();
            workDone = true;
        },
        [&] { lateAnswer = true; });
    delete receiver;
    hold.leave();
    ASSERT_TRUE(waitInLoop([&] { return workDone.load(); }, 10000));
    idleFor(50);
    EXPECT_FALSE(lateAnswer);
}

// An idle loop must not keep Qt awake: a referenced handle makes libuv answer "no timeout"
// instead of "run now".
TEST(VNMainLoopBridge, IdleLoopIsNotWokenRepeatedly) {
    auto* b = bridge();
    ASSERT_NE(b, nullptr);
    idleFor(50);
    uint64_t before = b->runCount();
    idleFor(300);
    EXPECT_LE(b->runCount() - before, 1u);
    EXPECT_EQ(vn::MainLoop::main()->nextTimeoutMs(), -1);
}

}  // namespace
