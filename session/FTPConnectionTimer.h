#pragma once
// The session's inactivity timer: re-armed by every step and every reply line; when it
// runs out the session ends with the time-out message.
#include "platform/Timer.h"

namespace velmar {

class FTPSessionClass;

class FTPConnectionTimer : public Timer {
public:
  FTPSessionClass* Session = nullptr;

  explicit FTPConnectionTimer(FTPSessionClass* session);

  void Event_Action() override;

protected:
  std::shared_ptr<void> Anchor() override;
};

}  // namespace velmar
