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
};

}  // namespace velmar
