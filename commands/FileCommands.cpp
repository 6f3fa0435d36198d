// DeleteSingleFile, RenameSingleFile and ChmodSingleFile: one remote file on a logged-on
// session. The names come off the end of Files (AddFileName), sent as they stand.
#include "session/FTPSessionClass.h"

#include "data/FTPDataSocket.h"
#include "platform/Exceptions.h"

namespace velmar {

void FTPSessionClass::DeleteSingleFile() {
  EnterResident("DeleteSingleFile", "START", "Send Delete Single File Command");
}

// AddFileName(new name), then AddFileName(old name): the list is read from its end.
void FTPSessionClass::RenameSingleFile() {
  EnterResident("RenameSingleFile", "START", "Send Rename Single File Command");
}

// AddFileName(name) and ChmodMask, then this.
void FTPSessionClass::ChmodSingleFile() { EnterResident("ChmodSingleFile", "START", "Send Change Mode Command"); }

// DELE moves no data, yet the machine first agrees on a data connection and a type, and
// leaves that connection as it is (connected, or listening) when it ends.
void FTPSessionClass::ExecuteDeleteSingleFileSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineBlankForm(replyLine)) return;
  if (StepIs("START")) {
    ChooseDataMode(FirstSet);
  } else if (FirstDataLegSteps(replyLine, replyCode, "TYPE", "TYPE " + FTPTransferType, "Change transfer type.")) {
    return;
  } else if (StepIs("TYPE")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    NextFTPStep("DELETEFILE", "NOOP", "Deleting file...");
  } else if (StepIs("DELETEFILE")) {
    DeleteNextFileStep(replyLine, replyCode);
  } else if (StepIs("DELE")) {
    QuietEndIf(replyCode == 250, replyLine, "File has been deleted.");
  } else {
    UnknownStepBranch();
  }
}

void FTPSessionClass::DeleteNextFileStep(const QString& replyLine, qint32 replyCode) {
  if (replyCode != 200) return ErrorBranch(replyLine);
  const QString name = GetNextFileName();
  Deref(DataSocket, "DataSocket").PutFileName(name);
  NextFTPStep("DELE", "DELE " + name, "Deleting " + name);
}

// The texts are kept as they are: no blank after "Renaming file.", one before "to:".
// The step is set as "DONE" and tested as "Done".
void FTPSessionClass::ExecuteRenameSingleFileSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineBlankForm(replyLine)) return;
  if (StepIs("START")) {
    SendRenameFrom();
  } else if (StepIs("TO")) {
    RenameToStep(replyLine, replyCode);
  } else if (StepIs("Done")) {
    QuietEndIf(replyCode == 250, replyLine, "File Rename Complete.");
  } else {
    UnknownStepBranch();
  }
}

// A pair is taken from the end of Files: the old name first, then the new one.
void FTPSessionClass::SendRenameFrom() {
  const QString oldName = GetNextFileName();
  NextFTPStep("TO", "RNFR " + oldName, "Renaming file." + oldName);
}

void FTPSessionClass::RenameToStep(const QString& replyLine, qint32 replyCode) {
  if (replyCode != 350) return ErrorBranch(replyLine);
  const QString newName = GetNextFileName();
  NextFTPStep("DONE", "RNTO " + newName, " to: " + newName);
}

// The mask is sent as the caller set it, unchecked.
void FTPSessionClass::ExecuteChmodSingleFileSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineBlankForm(replyLine)) return;
  if (StepIs("START")) {
    const QString name = GetNextFileName();
    const QString mask = ChmodMask;
    NextFTPStep("DONE", "SITE CHMOD " + mask + " " + name, "Change Mode of: " + name + " to: " + mask);
  } else if (StepIs("Done")) {
    QuietEndIf(replyCode == 200, replyLine, "Chmod Command Complete.");
  } else {
    UnknownStepBranch();
  }
}

}  // namespace velmar
