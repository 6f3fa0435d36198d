// StartGetFile: its own connection and logon, every name of Files from one server
// directory into the local folder, each on a data connection and TYPE of its own, then QUIT.
// The last name added is fetched first.
#include "session/FTPSessionClass.h"

#include "data/FTPDataSocket.h"
#include "platform/Exceptions.h"

namespace velmar {

void FTPSessionClass::StartGetFile() { EnterConnecting("GetFile", "CONNECT", "Start Get File Sequence"); }

// Blank form, unlike its sister the upload batch. The status text never names the file.
void FTPSessionClass::ExecuteGetFileSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineBlankForm(replyLine)) return;
  const bool head = LogonThenDirectorySteps(replyLine, replyCode, GetServerDirectoryPathName(),
                                           [this] { NextFTPStep("LOOP", "NOOP", QString()); });
  if (head || BatchRoundSteps(replyLine, replyCode, "GETFILE", "Get file ")) {
    return;
  } else if (StepIs("GETFILE")) {
    FetchNextFileStep(replyLine, replyCode);
  } else if (StepIs("RETR")) {
    RetrieveStep(replyLine, replyCode, {150, 125});
  } else if (StepIs("FILEEND")) {
    if (DataHandedOver(replyLine, replyCode, "FILEEND", "Get file ")) NextRoundOrQuit();
  } else if (StepIs("QUIT")) {
    QuitStep("File Transfer Complete.");
  } else {
    UnknownStepBranch();
  }
}

}  // namespace velmar
