// Logon and Logoff: their entry methods and their machines.
#include "session/FTPSessionClass.h"

#include "session/FTPCommandSocket.h"

namespace velmar {

void FTPSessionClass::Logon() {
  FTPSessionType = QStringLiteral("Logon");
  NT = false;
  NextFTPStep(QStringLiteral("CONNECT"), QString(), QStringLiteral("Send Logon Command"));
  Buffer.clear();
  ResetConnectionTimer();
  CreateSockets();
  // The session stays open after the logon: errors leave the connection up.
  IgnoreCancel = true;
  ConnectCommandSocket();
}

// Unlike the other resident methods, Logoff asks the server at once: its first command
// is a real QUIT, not the pseudo-command.
void FTPSessionClass::Logoff() { EnterResident("Logoff", "QUIT", "Send Logoff Command", {}, "QUIT"); }

void FTPSessionClass::ExecuteLogonSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineHyphenForm(replyLine)) return;
  // Logon accepts only 331 after USER; the connecting machines also take 230 there.
  const PrefixOutcome outcome = LogonPrefixSteps(replyLine, replyCode, {220, 530}, {331});
  if (outcome == PrefixOutcome::LoggedOn) QuietEnd(QStringLiteral("Logon Complete."));
  // A step this machine does not know does nothing at all: it has no unknown-step branch.
}

void FTPSessionClass::ExecuteLogoffSteps(const QString& replyLine, qint32 replyCode) {
  (void)replyCode;  // whatever the server answers to QUIT, the logoff is complete
  if (!FinalLineHyphenForm(replyLine)) return;
  if (StepIs("QUIT")) {
    if (CommandSocket) Buffer += CommandSocket->ReadAll();
    EndFTPSession(QStringLiteral("Logoff Complete."));
  } else {
    UnknownStepBranch();
  }
}

}  // namespace velmar
