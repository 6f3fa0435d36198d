// StartRenameFile: its own connection and logon, every pair of names in Files renamed in
// one server directory, then QUIT. Pairs are read from the end of the list: for each pair
// the caller adds the new name, then the old one.
#include "session/FTPSessionClass.h"

namespace velmar {

void FTPSessionClass::StartRenameFile() {
  EnterConnecting("RenameFile", "CONNECT", "Start Rename File Sequence", [this] { Paths.clear(); });
}

// Hyphen form. Every pair pays for a data connection and a TYPE. The answer to RNTO is not
// looked at: a refused rename does not stop the batch, which still ends in success.
void FTPSessionClass::ExecuteRenameFileSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineHyphenForm(replyLine)) return;
  const bool head = LogonThenDirectorySteps(replyLine, replyCode, GetServerDirectoryPathName(),
                                           [this] { NextFTPStep("LOOP", "NOOP", QString()); });
  if (head || BatchRoundSteps(replyLine, replyCode, "FROM", "Renaming file.")) {
    return;
  } else if (StepIs("FROM")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    SendRenameFrom();
  } else if (StepIs("TO")) {
    RenameToStep(replyLine, replyCode);
  } else if (StepIs("DONE")) {
    NextRoundOrQuit();
  } else if (StepIs("QUIT")) {
    QuitStep("File Rename Complete.");
  } else {
    UnknownStepBranch();
  }
}

}  // namespace velmar
