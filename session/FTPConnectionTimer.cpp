#include "session/FTPConnectionTimer.h"

#include "session/FTPSessionClass.h"

namespace velmar {

FTPConnectionTimer::FTPConnectionTimer(FTPSessionClass* session) : Session(session) {}

std::shared_ptr<void> FTPConnectionTimer::Anchor() {
  return Session ? std::shared_ptr<void>(Session->weak_from_this().lock()) : nullptr;
}

void FTPConnectionTimer::Event_Action() {
  SetMode(0);
  if (Session) Session->EndFTPSession(QStringLiteral("Error: The connection timed out. Ending session."));
}

}  // namespace velmar
