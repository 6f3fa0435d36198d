// RestartGetSingleFile and RestartPutSingleFile go on with an interrupted transfer of one
// file from an offset sent with REST; AbortTransfer asks the server to stop the running one.
// The restart machines are the single-file machines with extra steps, and their
// differences from those are kept on purpose.
#include "session/FTPSessionClass.h"

#include "data/FTPDataSocket.h"
#include "platform/Exceptions.h"
#include "platform/Strings.h"
#include "session/FTPStatusClass.h"

namespace velmar {

void FTPSessionClass::RestartGetSingleFile() {
  EnterResident("RestartGetSingleFile", "START", "Send Restart Get Single File Command");
}

void FTPSessionClass::RestartPutSingleFile() {
  EnterResident("RestartPutSingleFile", "START", "Send Restart Put Single File Command");
}

void FTPSessionClass::AbortTransfer() { EnterResident("AbortTransfer", "START", "Aborting File Transfer"); }

// The offset is the local file's length, taken when the data socket opens it for appending
// in "GETFILE". Against the plain download: the step "REST", no delete of the local file,
// and only 150 waits in "RETR" (a 125 is an error here).
void FTPSessionClass::ExecuteRestartGetSingleFileSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineBlankForm(replyLine)) return;
  if (StepIs("START")) {
    ChooseDataMode(FirstSet);
  } else if (FirstDataLegSteps(replyLine, replyCode, "TYPE", "TYPE " + FTPTransferType, "Change transfer type.")) {
    return;
  } else if (StepIs("TYPE")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    NextFTPStep("GETFILE", "NOOP", "Get file ");
  } else if (StepIs("GETFILE")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    // A local file that cannot be opened ends the operation here; REST still follows, with
    // the offset as it was, since the open has no result to test.
    Deref(DataSocket, "DataSocket").PutFileName(GetNextFileName());
    NextFTPStep("REST", "REST " + Format(RestartByteCount, "0"), "Get file ");
  } else if (StepIs("REST")) {
    if (replyCode != 350) return ErrorBranch(replyLine);
    // Through Deref: a reply that reaches the machine after the data socket is gone (the lines
    // behind an error branch are still dispatched) raises the nil-object error, not a crash.
    NextFTPStep("RETR", "RETR " + Deref(DataSocket, "DataSocket").GetFileName(), "Get file ");
  } else if (StepIs("RETR")) {
    RetrieveStep(replyLine, replyCode, {150});
  } else if (StepIs("FILEEND")) {
    if (DataHandedOver(replyLine, replyCode, "FILEEND", "Get file "))
      Deref(FTPStatusInstance, "FTPStatusInstance").Successful_FTP("File Transfer Complete.");
  } else {
    UnknownStepBranch();
  }
}

// Hyphen form. The offset is the server's size of the file (SIZE); the first block from
// there goes out at the 213 reply, before REST and a plain STOR tell the server.
void FTPSessionClass::ExecuteRestartPutSingleFileSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineHyphenForm(replyLine)) return;
  if (StepIs("START")) {
    NextFTPStep("TYPE", "TYPE " + FTPTransferType, "Change transfer type.");
    return;
  }
  if (StepIs("TYPE")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    ChooseDataMode(FirstSet);
    return;
  }
  const bool dataLegStep = UploadDataLegSteps(replyLine, replyCode, ListenKind::Late, [this](const QString& name) {
    NextFTPStep("SIZE", "SIZE " + name, "Send file ");
  });
  if (dataLegStep) return;
  if (StepIs("SIZE")) {
    if (replyCode != 213) return ErrorBranch(replyLine);
    // "213 <size>": any other shape keeps the offset that was there before.
    const QStringList parts = Split(replyLine, " ");
    if (parts.size() == 2) {
      RestartByteCount = ToInt32(Val(parts[1]));
      Deref(DataSocket, "DataSocket").SetRestartPosition();
    }
    NextFTPStep("REST", "REST " + Format(RestartByteCount, "0"), "Send file ");
  } else if (StepIs("REST")) {
    if (replyCode != 350) return ErrorBranch(replyLine);
    const QString name = Deref(DataSocket, "DataSocket").GetFileName();
    NextFTPStep("STOR", "STOR " + name, "Send file " + name);
  } else if (StepIs("STOR")) {
    StoreStep(replyLine, replyCode);
  } else {
    UnknownStepBranch();
  }
}

// ABOR goes out as a plain command line at once. The step of the interrupted transfer is
// overwritten, so that transfer's own late 226 (or 426) is taken for the answer: a 226
// without the word "Abort" is that late end, and passes quietly.
void FTPSessionClass::ExecuteAbortTransferSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineBlankForm(replyLine)) return;
  if (StepIs("START")) {
    NextFTPStep("ABORT", "ABOR", "Aborting File Transfer");
  } else if (StepIs("ABORT")) {
    if (replyCode != 226) return ErrorBranch(replyLine);
    if (InStr(replyLine, "Abort") > 0) {
      if (FTPStatusInstance) FTPStatusInstance->Successful_FTP("Transfer Aborted");
    } else {
      EndFTPSession(QString());
    }
  } else {
    UnknownStepBranch();
  }
}

}  // namespace velmar
