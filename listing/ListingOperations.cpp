// StartGetDirList (its own connection, then QUIT) and GetDirList (on a logged-on session):
// the text of one server directory into DirectoryFileList, unparsed. Around the listing
// command the two machines take the same steps; they differ in their head and their end.
#include "session/FTPSessionClass.h"

#include "data/FTPDataSocket.h"
#include "platform/Exceptions.h"
#include "platform/Strings.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPConnectionTimer.h"
#include "session/FTPStatusClass.h"

namespace velmar {

void FTPSessionClass::StartGetDirList() {
  EnterConnecting("GetDirList", "CONNECT", "Start Get Directory List Sequence", [this] {
    DirectoryFileList.clear();
    Buffer.clear();
    CurrentDirectoryIndex = 0;
  });
}

void FTPSessionClass::GetDirList() {
  EnterResident("GetDirListImmediate", "START", "Send Get Directory List Command", [this] { DirectoryFileList.clear(); });
}

QString FTPSessionClass::ListingCommand() const {
  const QString command = UseNameList ? QStringLiteral("NLST") : QStringLiteral("LIST");
  return ShowInvisible ? command + QStringLiteral(" -a") : command;
}

bool FTPSessionClass::ListingSteps(const QString& replyLine, qint32 replyCode) {
  if (FirstDataLegSteps(replyLine, replyCode, "NEXT", "NOOP", "NOOP")) return true;
  if (StepIs("NEXT")) {
    if (replyCode != 200)
      ErrorBranch(replyLine);
    else
      NextFTPStep("PWD", "PWD", "Get working directory for ");
  } else if (StepIs("PWD")) {
    if (replyCode != 257) {
      ErrorBranch(replyLine);
    } else {
      // The path between the first two double quotes; empty when there are none.
      CurrentWorkingDirectory = NthField(replyLine, QStringLiteral("\""), 2);
      NextFTPStep("LIST", ListingCommand(), "Get full directory list for " + CurrentWorkingDirectory);
    }
  } else if (StepIs("LIST")) {
    if (CodeIn(replyCode, {150, 125}))
      Deref(DataSocket, "DataSocket").Poll();
    else if (replyCode == 226)
      NextFTPStep("LISTEND", "NOOP", "Get full directory list for " + CurrentWorkingDirectory);
    else
      ErrorBranch(replyLine);
  } else {
    return false;
  }
  return true;
}

// The type for listings is always ASCII here, whatever FTPTransferType says.
void FTPSessionClass::ExecuteGetDirListSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineHyphenForm(replyLine)) return;
  const bool head = LogonThenDirectorySteps(replyLine, replyCode, GetServerDirectoryPathName(),
                                           [this] { NextFTPStep("TYPE", "TYPE A", "Change transfer type to ASCII."); });
  if (head) {
    return;
  } else if (StepIs("TYPE")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    ChooseDataMode(FirstSet);
  } else if (ListingSteps(replyLine, replyCode)) {
    return;
  } else if (StepIs("LISTEND")) {
    if (DataHandedOver(replyLine, replyCode, "LISTEND", "Get full directory list for " + CurrentWorkingDirectory))
      NextFTPStep("QUIT", "QUIT", "FTP Session Complete.");
  } else if (StepIs("QUIT")) {
    // Whatever the answer to QUIT.
    if (ConnectionTimer) ConnectionTimer->SetMode(0);
    QuitStep("The file list has been transferred.");
  } else {
    UnknownStepBranch();
  }
}

// The directory the server is in, in the type the session has; the receiver is called
// untested and the timer keeps running at the end.
void FTPSessionClass::ExecuteGetDirListImmediateSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineHyphenForm(replyLine)) return;
  if (StepIs("START")) {
    ChooseDataMode(FirstSet);
  } else if (ListingSteps(replyLine, replyCode)) {
    return;
  } else if (StepIs("LISTEND")) {
    if (DataHandedOver(replyLine, replyCode, "LISTEND", "Get full directory list for " + CurrentWorkingDirectory))
      Deref(FTPStatusInstance, "FTPStatusInstance").Successful_FTP("The file list has been transferred.");
  } else {
    UnknownStepBranch();
  }
}

}  // namespace velmar
