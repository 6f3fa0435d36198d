#pragma once
// The framework's timer: Period in milliseconds, Mode 0 off, 1 single shot, 2 repeating.
#include "platform/EventSource.h"

#include <QElapsedTimer>
#include <QTimer>

namespace velmar {

class Timer : public EventSource {
public:
  Timer();
  ~Timer() override;

  qint32 Period() const { return period_; }
  // Takes effect at the next start (SetMode with a non-zero mode).
  void SetPeriod(qint32 milliseconds) { period_ = milliseconds; }

  int Mode() const { return mode_; }
  // 0 stops a running countdown; 1 or 2 start a countdown of Period afresh.
  void SetMode(int mode);

  void Detach() override;

  // Fired when the countdown runs out.
  virtual void Event_Action() {}

private:
  void Fire();
  void Arm(qint64 milliseconds);

  // A countdown restarted while it runs only moves its deadline: the system timer is
  // re-armed for the rest when it fires early. Restarts come once per transferred
  // block, so they must cost next to nothing.
  QTimer timer_;
  QElapsedTimer clock_;
  qint64 deadlineMs_ = 0;
  qint64 armedUntilMs_ = 0;
  qint32 period_ = 1000;
  int mode_ = 0;
};

}  // namespace velmar
