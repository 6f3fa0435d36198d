// StartDeleteDir (its own connection, then QUIT) and DeleteDir (on a logged-on session): a
// server tree emptied and removed bottom-up with DELE, CDUP and RMD, without any recursion
// on the server. A directory is listed, its files deleted from the last listed to the
// first, then its subdirectories entered from the last listed to the first; a directory
// with none left is left by CDUP and removed from its parent by RMD; the root goes last.
// The place of the walk is held by the server's PWD, CurrentWorkingDirectory and each
// DirList entry's cursor: no stack.
#include "session/FTPSessionClass.h"

#include "data/FTPDataSocket.h"
#include "listing/FTPDirectoryClass.h"
#include "platform/Exceptions.h"
#include "platform/MsgBox.h"
#include "platform/Strings.h"

namespace velmar {

void FTPSessionClass::SeedDeleteWalk() {
  DirList.clear();
  DirList.append(std::make_shared<FTPDirectoryClass>(DeleteDirectory, QString()));
  CurrentDirectoryIndex = 0;
}

// The root is named with a leading "/", while the first CWD sends ServerDirectory as it is.
void FTPSessionClass::StartDeleteDir() {
  EnterConnecting("DeleteDir", "CONNECT", "Start Delete Directory Sequence", [this] {
    DeleteDirectory = GetServerDirectoryPathName();
    if (!DeleteDirectory.startsWith(u'/')) DeleteDirectory.prepend(u'/');
    SeedDeleteWalk();
  });
}

// The root's name is taken even when no connection is up. Unlike every other resident entry,
// the first step comes last, after the timer and IgnoreCancel.
void FTPSessionClass::DeleteDir() {
  DeleteDirectory = GetServerDirectoryPathName();
  if (!SocketsActive()) return;
  FTPSessionType = QStringLiteral("DeleteDirImmediate");
  NT = false;
  SeedDeleteWalk();
  Buffer.clear();
  ResetConnectionTimer();
  IgnoreCancel = true;
  NextFTPStep("START", "NOOP", "Start Delete Directory Sequence");
}

void FTPSessionClass::ExecuteDeleteDirSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineHyphenForm(replyLine)) return;
  if (ConnectingTreeHeadSteps(replyLine, replyCode, "The directory has been deleted.")) {
    return;
  } else if (StepIs("CWD")) {
    if (replyCode != 250) return ErrorBranch(replyLine);
    NextFTPStep("PWD", "PWD", "Get working directory for ");
  } else {
    TreeDeleteSteps(replyLine, replyCode, false);
  }
}

// No arm for "CWD": the reply to the CWD into a subdirectory ends the operation in the
// unknown-step branch, so only a directory without subdirectories is removed whole.
void FTPSessionClass::ExecuteDeleteDirImmediateSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineHyphenForm(replyLine)) return;
  if (!ResidentTreeHeadSteps(replyLine, replyCode)) TreeDeleteSteps(replyLine, replyCode, true);
}

void FTPSessionClass::TreeDeleteSteps(const QString& replyLine, qint32 replyCode, bool resident) {
  // The first data leg resumes at "PORT": into the root by CWD, or, resident, where the
  // server already is.
  if (const DataLeg leg = TreeDataLeg(replyLine, replyCode, FirstSet, "PORT", ""); leg != DataLeg::NotASubStep) {
    if (leg != DataLeg::PortAccepted) return;
    if (resident) return NextFTPStep("PWD", "PWD", "Get working directory for ");
    const QString path = GetServerDirectoryPathName();
    NextFTPStep("CWD", "CWD " + path, "Change directory to: " + path);
    return;
  }
  // The leg into each subdirectory resumes at "NEXTPORT", which changes into it.
  if (const DataLeg leg = TreeDataLeg(replyLine, replyCode, NextSet, "NEXTPORT", "Connect to host-supplied port.");
      leg != DataLeg::NotASubStep) {
    if (leg == DataLeg::PortAccepted)
      NextFTPStep("CWD", "CWD " + CurrentWorkingDirectory, "Change directory to: " + CurrentWorkingDirectory);
    return;
  }
  if (ListDirectorySteps(replyLine, replyCode, "DELETEFILELOOP", false)) {
    return;
  } else if (StepIs("DELETEFILELOOP")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    DeleteNextTreeFileStep(resident);
  } else if (StepIs("DELETE")) {
    if (replyCode != 250) return ErrorBranch(replyLine);
    NextFTPStep("DELETEFILELOOP", "NOOP", "Next file");
  } else if (StepIs("NEXTSUBDIR")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    NextSubdirectoryToDeleteStep(resident);
  } else if (StepIs("PARENT")) {
    if (replyCode != 250) return ErrorBranch(replyLine);
    RemoveLeftDirectoryStep();
  } else if (StepIs("REMOVESUBDIR")) {
    if (replyCode != 250) return ErrorBranch(replyLine);
    NextFTPStep("PARENTPWD", "PWD", "Get working directory for ");
  } else if (StepIs("PARENTPWD")) {
    if (replyCode != 257) return ErrorBranch(replyLine);
    CurrentWorkingDirectory = NthField(replyLine, QStringLiteral("\""), 2);
    NextFTPStep("NEXTSUBDIR", "NOOP", "Next subdirectory.");
  } else if (StepIs("REMOVETOPDIR")) {
    if (replyCode != 250) return ErrorBranch(replyLine);
    if (resident)
      QuietEnd("The directory has been deleted.");
    else
      NextFTPStep("QUIT", "QUIT", "FTP Session Complete.");
  } else {
    UnknownStepBranch();
  }
}

// "DELETEFILELOOP" on 200: the last listed file of the directory the server is in. Where the
// walk cannot find that directory among its paths, the connecting walk tells the user and
// stands still (its timer ends it); the resident walk goes on to the subdirectories.
void FTPSessionClass::DeleteNextTreeFileStep(bool resident) {
  CurrentDirectoryIndex = GetCurrentDirectoryIndex(CurrentWorkingDirectory);
  if (CurrentDirectoryIndex < 0) {
    if (!resident) return MsgBox("oops " + CurrentWorkingDirectory);
    NextFTPStep("NEXTSUBDIR", "NOOP", "Next subdirectory.");
    return;
  }
  const std::shared_ptr<FTPDirectoryClass> directory = DirList[CurrentDirectoryIndex];
  if (directory->GetFileCount() < 0) {
    NextFTPStep("NEXTSUBDIR", "NOOP", "Next subdirectory.");
    return;
  }
  const QString path = CurrentWorkingDirectory + "/" + directory->GetNextFileName();
  NextFTPStep("DELETE", "DELE " + path, "Delete: " + path);
  // Off the list once sent, before the server has answered.
  directory->DeleteFile(directory->GetNextFileName());
}

// "NEXTSUBDIR" on 200: into the next subdirectory on a data connection of its own, or up
// with CDUP when none is left. In active mode the port is set and listened on here, and
// once more by the leg's PORT step.
void FTPSessionClass::NextSubdirectoryToDeleteStep(bool resident) {
  CurrentDirectoryIndex = GetCurrentDirectoryIndex(CurrentWorkingDirectory);
  QString next;
  if (CurrentDirectoryIndex >= 0)
    next = DirList[CurrentDirectoryIndex]->GetNextSubDirectoryName();
  else if (!resident)
    MsgBox("oops " + CurrentWorkingDirectory);
  if (next.isEmpty()) {
    NextFTPStep("PARENT", "CDUP", "Handle parent directory ");
    return;
  }
  CurrentWorkingDirectory = next;
  CurrentDirectoryIndex = GetCurrentDirectoryIndex(next);
  if (!PassiveMode) {
    NextDataPort();
    Deref(DataSocket, "DataSocket").Port = DataPort;
    DataSocket->Listen();
  }
  ChooseDataMode(NextSet);
}

// "PARENT" on 250: the server is in the parent, CurrentWorkingDirectory still names the
// directory that was left. Its entry leaves DirList and it is removed with RMD; when DirList
// has run empty, it was the root.
void FTPSessionClass::RemoveLeftDirectoryStep() {
  QString left;
  CurrentDirectoryIndex = GetCurrentDirectoryIndex(CurrentWorkingDirectory);
  if (CurrentDirectoryIndex >= 0) {
    left = DirList[CurrentDirectoryIndex]->GetName();
    // The name is the full path, so this finds nothing and the index stays: kept as it is.
    CurrentDirectoryIndex = GetCurrentDirectoryIndex(Replace(CurrentWorkingDirectory, "/" + left, QString()));
    DirList.removeAt(GetCurrentDirectoryIndex(left));
  } else {
    MsgBox("oops " + CurrentWorkingDirectory);
  }
  if (DirList.isEmpty()) {
    NextFTPStep("REMOVETOPDIR", "RMD " + CurrentWorkingDirectory, "Deleting " + CurrentWorkingDirectory);
    return;
  }
  // The last entry need not be the parent; then nothing is found, and the walk is not
  // disturbed, since the parent's cursor has already moved past this directory.
  CurrentDirectoryIndex = static_cast<qint32>(DirList.size() - 1);
  DirList.last()->DeleteSubDirectory(left);
  NextFTPStep("REMOVESUBDIR", "RMD " + left, "Deleting " + left);
}

}  // namespace velmar
