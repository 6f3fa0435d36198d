// StartDeleteFile: its own connection and logon, every name of Files deleted in one server
// directory, then QUIT. The last name added goes first; the first refusal ends the batch.
#include "session/FTPSessionClass.h"

namespace velmar {

void FTPSessionClass::StartDeleteFile() { EnterConnecting("DeleteFile", "CONNECT", "Start Delete File Sequence"); }

// Blank form. DELE moves no data, yet every name pays for a data connection and a TYPE
// first. The list is tested after a delete, so an empty list still sends one "DELE ".
void FTPSessionClass::ExecuteDeleteFileSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineBlankForm(replyLine)) return;
  const bool head = LogonThenDirectorySteps(replyLine, replyCode, GetServerDirectoryPathName(),
                                           [this] { NextFTPStep("LOOP", "NOOP", QString()); });
  if (head || BatchRoundSteps(replyLine, replyCode, "DELETEFILE", "Deleting file...")) {
    return;
  } else if (StepIs("DELETEFILE")) {
    DeleteNextFileStep(replyLine, replyCode);
  } else if (StepIs("DELE")) {
    if (replyCode != 250) return ErrorBranch(replyLine);
    NextRoundOrQuit();
  } else if (StepIs("QUIT")) {
    QuitStep("File has been deleted.");
  } else {
    UnknownStepBranch();
  }
}

}  // namespace velmar
