// How a machine agrees on a data connection: the port helpers, and the sub-sequence of
// steps (passive leg, active leg) that each machine runs under its own step names.
#include "session/FTPSessionClass.h"

#include "data/FTPDataSocket.h"
#include "platform/Exceptions.h"
#include "platform/Strings.h"
#include "session/FTPCommandSocket.h"

#include <QRandomGenerator>

namespace velmar {

const FTPSessionClass::DataModeSet FTPSessionClass::FirstSet = {
    "PASV", "NOTPASV", "PORT", "Passive Mode", "", "Set data port to: "};
const FTPSessionClass::DataModeSet FTPSessionClass::NextSet = {
    "NEXTPASV", "NEXTNOTPASV", "NEXTPORT", "Passive Mode", "Active Mode", "Set data port to: "};
const FTPSessionClass::DataModeSet FTPSessionClass::SubdirectorySet = {
    "NEXTSUBPASV",
    "NEXTSUBNOTPASV",
    "NEXTSUBPORT",
    "Handle Subdirectory Passive Mode",
    "Handle Subdirectory Active Mode",
    "Handle Subdirectory Set data port to: "};

// ---- Ports ------------------------------------------------------------------------

void FTPSessionClass::SetDataPortRange(qint32 start, qint32 end) {
  DataPortStart = start;
  DataPortEnd = end;
  // Nothing is checked: a reversed range draws between the two all the same.
  DataPort = DataPortStart +
             static_cast<qint32>(QRandomGenerator::global()->generateDouble() * (qint64(DataPortEnd) - DataPortStart));
}

void FTPSessionClass::NextDataPort() {
  DataPort += 1;
  if (DataPort > DataPortEnd) DataPort = DataPortStart;
}

QString FTPSessionClass::BuildPortString() {
  const QString local = CommandSocket ? CommandSocket->LocalAddress() : QString();
  return ReplaceAll(local, QStringLiteral("."), QStringLiteral(",")) + QStringLiteral(",") +
         QString::number(DataPort / 256) + QStringLiteral(",") + QString::number(DataPort % 256);
}

qint32 FTPSessionClass::CalculatePassivePort(const QString& line) {
  // The four address fields are never read: the data connection goes to the host of the
  // control connection.
  const QString inParentheses = NthField(NthField(line, QStringLiteral("("), 2), QStringLiteral(")"), 1);
  const qint64 p1 = ToInt32(Val(NthField(inParentheses, QStringLiteral(","), 5)));
  const qint64 p2 = ToInt32(Val(NthField(inParentheses, QStringLiteral(","), 6)));
  return static_cast<qint32>(static_cast<quint32>(p1 * 256 + p2));
}

void FTPSessionClass::CalcSetPassivePort(const QString& line) { SetPassivePort(CalculatePassivePort(line)); }

void FTPSessionClass::SetPassivePort(qint32 port) {
  FTPDataSocket& data = Deref(DataSocket, "DataSocket");
  data.Port = port;
  data.Address = Deref(CommandSocket, "CommandSocket").Address;
  data.Connect();
}

// ---- The sub-sequence -------------------------------------------------------------

void FTPSessionClass::ChooseDataMode(const DataModeSet& set) {
  if (PassiveMode)
    NextFTPStep(QString::fromLatin1(set.passiveStep), QStringLiteral("PASV"), QString::fromLatin1(set.passiveStatus));
  else
    NextFTPStep(QString::fromLatin1(set.activeStep), QStringLiteral("NOOP"), QString::fromLatin1(set.activeStatus));
}

FTPSessionClass::DataLeg FTPSessionClass::DataConnectionSteps(const QString& replyLine, qint32 replyCode,
                                                              const DataModeSet& set, ListenKind listen) {
  if (StepIs(set.passiveStep)) {
    if (replyCode != 227) {
      ErrorBranch(replyLine);
      return DataLeg::Handled;
    }
    return DataLeg::PassiveReady;
  }
  if (StepIs(set.activeStep)) {
    if (replyCode != 200) {
      ErrorBranch(replyLine);
      return DataLeg::Handled;
    }
    NextFTPStep(QString::fromLatin1(set.portStep), QStringLiteral("PORT ") + BuildPortString(),
                QString::fromLatin1(set.portStatus) + QString::number(DataPort));
    if (listen == ListenKind::Early) {
      Deref(DataSocket, "DataSocket").Port = DataPort;
      DataSocket->Listen();
    }
    return DataLeg::Handled;
  }
  if (StepIs(set.portStep)) {
    if (replyCode != 200) {
      ErrorBranch(replyLine);
      return DataLeg::Handled;
    }
    if (listen != ListenKind::Early) Deref(DataSocket, "DataSocket").Port = DataPort;
    if (listen == ListenKind::Late) DataSocket->Listen();
    return DataLeg::PortAccepted;
  }
  return DataLeg::NotASubStep;
}

bool FTPSessionClass::UploadDataLegSteps(const QString& replyLine, qint32 replyCode) {
  return UploadDataLegSteps(replyLine, replyCode, ListenKind::Never, [this](const QString& name) {
    NextFTPStep(QStringLiteral("STOR"), QStringLiteral("STOR ") + name, QStringLiteral("Send file ") + name);
  });
}

bool FTPSessionClass::UploadDataLegSteps(const QString& replyLine, qint32 replyCode, ListenKind listen,
                                         const std::function<void(const QString& name)>& resume) {
  const DataLeg leg = DataConnectionSteps(replyLine, replyCode, FirstSet, ListenKind::Never);
  if (leg == DataLeg::NotASubStep) return false;
  if (leg == DataLeg::Handled) return true;
  const QString name = GetNextFileName();
  Deref(DataSocket, "DataSocket").PutFileName(name);
  if (leg == DataLeg::PassiveReady) CalcSetPassivePort(replyLine);
  if (leg == DataLeg::PortAccepted && listen == ListenKind::Late) DataSocket->Listen();
  resume(name);
  return true;
}

bool FTPSessionClass::FirstDataLegSteps(const QString& replyLine, qint32 replyCode, const char* resumeStep,
                                        const QString& resumeCommand, const QString& resumeStatus) {
  switch (DataConnectionSteps(replyLine, replyCode, FirstSet, ListenKind::Early)) {
    case DataLeg::PassiveReady:
      CalcSetPassivePort(replyLine);
      [[fallthrough]];
    case DataLeg::PortAccepted:
      NextFTPStep(QString::fromLatin1(resumeStep), resumeCommand, resumeStatus);
      return true;
    case DataLeg::Handled:
      return true;
    case DataLeg::NotASubStep:
      break;
  }
  return false;
}

bool FTPSessionClass::BatchRoundSteps(const QString& replyLine, qint32 replyCode, const char* step,
                                      const QString& statusText) {
  if (StepIs("LOOP")) {
    if (replyCode != 200)
      ErrorBranch(replyLine);
    else
      ChooseDataMode(FirstSet);
    return true;
  }
  if (FirstDataLegSteps(replyLine, replyCode, "TYPE", "TYPE " + FTPTransferType, "Change transfer type.")) return true;
  if (!StepIs("TYPE")) return false;
  if (replyCode != 200)
    ErrorBranch(replyLine);
  else
    NextFTPStep(QString::fromLatin1(step), QStringLiteral("NOOP"), statusText);
  return true;
}

void FTPSessionClass::NextRoundOrQuit() {
  if (GetFileCount() < 0) {
    NextFTPStep(QStringLiteral("QUIT"), QStringLiteral("QUIT"), QStringLiteral("FTP Session Complete."));
    return;
  }
  if (!PassiveMode) NextDataPort();
  NextFTPStep(QStringLiteral("LOOP"), QStringLiteral("NOOP"), QString());
}

bool FTPSessionClass::DataHandedOver(const QString& replyLine, qint32 replyCode, const char* step,
                                     const QString& statusText) {
  if (replyCode != 200) {
    ErrorBranch(replyLine);
    return false;
  }
  // The server's 226 and the close of the data connection come in either order: the data
  // socket empties FileData when it has closed. Until then the server's answers to real
  // NOOPs pace the polling. What has already arrived on the data connection is taken in
  // first, so that a 226 handled before the data socket's own events cannot make an
  // unread transfer look finished.
  FTPDataSocket& data = Deref(DataSocket, "DataSocket");
  data.Poll();
  if (data.FileData.isEmpty()) {
    if (!WaitForDataClose || !data.IsOpen()) {
      dataCloseWait_.invalidate();
      return true;
    }
    // Each NOOP restarts the timer: the wait for the close has a limit of its own.
    if (!dataCloseWait_.isValid()) dataCloseWait_.start();
    if (dataCloseWait_.hasExpired(Timeout)) {
      dataCloseWait_.invalidate();
      EndFTPSession(QStringLiteral("Error: the data connection did not end"));
      return false;
    }
  }
  NextFTPStep(QString::fromLatin1(step), QStringLiteral("FORCENOOP"), statusText);
  return false;
}

}  // namespace velmar
