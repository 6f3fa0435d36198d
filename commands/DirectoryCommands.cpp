// ChangeDir, ParentDir, MakeDir, RemoveDir and GetWorkingDir: one command and one reply
// on a logged-on session, which stays logged on however the reply goes. The directory is
// the one stored with SetServerDirectoryPathName, sent as it stands. None of them reads
// or writes CurrentWorkingDirectory.
#include "session/FTPSessionClass.h"

namespace velmar {

void FTPSessionClass::ChangeDir() { EnterResident("ChangeDir", "START", "Send Change Directory Command"); }

// The same text as ChangeDir.
void FTPSessionClass::ParentDir() { EnterResident("ParentDir", "START", "Send Change Directory Command"); }

void FTPSessionClass::MakeDir() { EnterResident("MakeDir", "START", "Send Make Directory Command"); }

void FTPSessionClass::RemoveDir() {
  EnterResident("RemoveDir", "START", "Send Remove Directory Command", {}, "NOOP", /*ignoreCancelFirst=*/true);
}

void FTPSessionClass::GetWorkingDir() {
  EnterResident("GetWorkingDir", "START", "Send Print Working Directory Command");
}

// Only 250 counts, as for every directory change.
void FTPSessionClass::ExecuteChangeDirSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineBlankForm(replyLine)) return;
  if (StepIs("START")) {
    const QString path = GetServerDirectoryPathName();
    NextFTPStep("CWD", "CWD " + path, "Change directory to: " + path);
  } else if (StepIs("CWD")) {
    QuietEndIf(replyCode == 250, replyLine, "Directory Change Complete.");
  } else {
    UnknownStepBranch();
  }
}

// A server that answers CDUP with 200 ends in the error branch: only 250 counts.
void FTPSessionClass::ExecuteParentDirSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineBlankForm(replyLine)) return;
  if (StepIs("START")) {
    NextFTPStep("CDUP", "CDUP", "Changing to parent directory.");
  } else if (StepIs("CDUP")) {
    QuietEndIf(replyCode == 250, replyLine, "Directory Change Complete.");
  } else {
    UnknownStepBranch();
  }
}

// The path that the 257 line quotes is not read.
void FTPSessionClass::ExecuteMakeDirSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineBlankForm(replyLine)) return;
  if (StepIs("START")) {
    const QString path = GetServerDirectoryPathName();
    NextFTPStep("MKD", "MKD " + path, "Create directory: " + path);
  } else if (StepIs("MKD")) {
    QuietEndIf(replyCode == 257, replyLine, "Directory Created.");
  } else {
    UnknownStepBranch();
  }
}

// One empty directory; a server's refusal of a directory with files in it is an error.
void FTPSessionClass::ExecuteRemoveDirSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineBlankForm(replyLine)) return;
  if (StepIs("START")) {
    const QString path = GetServerDirectoryPathName();
    NextFTPStep("RMD", "RMD " + path, "Delete: " + path);
  } else if (StepIs("RMD")) {
    QuietEndIf(replyCode == 250, replyLine, "Empty Directory Removed.");
  } else {
    UnknownStepBranch();
  }
}

// Hyphen form. The status text is left open on purpose, and the 257 line reaches the
// caller only as the raw response: nothing is parsed or stored.
void FTPSessionClass::ExecuteGetWorkingDirSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineHyphenForm(replyLine)) return;
  if (StepIs("START")) {
    NextFTPStep("PWD", "PWD", "Get working directory for ");
  } else if (StepIs("PWD")) {
    QuietEndIf(replyCode == 257, replyLine, "The working directory has been transferred.");
  } else {
    UnknownStepBranch();
  }
}

}  // namespace velmar
