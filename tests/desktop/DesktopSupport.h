#pragma once

#include <QImage>

#include <functional>

// What the desktop tests share.
namespace vn::test::desktop {

// Runs a real Qt event loop (one that may sleep, unlike QTest::qWait) until `done` answers true
// or `timeoutMs` passes; answers `done()`.
bool waitInLoop(const std::function<bool()>& done, int timeoutMs = 60000);
void idleFor(int ms);

// Turns Qt warnings (QAbstractItemModelTester's among them) into test failures while alive.
class WarningsFail {
  public:
    WarningsFail();
    ~WarningsFail();
    WarningsFail(const WarningsFail&) = delete;
    WarningsFail& operator=(const WarningsFail&) = delete;
};

// Whether two colours are within `tolerance` in each channel.
bool near(QRgb a, QRgb b, int tolerance = 24);

}  // namespace vn::test::desktop
