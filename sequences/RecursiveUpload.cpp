// StartPutDir and PutDir: a local folder tree walked once into a script of entries
// (Files and Paths), then run entry by entry: "*name" enters (or makes) a folder, "*UP"
// leaves it, a plain name is a file to send.
#include "session/FTPSessionClass.h"

#include "data/FTPDataSocket.h"
#include "platform/EventLoop.h"
#include "platform/Exceptions.h"
#include "platform/FolderItem.h"
#include "platform/Strings.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPConnectionTimer.h"

#include <QFileInfo>

namespace velmar {

void FTPSessionClass::StartPutDir() {
  EnterConnecting("PutDir", "GETFILES", "Start Put Directory Sequence", [this] { Paths.clear(); });
}

void FTPSessionClass::PutDir() {
  EnterResident("PutDirImmediate", "GETFILES", "Start Put Directory Sequence", [this] { Paths.clear(); });
}

void FTPSessionClass::GetFiles(const QString& serverPrefix, const QString& localPath) {
  const std::shared_ptr<FolderItem> item = GetFolderItem(localPath);
  if (!item || !item->Exists()) {
    EndFTPSession("Cannot find this path: " + localPath);
    return;
  }
  if (item->Directory()) {
    Files.append("*" + item->Name());
    Paths.append("Ignore");
    // Count lists the folder afresh: ask once, not for every child.
    const int count = item->Count();
    for (int index = 1; index <= count; ++index) {
      const std::shared_ptr<FolderItem> child = item->Item(index);
      if (!child) continue;
      // A link to a folder could lead back up the tree: such links are not followed.
      if (child->Directory() && QFileInfo(child->AbsolutePath().chopped(1)).isSymLink()) continue;
      GetFiles(serverPrefix + item->Name() + FileDelimiter, child->AbsolutePath());
      Yield();
    }
    Files.append("*UP");
    Paths.append("Ignore");
  } else if (item->Length() != 0) {
    // Empty files are left out of the walk: they never reach the server.
    Files.append(item->Name());
    Paths.append(item->AbsolutePath());
  }
}

QString FTPSessionClass::CurrentPutDirEntry() { return At(Files, CurrentFileIndex); }

void FTPSessionClass::ExecutePutDirSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineHyphenForm(replyLine)) return;
  if (StepIs("GETFILES")) {
    // The greeting sets off the walk; the logon follows on a made-up 200.
    GetFiles(QString(), GetLocalDirectoryPathName());
    FileCount = GetFileCount();
    CurrentFileIndex = 1;
    NextFTPStep("CONNECT", "NOOP", "Connecting...");
    return;
  }
  switch (LogonPrefixSteps(replyLine, replyCode, {220, 200, 530}, {331, 230})) {
    case PrefixOutcome::LoggedOn:
      NextFTPStep("SERVERDIR", "CWD " + ServerDirectory, "Change directory to: " + ServerDirectory);
      return;
    case PrefixOutcome::Handled:
      return;
    case PrefixOutcome::NotAPrefixStep:
      break;
  }
  if (StepIs("SERVERDIR")) {
    if (replyCode == 250)
      NextFTPStep("TYPE", "TYPE " + FTPTransferType, "Change transfer type.");
    else if (replyCode == 550)
      NextFTPStep("MAKETOPDIR", "MKD " + ServerDirectory, "Create directory: " + ServerDirectory);
    else
      ErrorBranch(replyLine);
    return;
  }
  if (StepIs("MAKETOPDIR")) {
    if (replyCode != 257) return ErrorBranch(replyLine);
    NextFTPStep("SERVERDIR", "CWD " + ServerDirectory, "Change directory to: " + ServerDirectory);
    return;
  }
  if (StepIs("QUIT")) {
    QuitStep("Directory Transfer Complete.");
    return;
  }
  PutDirLoopSteps(replyLine, replyCode, false);
}

void FTPSessionClass::ExecutePutDirImmediateSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineHyphenForm(replyLine)) return;
  if (StepIs("GETFILES")) {
    // The session's current directory on the server is the top of the tree.
    GetFiles(QString(), GetLocalDirectoryPathName());
    FileCount = GetFileCount();
    CurrentFileIndex = 1;
    NextFTPStep("TYPE", "TYPE " + FTPTransferType, "Change transfer type.");
    return;
  }
  PutDirLoopSteps(replyLine, replyCode, true);
}

void FTPSessionClass::PutDirLoopSteps(const QString& replyLine, qint32 replyCode, bool resident) {
  if (StepIs("TYPE")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    NextFTPStep("LOOP", "NOOP", "Start of transfer loop.");
    return;
  }
  if (StepIs("LOOP")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    // Every entry pays for a data connection, folders and "*UP" included.
    ChooseDataMode(FirstSet);
    return;
  }
  switch (DataConnectionSteps(replyLine, replyCode, FirstSet, ListenKind::Late)) {
    case DataLeg::PassiveReady:
      // Connected later, in SENDFILE, and only for a plain file.
      PassivePort = CalculatePassivePort(replyLine);
      [[fallthrough]];
    case DataLeg::PortAccepted:
      NextFTPStep("SENDFILE", "NOOP", "Send file ");
      return;
    case DataLeg::Handled:
      return;
    case DataLeg::NotASubStep:
      break;
  }
  if (StepIs("SENDFILE")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    const QString entry = CurrentPutDirEntry();
    if (Same(entry, "*UP")) {
      NextFTPStep("UPDIR", "CDUP", "Going up one directory level.");
    } else if (Left(entry, 1) == "*") {
      const QString name = Mid(entry, 2);
      NextFTPStep("USERDIR", "CWD " + name, "Change directory to: " + name);
    } else {
      if (PassiveMode) {
        Deref(DataSocket, "DataSocket").PutFileName(entry);
        SetPassivePort(PassivePort);
      }
      NextFTPStep("STOR", "STOR " + entry, "Send file " + entry);
    }
    return;
  }
  if (StepIs("UPDIR")) {
    if (replyCode != 250) return ErrorBranch(replyLine);
    CurrentFileIndex += 1;
    NextFTPStep("NEXT", "NOOP", "Next file");
    return;
  }
  if (StepIs("USERDIR")) {
    const QString name = Mid(CurrentPutDirEntry(), 2);
    if (replyCode == 250) {
      CurrentFileIndex += 1;
      NextFTPStep("NEXT", "NOOP", "Next file");
    } else if (replyCode == 550) {
      NextFTPStep("MAKEDIR", "MKD " + name, "Create directory: ");
    } else {
      ErrorBranch(replyLine);
    }
    return;
  }
  if (StepIs("MAKEDIR")) {
    if (replyCode != 257) return ErrorBranch(replyLine);
    const QString name = Mid(CurrentPutDirEntry(), 2);
    NextFTPStep("USERDIR", "CWD " + name, "Change directory to: " + name);
    return;
  }
  if (StepIs("STOR")) {
    if (CodeIn(replyCode, {150, 125})) {
      Deref(DataSocket, "DataSocket").Poll();
    } else if (CodeIn(replyCode, {226, 250})) {
      CurrentFileIndex += 1;
      if (!PassiveMode) NextDataPort();
      NextFTPStep("NEXT", "NOOP", "Next File/Folder...");
    } else {
      ErrorBranch(replyLine);
    }
    return;
  }
  if (StepIs("NEXT")) {
    if (CurrentFileIndex <= FileCount)
      NextFTPStep("LOOP", "NOOP", "Top of transfer loop");
    else if (resident)
      QuietEnd("Directory Transfer Complete.");
    else
      NextFTPStep("QUIT", "QUIT", "FTP Session Complete.");
    return;
  }
  UnknownStepBranch();
}

}  // namespace velmar
