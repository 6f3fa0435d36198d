#include "session/FTPCommandSocket.h"

#include "platform/EventLoop.h"
#include "platform/Strings.h"
#include "session/FTPSessionClass.h"

namespace velmar {

FTPCommandSocket::FTPCommandSocket(FTPSessionClass* session) : Session(session) {}

std::shared_ptr<void> FTPCommandSocket::Anchor() {
  return Session ? std::shared_ptr<void>(Session->weak_from_this().lock()) : nullptr;
}

void FTPCommandSocket::Event_DataAvailable() {
  if (!Session) return;
  Session->Buffer += ReadAll();
  // A line is complete only with CR LF; the test is made afresh on each round, since a
  // step may have changed the buffer.
  for (;;) {
    if (!Session) return;
    const QByteArray lineEnd = Session->ServerTextEncoding.Encode(Session->VelmarCRLF);
    if (lineEnd.isEmpty() || !Session->Buffer.contains(lineEnd)) return;
    Session->ParseCommandBuffer();
    Yield();
  }
}

void FTPCommandSocket::Event_Error() {
  if (!Session) return;
  // After QUIT the server's closing of the connection is the normal end.
  if (Same(Session->GetCurrentFTPStep(), QStringLiteral("QUIT"))) return;
  Session->EndFTPSession(QStringLiteral("Error: ") + Str(LastErrorCode()));
}

}  // namespace velmar
