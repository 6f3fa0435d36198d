#pragma once
// The control connection: appends what it reads to the session's Buffer and hands
// complete lines to ParseCommandBuffer; a socket error ends the session.
#include "platform/SSLSocket.h"

namespace velmar {

class FTPSessionClass;

class FTPCommandSocket : public SSLSocket {
public:
  FTPSessionClass* Session = nullptr;

  explicit FTPCommandSocket(FTPSessionClass* session);

  void Event_DataAvailable() override;
  void Event_Error() override;

protected:
  std::shared_ptr<void> Anchor() override;
  // The wait for a turn to connect to a busy server is not inactivity: the timer stops
  // meanwhile and starts anew with the connect.
  void WaitingForTurn(bool waiting) override;

private:
  // The length of Buffer when it was last found to hold no line end: while nothing else has
  // changed it, only the bytes behind it need a look, so a long line costs no repeated scans.
  qsizetype searchedLength_ = -1;
  bool timerStoppedForTurn_ = false;
};

}  // namespace velmar
