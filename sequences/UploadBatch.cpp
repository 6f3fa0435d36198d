// StartPutFile: its own connection and logon, every name of Files into one server
// directory, then QUIT.
#include "session/FTPSessionClass.h"

#include "data/FTPDataSocket.h"
#include "platform/Exceptions.h"
#include "session/FTPCommandSocket.h"

namespace velmar {

void FTPSessionClass::StartPutFile() {
  EnterConnecting("PutFile", "CONNECT", "Start Put File Sequence", [this] { Paths.clear(); });
}

void FTPSessionClass::ExecutePutFileSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineHyphenForm(replyLine)) return;
  // The machine's own test: the field, not the overridable getter.
  const bool head = LogonThenDirectorySteps(replyLine, replyCode, ServerDirectory, [this] {
    NextFTPStep("TYPE", "TYPE " + FTPTransferType, "Change transfer type.");
  });
  if (head) return;
  if (StepIs("TYPE")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    NextFTPStep("LOOP", "NOOP", QString());
    return;
  }
  if (StepIs("LOOP")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    ChooseDataMode(FirstSet);
    return;
  }
  if (UploadDataLegSteps(replyLine, replyCode)) return;
  if (StepIs("STOR")) {
    if (CodeIn(replyCode, {150, 125})) {
      Deref(DataSocket, "DataSocket").Poll();
    } else if (CodeIn(replyCode, {226, 250})) {
      if (GetFileCount() < 0) {
        NextFTPStep("QUIT", "QUIT", "FTP Session Complete.");
      } else {
        if (!PassiveMode) NextDataPort();
        // Back through TYPE without sending it again: the type is set once per session.
        NextFTPStep("TYPE", "NOOP", QString());
      }
    } else {
      ErrorBranch(replyLine);
    }
    return;
  }
  if (StepIs("QUIT")) {
    QuitStep("File Transfer Complete.");
    return;
  }
  UnknownStepBranch();
}

}  // namespace velmar
