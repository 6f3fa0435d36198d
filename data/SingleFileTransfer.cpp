// GetSingleFile and PutSingleFile: one file on a logged-on session. The two are not
// mirror images: their orders, final-line tests and endings differ on purpose.
#include "session/FTPSessionClass.h"

#include "data/FTPDataSocket.h"
#include "platform/Exceptions.h"
#include "platform/FolderItem.h"
#include "session/FTPStatusClass.h"

namespace velmar {

void FTPSessionClass::GetSingleFile() {
  EnterResident("GetSingleFile", "START", "Send Get Single File Command");
}

void FTPSessionClass::PutSingleFile() {
  EnterResident("PutSingleFile", "START", "Send Put Single File Command");
}

void FTPSessionClass::DeleteLocalFile(const QString& name) {
  // Silent whatever happens: a download starts on a clean slate if it can.
  const std::shared_ptr<FolderItem> child = Deref(GetFolderItem(GetLocalDirectoryPathName()), "local folder").Child(name);
  if (child && child->Exists()) child->Delete();
}

// Data connection first, then TYPE, then the transfer.
void FTPSessionClass::ExecuteGetSingleFileSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineBlankForm(replyLine)) return;
  if (StepIs("START")) {
    ChooseDataMode(FirstSet);
  } else if (FirstDataLegSteps(replyLine, replyCode, "TYPE", "TYPE " + FTPTransferType, "Change transfer type.")) {
    return;
  } else if (StepIs("TYPE")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    NextFTPStep("GETFILE", "NOOP", "Get file ");
  } else if (StepIs("GETFILE")) {
    FetchNextFileStep(replyLine, replyCode);
  } else if (StepIs("RETR")) {
    RetrieveStep(replyLine, replyCode, {150, 125});
  } else if (StepIs("FILEEND")) {
    // The receiver is called untested, and the timer goes on running.
    if (DataHandedOver(replyLine, replyCode, "FILEEND", "Get file "))
      Deref(FTPStatusInstance, "FTPStatusInstance").Successful_FTP("File Transfer Complete.");
  } else {
    UnknownStepBranch();
  }
}

void FTPSessionClass::FetchNextFileStep(const QString& replyLine, qint32 replyCode) {
  if (replyCode != 200) return ErrorBranch(replyLine);
  const QString name = GetNextFileName();
  // Created and opened first, then any file of that name deleted: the file layer keeps
  // the one being written.
  Deref(DataSocket, "DataSocket").PutFileName(name);
  DeleteLocalFile(name);
  NextFTPStep("RETR", "RETR " + name, "Get file ");
}

void FTPSessionClass::RetrieveStep(const QString& replyLine, qint32 replyCode, std::initializer_list<qint32> waitCodes) {
  if (CodeIn(replyCode, waitCodes))
    Deref(DataSocket, "DataSocket").Poll();
  else if (replyCode == 226)
    NextFTPStep("FILEEND", "NOOP", "Get file ");
  else
    ErrorBranch(replyLine);
}

// TYPE first, then the data connection, then the transfer.
void FTPSessionClass::ExecutePutSingleFileSteps(const QString& replyLine, qint32 replyCode) {
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
  if (UploadDataLegSteps(replyLine, replyCode)) return;
  if (StepIs("STOR"))
    StoreStep(replyLine, replyCode);
  else
    UnknownStepBranch();
}

void FTPSessionClass::StoreStep(const QString& replyLine, qint32 replyCode) {
  if (CodeIn(replyCode, {150, 125}))
    Deref(DataSocket, "DataSocket").Poll();
  else
    QuietEndIf(CodeIn(replyCode, {226, 250}), replyLine, "File Transfer Complete.");
}

}  // namespace velmar
