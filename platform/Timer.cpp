#include "platform/Timer.h"

#include <algorithm>
#include <limits>

namespace velmar {

Timer::Timer() {
  timer_.setTimerType(Qt::PreciseTimer);
  timer_.setSingleShot(true);
  clock_.start();
  QObject::connect(&timer_, &QTimer::timeout, this, [this] { Fire(); });
}

Timer::~Timer() = default;

void Timer::SetMode(int mode) {
  mode_ = mode;
  if (mode == 0 || Detached()) {
    timer_.stop();
    return;
  }
  const qint64 period = std::max<qint32>(period_, 0);
  deadlineMs_ = clock_.elapsed() + period;
  // A system timer that fires before the new deadline is left alone: Fire re-arms it.
  if (!timer_.isActive() || armedUntilMs_ > deadlineMs_) Arm(period);
}

void Timer::Arm(qint64 milliseconds) {
  armedUntilMs_ = clock_.elapsed() + milliseconds;
  timer_.start(static_cast<int>(std::min<qint64>(milliseconds, std::numeric_limits<int>::max())));
}

void Timer::Detach() {
  EventSource::Detach();
  timer_.stop();
}

void Timer::Fire() {
  const qint64 left = deadlineMs_ - clock_.elapsed();
  if (left > 0) {  // restarted since the system timer was armed
    Arm(left);
    return;
  }
  if (mode_ == 1) {
    mode_ = 0;  // a single shot is over once it fired
  } else if (mode_ == 2) {
    deadlineMs_ = clock_.elapsed() + std::max<qint32>(period_, 0);
    Arm(std::max<qint32>(period_, 0));
  }
  Dispatch([this] { Event_Action(); });
}

}  // namespace velmar
