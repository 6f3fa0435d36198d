#include "session/FTPCommandSocket.h"

#include "platform/EventLoop.h"
#include "platform/Strings.h"
#include "session/FTPConnectionTimer.h"
#include "session/FTPSessionClass.h"

#include <algorithm>
#include <utility>

namespace velmar {

FTPCommandSocket::FTPCommandSocket(FTPSessionClass* session) : Session(session) {}

std::shared_ptr<void> FTPCommandSocket::Anchor() {
  return Session ? std::shared_ptr<void>(Session->weak_from_this().lock()) : nullptr;
}

void FTPCommandSocket::Event_DataAvailable() {
  if (!Session) return;
  qsizetype searchFrom = Session->Buffer.size() == searchedLength_ ? searchedLength_ : 0;
  Session->Buffer += ReadAll();
  // A line is complete only with CR LF; the test is made afresh on each round, since a
  // step may have changed the buffer.
  for (;;) {
    if (!Session) return;
    QByteArray& buffer = Session->Buffer;
    const QByteArray lineEnd = Session->ServerTextEncoding.Encode(Session->VelmarCRLF);
    if (lineEnd.isEmpty()) return;
    if (buffer.indexOf(lineEnd, std::max<qsizetype>(0, searchFrom - lineEnd.size() + 1)) < 0) {
      searchedLength_ = buffer.size();
      const qint32 limit = Session->MaxReplyLineLength;
      if (limit > 0 && buffer.size() > limit) {
        // The rest of the connection cannot be read in step any more: it is closed.
        Close();
        buffer.clear();
        searchedLength_ = -1;
        Session->EndFTPSession(QStringLiteral("Error: a reply line of more than %1 bytes").arg(limit));
      }
      return;
    }
    searchFrom = 0;
    searchedLength_ = -1;
    Session->ParseCommandBuffer();
    Yield();
  }
}

void FTPCommandSocket::WaitingForTurn(bool waiting) {
  if (!Session) return;
  if (waiting && Session->ConnectionTimer && Session->ConnectionTimer->Mode() != 0) {
    Session->ConnectionTimer->SetMode(0);
    timerStoppedForTurn_ = true;
  } else if (!waiting && std::exchange(timerStoppedForTurn_, false)) {
    Session->ResetConnectionTimer();
  }
}

void FTPCommandSocket::Event_Error() {
  if (!Session) return;
  // After QUIT the server's closing of the connection is the normal end.
  if (Same(Session->GetCurrentFTPStep(), QStringLiteral("QUIT"))) return;
  Session->EndFTPSession(QStringLiteral("Error: ") + Session->SocketErrorText(*this));
}

}  // namespace velmar
