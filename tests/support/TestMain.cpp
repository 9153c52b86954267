#include <gtest/gtest.h>

#include "platform/MainLoop.h"
#include "support/TestEnvironment.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    vn::test::isolateEnvironment();
    vn::MainLoop::createMain();
    return RUN_ALL_TESTS();
}
