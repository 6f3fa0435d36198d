// StartGetDir (its own connection, then QUIT) and GetDir (on a logged-on session): a whole
// server tree into a local folder. Depth first: a directory is listed, its files fetched
// from the last listed to the first, then its subdirectories entered from the last listed to
// the first, each with its whole subtree, and left by CDUP. The place of the walk is held by
// CurrentWorkingDirectory (from the server's PWD), LocalDirectory, and each DirList entry's
// files and subdirectory cursor: no stack. A data connection is agreed on before every look,
// also when no file turns out to be due.
#include "session/FTPSessionClass.h"

#include "data/FTPDataSocket.h"
#include "listing/FTPDirectoryClass.h"
#include "platform/Exceptions.h"
#include "platform/FolderItem.h"
#include "platform/MsgBox.h"
#include "platform/Strings.h"
#include "session/FTPConnectionTimer.h"
#include "session/FTPStatusClass.h"

namespace velmar {

namespace {

std::shared_ptr<FTPDirectoryClass> RootOfWalk(const QString& path) {
  return std::make_shared<FTPDirectoryClass>(path, QString());
}

}  // namespace

void FTPSessionClass::StartGetDir() {
  // Its own order: the first step right after the session type, the walk's root before the
  // timer is armed.
  FTPSessionType = QStringLiteral("GetDir");
  NextFTPStep(QStringLiteral("CONNECT"), QString(), QStringLiteral("Start Get Directory Sequence"));
  Buffer.clear();
  NT = false;
  IgnoreCancel = false;
  CurrentDirectoryIndex = -1;
  DirList.clear();
  DirList.append(RootOfWalk(ServerDirectory));
  CurrentDirectoryIndex = 0;
  ResetConnectionTimer();
  CreateSockets();
  ConnectCommandSocket();
}

// The first step is stored as "Start": it is the machine's "START", as steps compare
// ignoring case.
void FTPSessionClass::GetDir() {
  EnterResident("GetDirImmediate", "Start", "Start Get Directory Sequence", [this] {
    DirList.clear();
    DirList.append(RootOfWalk(ServerDirectory));
    CurrentDirectoryIndex = 0;
  });
}

void FTPSessionClass::ExecuteGetDirSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineHyphenForm(replyLine)) return;
  if (!ConnectingTreeHeadSteps(replyLine, replyCode, "Directory Transfer Complete.")) TreeDownloadSteps(replyLine, replyCode, false);
}

void FTPSessionClass::ExecuteGetDirImmediateSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineHyphenForm(replyLine)) return;
  if (!ResidentTreeHeadSteps(replyLine, replyCode)) TreeDownloadSteps(replyLine, replyCode, true);
}

// Makes the local folder named by the last field of a server path inside LocalDirectory
// and goes down into it. A name that cannot be a folder (a root of "/") leaves
// LocalDirectory as it was, so that the files land in the parent's folder.
void FTPSessionClass::EnterLocalFolderOf(const QString& serverPath) {
  const std::shared_ptr<FolderItem> folder =
      Deref(GetFolderItem(LocalDirectory), "local folder").Child(GetFileFromPath(serverPath));
  if (!folder) return;
  folder->CreateAsFolder();  // an existing folder is used as it is
  LocalDirectory = GetDirFromPath(folder->AbsolutePath());
}

// Where a connecting walk cannot find the server's directory among the paths it built, it
// tells the user; the resident walk goes on silently.
void FTPSessionClass::PathNotFound(const char* step, bool resident) {
  if (!resident) MsgBox(QString::fromLatin1(step) + QStringLiteral(" oops ") + CurrentWorkingDirectory);
}

void FTPSessionClass::TreeDownloadSteps(const QString& replyLine, qint32 replyCode, bool resident) {
  // The first data leg resumes at "PORT": the root's local folder, then into the root.
  if (const DataLeg leg = TreeDataLeg(replyLine, replyCode, FirstSet, "PORT", ""); leg != DataLeg::NotASubStep) {
    if (leg != DataLeg::PortAccepted) return;
    const QString serverPath = GetServerDirectoryPathName();
    EnterLocalFolderOf(serverPath);
    NextFTPStep("CWD", "CWD " + serverPath, "Change directory to: " + serverPath);
    return;
  }
  // The leg before each file resumes at "NEXTPORT".
  if (const DataLeg leg = TreeDataLeg(replyLine, replyCode, NextSet, "NEXTPORT", "Connect to host-supplied port.");
      leg != DataLeg::NotASubStep) {
    if (leg == DataLeg::PortAccepted) NextFileStep(resident);
    return;
  }
  // The leg into a subdirectory resumes at "NEXTSUBPORT".
  if (const DataLeg leg = TreeDataLeg(replyLine, replyCode, SubdirectorySet, "NEXTSUBPORT",
                                      "Handle Subdirectory Connect to host-supplied port.");
      leg != DataLeg::NotASubStep) {
    if (leg == DataLeg::PortAccepted)
      NextFTPStep("CWD", "CWD " + CurrentWorkingDirectory,
                  "Handle Subdirectory Change directory to: " + CurrentWorkingDirectory);
    return;
  }
  if (StepIs("CWD")) {
    if (replyCode != 250) return ErrorBranch(replyLine);
    NextFTPStep("PWD", "PWD", "Get working directory for ");
  } else if (ListDirectorySteps(replyLine, replyCode, "GETFILELOOP", true)) {
    return;
  } else if (StepIs("GETFILELOOP")) {
    // Never undone: later listings of the walk run under this type.
    if (replyCode != 200) return ErrorBranch(replyLine);
    NextFTPStep("NEXTTYPE", "TYPE " + FTPTransferType, "Handle File Loop Change transfer type.");
  } else if (StepIs("NEXTTYPE")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    ChooseDataMode(NextSet);
  } else if (StepIs("GETFILE")) {
    RetrieveStep(replyLine, replyCode, {150, 125});
  } else if (StepIs("FILEEND")) {
    if (!DataHandedOver(replyLine, replyCode, "FILEEND", "Get file ")) return;
    if (Deref(At(DirList, CurrentDirectoryIndex), "DirList entry").GetFileCount() >= 0) {
      if (!PassiveMode) NextDataPort();
      NextFTPStep("GETFILELOOP", "NOOP", "Next file");
    } else {
      NextFTPStep("NEXTSUBDIR", "NOOP", "Next subdirectory.");
    }
  } else if (StepIs("NEXTSUBDIR")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    NextSubdirectoryStep(resident);
  } else if (StepIs("PARENT")) {
    if (replyCode != 250) return ErrorBranch(replyLine);
    LeaveDirectoryStep(resident);
  } else if (StepIs("PARENTPWD")) {
    if (replyCode != 257) return ErrorBranch(replyLine);
    CurrentWorkingDirectory = NthField(replyLine, QStringLiteral("\""), 2);
    LocalDirectory = UpOneLocalDirectory(LocalDirectory);
    NextFTPStep("NEXTSUBDIR", "NOOP", "Handle parent directory Next subdirectory.");
  } else {
    UnknownStepBranch();
  }
}

// "NEXTPORT" on 200: the next file of the directory the server is in, if one is due.
void FTPSessionClass::NextFileStep(bool resident) {
  CurrentDirectoryIndex = GetCurrentDirectoryIndex(CurrentWorkingDirectory);
  QString name;
  if (CurrentDirectoryIndex >= 0) {
    name = DirList[CurrentDirectoryIndex]->GetNextFileName();
  } else if (!resident) {
    // The connecting walk goes on to the next subdirectory here and, once that nested run
    // has returned, a second time below, as with an empty name.
    PathNotFound("NEXTPORT", resident);
    NextFTPStep("NEXTSUBDIR", "NOOP", "Next subdirectory.");
  }
  if (name.isEmpty()) {
    // The data connection agreed on for a file that is not due is let go of here: a server
    // may reset it when the next PASV comes (vsftpd does), and that reset would otherwise
    // end the walk as a failed download.
    Deref(DataSocket, "DataSocket").Close();
    NextFTPStep("NEXTSUBDIR", "NOOP", "Next subdirectory.");
    return;
  }
  // The server is given the full path, the local file the bare name.
  const QString path = CurrentWorkingDirectory + "/" + name;
  Deref(DataSocket, "DataSocket").PutFileName(name);
  DirList[CurrentDirectoryIndex]->DeleteFile(name);
  NextFTPStep("GETFILE", "RETR " + path, "Get file " + path);
}

// "NEXTSUBDIR" on 200: into the next subdirectory, or up with CDUP when none is left.
void FTPSessionClass::NextSubdirectoryStep(bool resident) {
  CurrentDirectoryIndex = GetCurrentDirectoryIndex(CurrentWorkingDirectory);
  QString next;
  if (CurrentDirectoryIndex >= 0)
    next = DirList[CurrentDirectoryIndex]->GetNextSubDirectoryName();
  else
    PathNotFound("NEXTSUBDIR", resident);
  if (next.isEmpty()) {
    NextFTPStep("PARENT", "CDUP", "Handle Subdirectory Handle parent directory ");
    return;
  }
  CurrentWorkingDirectory = next;
  CurrentDirectoryIndex = GetCurrentDirectoryIndex(next);
  EnterLocalFolderOf(next);
  if (!PassiveMode) NextDataPort();
  ChooseDataMode(SubdirectorySet);
}

// "PARENT" on 250: the finished directory leaves DirList; the walk ends with the root.
void FTPSessionClass::LeaveDirectoryStep(bool resident) {
  CurrentDirectoryIndex = GetCurrentDirectoryIndex(CurrentWorkingDirectory);
  if (CurrentDirectoryIndex >= 0) {
    const QString finished = DirList[CurrentDirectoryIndex]->GetName();
    // The name is the full path, so this finds nothing and the index stays: kept as it is.
    const QString parentPath = Replace(CurrentWorkingDirectory, "/" + finished, QString());
    CurrentDirectoryIndex = GetCurrentDirectoryIndex(parentPath);
    DirList.removeAt(GetCurrentDirectoryIndex(finished));
  } else {
    PathNotFound("PARENT", resident);
  }
  if (!DirList.isEmpty()) {
    NextFTPStep("PARENTPWD", "PWD", "Handle parent directory Get working directory for ");
  } else if (!resident) {
    NextFTPStep("QUIT", "QUIT", "FTP Session Complete.");
  } else {
    QuietEnd("Directory Transfer Complete.");
  }
}

}  // namespace velmar
