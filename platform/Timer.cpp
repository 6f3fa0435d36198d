#include "platform/Timer.h"

#include <algorithm>

namespace velmar {

Timer::Timer() {
  timer_.setTimerType(Qt::PreciseTimer);
  QObject::connect(&timer_, &QTimer::timeout, this, [this] { Fire(); });
}

Timer::~Timer() = default;

void Timer::SetMode(int mode) {
  mode_ = mode;
  if (mode == 0 || Detached()) {
    timer_.stop();
    return;
  }
  timer_.setSingleShot(mode == 1);
  timer_.start(std::max<qint32>(period_, 0));
}

void Timer::Detach() {
  EventSource::Detach();
  timer_.stop();
}

void Timer::Fire() {
  if (mode_ == 1) mode_ = 0;  // a single shot is over once it fired
  Dispatch([this] { Event_Action(); });
}

}  // namespace velmar
