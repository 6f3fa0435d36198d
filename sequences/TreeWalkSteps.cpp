// The steps that the tree walks (recursive download and recursive delete) share: the head of
// the connecting and of the resident machines, the data legs that resume by NOOP, and the
// look into a directory (PWD, then LIST -a). Each walk keeps its own rows after that.
#include "session/FTPSessionClass.h"

#include "data/FTPDataSocket.h"
#include "platform/Exceptions.h"
#include "platform/Strings.h"

#include <utility>

namespace velmar {

bool FTPSessionClass::ConnectingTreeHeadSteps(const QString& replyLine, qint32 replyCode, const char* quitMessage) {
  switch (LogonPrefixSteps(replyLine, replyCode, {220, 530}, {331, 230})) {
    case PrefixOutcome::LoggedOn:
      NextFTPStep("TYPE", "TYPE A", "Change transfer type to ASCII.");
      return true;
    case PrefixOutcome::Handled:
      return true;
    case PrefixOutcome::NotAPrefixStep:
      break;
  }
  if (StepIs("TYPE")) {
    if (replyCode != 200)
      ErrorBranch(replyLine);
    else
      ChooseDataMode(FirstSet);
    return true;
  }
  if (StepIs("QUIT")) {
    QuitStep(QString::fromLatin1(quitMessage));
    return true;
  }
  return false;
}

// No type is set: the first listing runs under whatever type the session has.
bool FTPSessionClass::ResidentTreeHeadSteps(const QString& replyLine, qint32 replyCode) {
  if (!StepIs("START")) return false;
  if (replyCode != 200)
    ErrorBranch(replyLine);
  else
    ChooseDataMode(FirstSet);
  return true;
}

FTPSessionClass::DataLeg FTPSessionClass::TreeDataLeg(const QString& replyLine, qint32 replyCode, const DataModeSet& set,
                                                      const char* resumeStep, const char* resumeStatus) {
  const DataLeg leg = DataConnectionSteps(replyLine, replyCode, set, ListenKind::Early);
  if (leg != DataLeg::PassiveReady) return leg;
  CalcSetPassivePort(replyLine);
  NextFTPStep(QString::fromLatin1(resumeStep), QStringLiteral("NOOP"), QString::fromLatin1(resumeStatus));
  return DataLeg::Handled;
}

bool FTPSessionClass::ListDirectorySteps(const QString& replyLine, qint32 replyCode, const char* afterListing,
                                         bool nextPortAfterListing) {
  if (StepIs("PWD")) {
    stepAfterListing_.clear();
    if (replyCode != 257) {
      ErrorBranch(replyLine);
    } else {
      Deref(DataSocket, "DataSocket").SetFileList();
      CurrentWorkingDirectory = NthField(replyLine, QStringLiteral("\""), 2);
      NextFTPStep("LIST", "LIST -a", "Get full directory list for " + CurrentWorkingDirectory);
    }
    return true;
  }
  if (!StepIs("LIST")) return false;
  // What has arrived is taken in, at 150 and at 226. The listing is filed at its connection's
  // close, which some servers (vsftpd in active mode) let come after their 226, even after the
  // reply to a NOOP: the walk then goes on from that close, so that it never acts on a listing
  // not yet filed. A close that never comes ends the session by its timer.
  if (CodeIn(replyCode, {150, 125})) {
    Deref(DataSocket, "DataSocket").Poll();
  } else if (replyCode == 226) {
    Deref(DataSocket, "DataSocket").Poll();
    if (nextPortAfterListing && !PassiveMode) NextDataPort();
    stepAfterListing_ = QString::fromLatin1(afterListing);
    // The Poll may have delivered the listing connection's failure, which ended the session
    // and, in the connecting walks, released the data socket: then the walk stops here.
    if (DataSocket && !DataSocket->IsConnected()) ListingTakenIn();
  } else {
    ErrorBranch(replyLine);
  }
  return true;
}

void FTPSessionClass::ListingTakenIn() {
  if (stepAfterListing_.isEmpty() || !StepIs("LIST")) return;
  NextFTPStep(std::exchange(stepAfterListing_, QString()), QStringLiteral("NOOP"), QStringLiteral("NOOP"));
}

}  // namespace velmar
