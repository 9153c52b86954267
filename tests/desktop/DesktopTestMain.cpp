#include <QApplication>

#include <gtest/gtest.h>

#include <cstdlib>

#include "desktop/VNAsync.h"
#include "desktop/VNMainLoopBridge.h"
#include "support/TestEnvironment.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    vn::test::isolateEnvironment();
    // The tests draw offscreen unless a platform was chosen on purpose.
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication app(argc, argv);
    auto* bridge = new vn::desktop::VNMainLoopBridge(&app);
    (void)bridge;
    int result = RUN_ALL_TESTS();
    // Reads that windows started may still run; they must end before the engine is torn down.
    vn::desktop::waitForPendingWork(60);
    return result;
}
