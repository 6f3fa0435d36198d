// The rules that every step machine shares, and the logon prefix of the connecting
// machines. Each machine keeps its own rows, codes and texts; these are the parts that
// are the same everywhere.
#include "session/FTPSessionClass.h"

#include "data/FTPDataSocket.h"
#include "platform/EventLoop.h"
#include "platform/Strings.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPConnectionTimer.h"
#include "session/FTPStatusClass.h"

namespace velmar {

// ---- Final-line test ----------------------------------------------------------------

bool FTPSessionClass::FinalLineBlankForm(const QString& line) {
  return Mid(line, 1, 1) != QStringLiteral(" ") && Mid(line, 4, 1) == QStringLiteral(" ");
}

bool FTPSessionClass::FinalLineHyphenForm(const QString& line) {
  return Mid(line, 1, 1) != QStringLiteral(" ") && Mid(line, 4, 1) != QStringLiteral("-");
}

bool FTPSessionClass::StepIs(const char* step) const {
  return CurrentFTPStep.compare(QLatin1String(step), Qt::CaseInsensitive) == 0;
}

bool FTPSessionClass::CodeIn(qint32 code, std::initializer_list<qint32> codes) {
  for (qint32 accepted : codes)
    if (code == accepted) return true;
  return false;
}

// ---- Endings ----------------------------------------------------------------------

void FTPSessionClass::UnknownStepBranch() {
  EndFTPSession(QStringLiteral("Unknown error during (") + CurrentFTPStep + QStringLiteral(")."));
}

void FTPSessionClass::ErrorBranch(const QString& replyLine) {
  EndFTPSession(QStringLiteral("Error: ") + replyLine + EndOfLine + ServerTextEncoding.Decode(Buffer));
}

void FTPSessionClass::ErrorBranchCR(const QString& replyLine) {
  EndFTPSession(QStringLiteral("Error: ") + replyLine + QChar(13) + ServerTextEncoding.Decode(Buffer));
}

void FTPSessionClass::QuietEnd(const QString& message) {
  if (ConnectionTimer) ConnectionTimer->SetMode(0);
  if (FTPStatusInstance) FTPStatusInstance->Successful_FTP(message);
}

void FTPSessionClass::QuietEndIf(bool accepted, const QString& replyLine, const QString& message) {
  if (accepted)
    QuietEnd(message);
  else
    ErrorBranch(replyLine);
}

void FTPSessionClass::QuitStep(const QString& message) {
  if (CommandSocket) Buffer += CommandSocket->ReadAll();
  EndFTPSession(message);
}

// ---- Entry prologues ----------------------------------------------------------------

bool FTPSessionClass::EnterResident(const char* sessionType, const char* firstStep, const QString& statusText,
                                    const std::function<void()>& prepare, const char* firstCommand,
                                    bool ignoreCancelFirst) {
  if (!SocketsActive()) return false;
  FTPSessionType = QString::fromLatin1(sessionType);
  NT = false;
  if (prepare) prepare();
  NextFTPStep(QString::fromLatin1(firstStep), QString::fromLatin1(firstCommand), statusText);
  Buffer.clear();
  if (ignoreCancelFirst) IgnoreCancel = true;
  ResetConnectionTimer();
  IgnoreCancel = true;
  return true;
}

void FTPSessionClass::EnterConnecting(const char* sessionType, const char* firstStep, const char* statusText,
                                      const std::function<void()>& prepare) {
  FTPSessionType = QString::fromLatin1(sessionType);
  NT = false;
  IgnoreCancel = false;
  if (prepare) prepare();
  NextFTPStep(QString::fromLatin1(firstStep), QString(), QString::fromLatin1(statusText));
  Buffer.clear();
  ResetConnectionTimer();
  CreateSockets();
  ConnectCommandSocket();
}

void FTPSessionClass::CreateSockets() {
  DataSocket = MakeEventSource<FTPDataSocket>(this);
  CommandSocket = MakeEventSource<FTPCommandSocket>(this);
  if (FTPS) {
    // Explicit TLS: the connection starts in the clear until the server accepts AUTH TLS.
    CommandSocket->ConnectionType = 3;
    CommandSocket->SetSecure(false);
    ApplyCertificateChecks(*CommandSocket);
  }
}

void FTPSessionClass::ConnectCommandSocket() {
  CommandSocket->Address = ServerAddress;
  CommandSocket->Port = CommandPort;
  CommandSocket->Connect();
}

// ---- The logon prefix ---------------------------------------------------------------

FTPSessionClass::PrefixOutcome FTPSessionClass::LogonPrefixSteps(const QString& replyLine, qint32 replyCode,
                                                                 std::initializer_list<qint32> greetingCodes,
                                                                 std::initializer_list<qint32> userCodes) {
  if (StepIs("CONNECT")) {
    if (!CodeIn(replyCode, greetingCodes)) {
      ErrorBranch(replyLine);
    } else {
      if (InStr(replyLine, QStringLiteral("Microsoft")) > 0) NT = true;
      if (FTPS)
        NextFTPStep(QStringLiteral("AUTH"), QStringLiteral("AUTH TLS"), QStringLiteral("\"Sending AUTH\""));
      else
        NextFTPStep(QStringLiteral("USER"), QStringLiteral("USER ") + ServerUserID, QStringLiteral("Send UserID"));
    }
    return PrefixOutcome::Handled;
  }
  if (StepIs("AUTH")) {
    if (replyCode != 234) {
      ErrorBranchCR(replyLine);
    } else {
      SecureCommandConnection();
      NextFTPStep(QStringLiteral("PBSZ"), QStringLiteral("PBSZ 0"), QStringLiteral("Sending PBSZ"));
    }
    return PrefixOutcome::Handled;
  }
  if (StepIs("PBSZ")) {
    if (replyCode != 200)
      ErrorBranchCR(replyLine);
    else
      NextFTPStep(QStringLiteral("PROT"), QStringLiteral("PROT P"), QStringLiteral("Sending PROT"));
    return PrefixOutcome::Handled;
  }
  if (StepIs("PROT")) {
    if (!CodeIn(replyCode, {200, 534})) {
      ErrorBranchCR(replyLine);
    } else {
      // Only a server that agreed to protect the data gets TLS on its data connections.
      if (replyCode == 200 && SecureDataConnection) SecureDataConnections();
      NextFTPStep(QStringLiteral("USER"), QStringLiteral("USER ") + ServerUserID, QStringLiteral("Send UserID"));
    }
    return PrefixOutcome::Handled;
  }
  if (StepIs("USER")) {
    if (!CodeIn(replyCode, userCodes))
      ErrorBranch(replyLine);
    else
      NextFTPStep(QStringLiteral("PASS"), QStringLiteral("PASS ") + ServerPassword, QStringLiteral("Send Password"));
    return PrefixOutcome::Handled;
  }
  if (StepIs("PASS")) {
    if (replyCode != 230) {
      ErrorBranch(replyLine);
      return PrefixOutcome::Handled;
    }
    return PrefixOutcome::LoggedOn;
  }
  return PrefixOutcome::NotAPrefixStep;
}

bool FTPSessionClass::LogonThenDirectorySteps(const QString& replyLine, qint32 replyCode, const QString& path,
                                              const std::function<void()>& goOn) {
  switch (LogonPrefixSteps(replyLine, replyCode, {220, 530}, {331, 230})) {
    case PrefixOutcome::LoggedOn:
      if (path.isEmpty())
        goOn();
      else
        NextFTPStep(QStringLiteral("CWD"), QStringLiteral("CWD ") + path, QStringLiteral("Change directory to: ") + path);
      return true;
    case PrefixOutcome::Handled:
      return true;
    case PrefixOutcome::NotAPrefixStep:
      break;
  }
  if (!StepIs("CWD")) return false;
  if (replyCode != 250)
    ErrorBranch(replyLine);
  else
    goOn();
  return true;
}

void FTPSessionClass::SecureCommandConnection() {
  std::weak_ptr<FTPCommandSocket> watched = CommandSocket;
  if (auto socket = watched.lock()) socket->SetSecure(true);
  // The step does not go on before the handshake has finished. The wait sleeps in the
  // event loop, and gives up once the socket is closed or released.
  for (;;) {
    std::shared_ptr<FTPCommandSocket> socket = watched.lock();
    if (!socket || socket != CommandSocket || socket->SSLConnected() || !socket->IsConnected()) break;
    socket->Poll();
    if (socket->SSLConnected() || !socket->IsConnected()) break;
    socket.reset();
    WaitForEvents();
  }
}

void FTPSessionClass::ApplyCertificateChecks(SSLSocket& socket) const {
  socket.VerifyPeer = VerifyServerCertificate;
  socket.TrustedCertificateFile = TrustedCertificateFile;
  // The name the caller asked for, also on a data connection that this side accepted.
  socket.PeerName = ServerAddress;
}

void FTPSessionClass::SecureDataConnections() {
  if (!DataSocket) return;
  ApplyCertificateChecks(*DataSocket);
  // The handshake waits for the server's 125 or 150: a server may take a data connection
  // that is busy before it has read the transfer command for a broken one (pyftpdlib closes
  // it), and another accepts the connection only with that command (vsftpd).
  DataSocket->HandshakeOnRequest = true;
  DataSocket->ConnectionType = 3;
  DataSocket->SetSecure(true);
}

QString FTPSessionClass::SocketErrorText(const SSLSocket& socket) const {
  const qint32 code = socket.LastErrorCode();
  const QString reason = socket.TLSFailureReason();
  if (code != SocketCore::ErrorTLS || reason.isEmpty() || !(VerifyServerCertificate || SecureDataConnection))
    return Str(code);
  return Str(code) + QStringLiteral(" (") + reason + QStringLiteral(")");
}

}  // namespace velmar
