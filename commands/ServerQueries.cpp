// GetStatus (STAT), GetSystemInfo (SYST), SITECommand and DirectCommand on a logged-on
// session. They tell success or failure only: the server's text reaches the caller line by
// line as responses, before the machine sees each line.
#include "session/FTPSessionClass.h"

#include "data/FTPDataSocket.h"
#include "platform/Exceptions.h"
#include "platform/Strings.h"

namespace velmar {

void FTPSessionClass::GetStatus() { EnterResident("GetStatus", "START", "Send Get Status Command"); }

void FTPSessionClass::GetSystemInfo() { EnterResident("GetSystemInfo", "START", "Send Get System Info Command"); }

void FTPSessionClass::SITECommand(const QString& command) {
  EnterResident("SITECommand", "START", "Send FTP SITE command " + command,
                [this, command] { DirectCommandText = command; });
}

void FTPSessionClass::DirectCommand(const QString& command) {
  EnterResident("DirectCommand", "START", "Send FTP Direct Command " + command,
                [this, command] { DirectCommandText = command; });
}

// Neither STAT nor SYST moves data, yet both first agree on a data connection that is
// never read; it stays connected or listening when the query ends.
void FTPSessionClass::ServerQuerySteps(const QString& replyLine, qint32 replyCode, const char* queryStep,
                                       const char* command, const char* statusText, qint32 acceptedCode) {
  if (!FinalLineHyphenForm(replyLine)) return;
  if (StepIs("START")) {
    ChooseDataMode(FirstSet);
    return;
  }
  if (FirstDataLegSteps(replyLine, replyCode, "NEXT", "NOOP", "NOOP")) return;
  if (StepIs("NEXT")) {
    if (replyCode != 200) return ErrorBranch(replyLine);
    NextFTPStep(queryStep, command, statusText);
  } else if (StepIs(queryStep)) {
    if (CodeIn(replyCode, {150, 125}))
      Deref(DataSocket, "DataSocket").Poll();
    else
      QuietEndIf(replyCode == acceptedCode, replyLine, "System information received.");
  } else {
    UnknownStepBranch();
  }
}

void FTPSessionClass::ExecuteStatusSteps(const QString& replyLine, qint32 replyCode) {
  ServerQuerySteps(replyLine, replyCode, "STATUS", "STAT", "Get System Status", 211);
}

void FTPSessionClass::ExecuteSystemInfoSteps(const QString& replyLine, qint32 replyCode) {
  ServerQuerySteps(replyLine, replyCode, "SYSTEM", "SYST", "Get system information.", 215);
}

// Only 200 counts; the success text has no full stop.
void FTPSessionClass::ExecuteSITESteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineBlankForm(replyLine)) return;
  if (StepIs("START")) {
    NextFTPStep("DONE", "SITE " + DirectCommandText, DirectCommandText);
  } else if (StepIs("DONE")) {
    QuietEndIf(replyCode == 200, replyLine, "FTP SITE command complete");
  } else {
    UnknownStepBranch();
  }
}

// The one machine that accepts a class of codes: any code whose decimal text begins with
// "2". A 1xx or 3xx answer ends it, so a command that needs a second exchange cannot be
// driven from here. The text goes through NextFTPStep unchanged, so "NOOP" is answered
// locally and "FORCENOOP" sends a real NOOP.
void FTPSessionClass::ExecuteDirectCommandSteps(const QString& replyLine, qint32 replyCode) {
  if (!FinalLineBlankForm(replyLine)) return;
  if (StepIs("START")) {
    NextFTPStep("DONE", DirectCommandText, DirectCommandText);
  } else if (StepIs("Done")) {
    QuietEndIf(Left(Str(replyCode), 1) == QStringLiteral("2"), replyLine, "FTP Direct Command complete");
  } else {
    UnknownStepBranch();
  }
}

}  // namespace velmar
