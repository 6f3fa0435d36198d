// The timer: single shot, repeating, restart moving the deadline, stop, and release
// from inside its own event.
#include "platform/Timer.h"
#include "support/TestEventLoop.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

class CountingTimer : public Timer {
public:
  int fired = 0;
  std::function<void()> onFire;
  void Event_Action() override {
    ++fired;
    if (onFire) onFire();
  }
};

std::shared_ptr<CountingTimer> Started(int periodMs, int mode) {
  auto timer = MakeEventSource<CountingTimer>();
  timer->SetPeriod(periodMs);
  timer->SetMode(mode);
  return timer;
}

TEST(Timer, RestartingMovesTheDeadlineAndStoppingCancels) {
  auto timer = Started(150, 1);
  QElapsedTimer clock;
  clock.start();
  // Restarted every 30 ms for 450 ms: never reaches its period.
  while (clock.elapsed() < 450) {
    RunFor(30);
    timer->SetMode(1);
  }
  EXPECT_EQ(timer->fired, 0);
  ASSERT_TRUE(RunUntil([&] { return timer->fired == 1; }, 5000));
  EXPECT_GE(clock.elapsed(), 450 + 100);  // measured from the last restart, not the first
  timer->SetMode(1);
  timer->SetMode(0);
  RunFor(250);
  EXPECT_EQ(timer->fired, 1);
}

TEST(Timer, SingleShotTakesANewPeriodAtTheNextStartFiresOnceAndTurnsItselfOff) {
  auto timer = Started(60000, 1);
  timer->SetPeriod(20);
  RunFor(100);
  EXPECT_EQ(timer->fired, 0);  // the running countdown keeps its period
  timer->SetMode(1);
  ASSERT_TRUE(RunUntil([&] { return timer->fired == 1; }, 5000));
  EXPECT_EQ(timer->Mode(), 0);
  RunFor(80);
  EXPECT_EQ(timer->fired, 1);
}

TEST(Timer, RepeatingModeFiresAgainUntilStopped) {
  auto timer = Started(10, 2);
  timer->onFire = [&] {
    if (timer->fired == 3) timer->SetMode(0);
  };
  ASSERT_TRUE(RunUntil([&] { return timer->fired == 3; }, 5000));
  RunFor(60);
  EXPECT_EQ(timer->fired, 3);
}

TEST(Timer, ReleasingTheTimerInsideItsOwnEventIsSafe) {
  auto timer = Started(5, 1);
  bool released = false;
  timer->onFire = [&] {
    timer.reset();
    released = true;
  };
  ASSERT_TRUE(RunUntil([&] { return released; }, 5000));
  RunFor(20);
}

}  // namespace
}  // namespace velmar::test
