#include "support/TestEventLoop.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>

namespace velmar::test {

bool RunUntil(const std::function<bool()>& done, int timeoutMs) {
  const QDeadlineTimer deadline(std::max(0, timeoutMs), Qt::PreciseTimer);
  // Wakes the waiting event loop now and then, so it never sleeps past the deadline.
  QTimer wakeUp;
  wakeUp.setTimerType(Qt::PreciseTimer);
  wakeUp.start(5);
  while (!done()) {
    const qint64 left = deadline.remainingTime();
    if (left <= 0) return done();
    if (left < wakeUp.interval()) wakeUp.start(int(left));
    QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
  }
  return true;
}

void RunFor(int milliseconds) {
  RunUntil([] { return false; }, milliseconds);
}

}  // namespace velmar::test
