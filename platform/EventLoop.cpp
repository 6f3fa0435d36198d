#include "platform/EventLoop.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

namespace velmar {

void Yield() {
  static QElapsedTimer sinceLast;
  if (sinceLast.isValid() && sinceLast.nsecsElapsed() < 1'000'000) return;
  // Restarted before the pass: a yield inside an event that this pass delivers is then
  // throttled too, so passes do not nest without bound.
  sinceLast.start();
  QCoreApplication::processEvents(QEventLoop::AllEvents);
}

void WaitForEvents() {
  // WaitForMoreEvents blocks until something was processed; the wake-up timer bounds a
  // wait on a loop where nothing else would ever happen.
  QTimer wakeUp;
  wakeUp.setSingleShot(true);
  wakeUp.start(100);
  QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

}  // namespace velmar
