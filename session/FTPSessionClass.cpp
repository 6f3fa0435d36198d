#include "session/FTPSessionClass.h"

#include "data/FTPDataSocket.h"
#include "listing/FTPDirectoryClass.h"
#include "platform/Exceptions.h"
#include "platform/FolderItem.h"
#include "platform/Strings.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPConnectionTimer.h"
#include "session/FTPStatusClass.h"

#include <QRandomGenerator>

#include <chrono>

namespace velmar {

const QString FTPSessionClass::EndOfLine = QStringLiteral("\n");

namespace {

double MicrosecondClock() {
  using namespace std::chrono;
  return static_cast<double>(duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count());
}

}  // namespace

FTPSessionClass::FTPSessionClass() { Construct(nullptr); }

FTPSessionClass::FTPSessionClass(const QString& id) { Construct(&id); }

void FTPSessionClass::Construct(const QString* id) {
  DataPortStart = 30003;
  DataPortEnd = 30100;
  DataPort = DataPortStart + static_cast<qint32>(QRandomGenerator::global()->generateDouble() *
                                                 (DataPortEnd - DataPortStart));
  CommandPort = 21;
  Timeout = 20000;
  SendBufferSize = 2048;
  ServerTextEncoding = TextEncoding::ISOLatin1();
  PassiveMode = true;
  FTPTransferType = QStringLiteral("I");
  ShowInvisible = false;
  UseNameList = false;
  SetStatusReporting(true);
  if (id != nullptr) ID = *id;
  // This platform's separator of local paths.
  FileDelimiter = QStringLiteral("/");
  VelmarCRLF = QStringLiteral("\r\n");
  ConnectionTimer = MakeEventSource<FTPConnectionTimer>(this);
  FTPStatusInstance = FTPStatusClass::Make(this);
  SessionStartTime = MicrosecondClock();
}

FTPSessionClass::~FTPSessionClass() {
  // Children that somebody else still holds must not call back into a dead session.
  if (CommandSocket) CommandSocket->Session = nullptr;
  if (DataSocket) DataSocket->Session = nullptr;
  if (ConnectionTimer) ConnectionTimer->Session = nullptr;
  if (FTPStatusInstance && FTPStatusInstance->Session == this) FTPStatusInstance->Session = nullptr;
}

// ---- Setters and getters -------------------------------------------------------------

void FTPSessionClass::SetLoginInfo(const QString& server, const QString& userID, const QString& password) {
  ServerAddress = server;
  ServerUserID = userID;
  ServerPassword = password;
}

void FTPSessionClass::AddFileName(const QString& name) { Files.append(name); }

void FTPSessionClass::SetLocalDirectoryPathName(const QString& path) { LocalDirectory = path; }

void FTPSessionClass::SetServerDirectoryPathName(const QString& path) { ServerDirectory = path; }

QString FTPSessionClass::GetLocalDirectoryPathName() { return LocalDirectory; }

QString FTPSessionClass::GetServerDirectoryPathName() { return ServerDirectory; }

QString FTPSessionClass::GetNextFileName() {
  if (Files.isEmpty()) return QString();
  return Files.takeLast();
}

void FTPSessionClass::SetTimeoutSeconds(qint32 seconds) { Timeout = seconds * 1000; }

void FTPSessionClass::SetStatusReporting(bool on) {
  // Reporting cannot be switched off once on: false does nothing.
  if (on) FTPStatusInstance = FTPStatusClass::Make(this);
}

void FTPSessionClass::SetServerEncoding(const TextEncoding& encoding) { ServerTextEncoding = encoding; }

void FTPSessionClass::SetLocalFolderItem(const std::shared_ptr<FolderItem>& item) {
  if (!item) throw NilObjectException(QStringLiteral("NilObjectException: SetLocalFolderItem of a nil item"));
  LocalDirectory = GetDirFromPath(item->AbsolutePath());
  if (!item->Directory()) AddFileName(item->Name());
}

QString FTPSessionClass::GetCurrentFTPStep() { return CurrentFTPStep; }

QString FTPSessionClass::GetFTPSessionType() { return FTPSessionType; }

QString FTPSessionClass::GetVelmarVersion() { return QStringLiteral("5.0.0"); }

qint32 FTPSessionClass::GetFileCount() { return static_cast<qint32>(Files.size()) - 1; }

qint32 FTPSessionClass::GetCurrentDirectoryIndex(const QString& path) {
  for (qsizetype i = 0; i < DirList.size(); ++i)
    if (DirList[i] && Same(DirList[i]->GetName(), path)) return static_cast<qint32>(i);
  return -1;
}

QString FTPSessionClass::GetFileFromPath(const QString& path) {
  const QStringList fields = Split(path, QStringLiteral("/"));
  return fields.last();
}

QString FTPSessionClass::UpOneLocalDirectory(const QString& path) {
  if (FileDelimiter.isEmpty() || path.size() < 2) return QString();
  const qsizetype at = path.lastIndexOf(FileDelimiter, path.size() - 2, Qt::CaseInsensitive);
  return at < 0 ? QString() : path.left(at + FileDelimiter.size());
}

QString FTPSessionClass::GetDirFromPath(const QString& path) {
  const qsizetype at = path.lastIndexOf(FileDelimiter, -1, Qt::CaseInsensitive);
  if (FileDelimiter.isEmpty() || at < 0) return QString();
  return path.left(at + FileDelimiter.size());
}

// ---- The step engine -----------------------------------------------------------------

void FTPSessionClass::NextFTPStep(const QString& step, const QString& command, const QString& statusText) {
  ResetConnectionTimer();
  CurrentFTPStep = step;
  if (Same(command, QStringLiteral("FORCENOOP"))) {
    WriteCommand(QStringLiteral("NOOP"));
  } else if (Same(command, QStringLiteral("NOOP"))) {
    // The synthetic reply: the machine runs its new step now, with code 200.
    Buffer = ServerTextEncoding.Encode(QStringLiteral("200 NOOP command successful.") + VelmarCRLF);
    ParseCommandBuffer();
    return;
  } else if (!command.isEmpty()) {
    WriteCommand(command);
  }
  if (FTPStatusInstance) {
    FTPStatusInstance->Session = this;
    FTPStatusInstance->Response_FTP(InStr(command, QStringLiteral("PASS")) > 0 ? QStringLiteral("PASS") : command);
    FTPStatusInstance->Status_FTP(statusText);
  }
}

void FTPSessionClass::WriteCommand(const QString& command) {
  if (CommandSocket) CommandSocket->Write(ServerTextEncoding.Encode(command + VelmarCRLF));
}

void FTPSessionClass::EndFTPSession(const QString& text) {
  if (FTPStatusInstance && !text.isEmpty()) {
    if (SuccessfulMessage(text))
      FTPStatusInstance->Successful_FTP(text);
    else
      FTPStatusInstance->Error_FTP(text);
  }
  if (ConnectionTimer) ConnectionTimer->SetMode(0);
  if (!IgnoreCancel) {
    if (CommandSocket) {
      CommandSocket->Close();
      CommandSocket = nullptr;
    }
    if (DataSocket) {
      DataSocket->Close();
      DataSocket = nullptr;
    }
  }
}

bool FTPSessionClass::SocketsActive() {
  if (!DataSocket) {
    EndFTPSession(QStringLiteral("Data Socket is no longer active."));
    return false;
  }
  if (!CommandSocket) {
    EndFTPSession(QStringLiteral("Command Socket is no longer active."));
    return false;
  }
  if (!CommandSocket->IsConnected()) {
    EndFTPSession(QStringLiteral("Connection Lost."));
    return false;
  }
  return true;
}

bool FTPSessionClass::SuccessfulMessage(const QString& text) {
  static const char* const kSuccessTexts[] = {
      "File has been deleted.",
      "The file list has been transferred.",
      "File Transfer Complete.",
      "File Rename Complete.",
      "The directory has been deleted.",
      "Directory Transfer Complete.",
      "Directory Change Complete.",
      "Empty Directory Removed.",
      "Directory Created.",
      "The working directory has been transferred.",
      "Logon Complete.",
      "Logoff Complete.",
      "Chmod Command Complete.",
      "System information received.",
  };
  for (const char* success : kSuccessTexts)
    if (Same(text, QString::fromLatin1(success))) return true;
  return false;
}

QString FTPSessionClass::Squeeze(const QString& text, const QString& chars) {
  // Byte lengths as the text's encoding counts them: UTF-16 code units here.
  if (text.size() < 2) return text;
  QString squeezed = text;
  qsizetype length = squeezed.size();
  for (const QString& c : Split(chars, QString())) {
    const QString doubled = c + c;
    for (;;) {
      squeezed = ReplaceAll(squeezed, doubled, c);
      if (squeezed.size() == length) break;
      length = squeezed.size();
    }
  }
  return squeezed;
}

void FTPSessionClass::ResetConnectionTimer() {
  if (!ConnectionTimer) ConnectionTimer = MakeEventSource<FTPConnectionTimer>(this);
  ConnectionTimer->SetPeriod(Timeout);
  ConnectionTimer->SetMode(1);
}

// ---- Reply dispatch ------------------------------------------------------------------

namespace {

using StepMachine = void (FTPSessionClass::*)(const QString& replyLine, qint32 replyCode);

struct DispatchRow {
  const char* sessionType;
  StepMachine machine;
};

// Session type -> machine, in the order of the tests; the first equal name wins.
const DispatchRow kDispatchTable[] = {
    {"AbortTransfer", &FTPSessionClass::ExecuteAbortTransferSteps},
    {"ChangeDir", &FTPSessionClass::ExecuteChangeDirSteps},
    {"ParentDir", &FTPSessionClass::ExecuteParentDirSteps},
    {"PutDir", &FTPSessionClass::ExecutePutDirSteps},
    {"PutDirImmediate", &FTPSessionClass::ExecutePutDirImmediateSteps},
    {"PutFile", &FTPSessionClass::ExecutePutFileSteps},
    {"PutSingleFile", &FTPSessionClass::ExecutePutSingleFileSteps},
    {"RestartPutSingleFile", &FTPSessionClass::ExecuteRestartPutSingleFileSteps},
    {"GetDirList", &FTPSessionClass::ExecuteGetDirListSteps},
    {"GetDirListImmediate", &FTPSessionClass::ExecuteGetDirListImmediateSteps},
    {"GetFile", &FTPSessionClass::ExecuteGetFileSteps},
    {"GetSingleFile", &FTPSessionClass::ExecuteGetSingleFileSteps},
    {"RestartGetSingleFile", &FTPSessionClass::ExecuteRestartGetSingleFileSteps},
    {"GetDir", &FTPSessionClass::ExecuteGetDirSteps},
    {"GetDirImmediate", &FTPSessionClass::ExecuteGetDirImmediateSteps},
    {"DeleteFile", &FTPSessionClass::ExecuteDeleteFileSteps},
    {"DeleteSingleFile", &FTPSessionClass::ExecuteDeleteSingleFileSteps},
    {"DeleteDir", &FTPSessionClass::ExecuteDeleteDirSteps},
    {"DeleteDirImmediate", &FTPSessionClass::ExecuteDeleteDirImmediateSteps},
    {"RemoveDir", &FTPSessionClass::ExecuteRemoveDirSteps},
    {"MakeDir", &FTPSessionClass::ExecuteMakeDirSteps},
    {"RenameFile", &FTPSessionClass::ExecuteRenameFileSteps},
    {"RenameSingleFile", &FTPSessionClass::ExecuteRenameSingleFileSteps},
    {"ChmodSingleFile", &FTPSessionClass::ExecuteChmodSingleFileSteps},
    {"GetWorkingDir", &FTPSessionClass::ExecuteGetWorkingDirSteps},
    {"Logon", &FTPSessionClass::ExecuteLogonSteps},
    {"Logoff", &FTPSessionClass::ExecuteLogoffSteps},
    {"GetSystemInfo", &FTPSessionClass::ExecuteSystemInfoSteps},
    {"GetStatus", &FTPSessionClass::ExecuteStatusSteps},
    {"SITECommand", &FTPSessionClass::ExecuteSITESteps},
    {"DirectCommand", &FTPSessionClass::ExecuteDirectCommandSteps},
};

void Dispatch(FTPSessionClass& session, const QString& line, qint32 code) {
  for (const DispatchRow& row : kDispatchTable) {
    if (session.FTPSessionType.compare(QLatin1String(row.sessionType), Qt::CaseInsensitive) == 0) {
      (session.*row.machine)(line, code);
      return;
    }
  }
}

}  // namespace

void FTPSessionClass::ParseCommandBuffer() {
  ResetConnectionTimer();
  const QByteArray lineEnd = ServerTextEncoding.Encode(VelmarCRLF);
  // Position arithmetic of the framework: without a line end (only a direct caller gets
  // here) the line is empty and the buffer loses as many bytes as a line end has, less one.
  const qsizetype at = lineEnd.isEmpty() ? -1 : Buffer.indexOf(lineEnd);
  const QString line = at < 0 ? QString() : ServerTextEncoding.Decode(Buffer.left(at));
  const qint32 code = ToInt32(Val(NthField(line, QStringLiteral(" "), 1)));
  Buffer = Buffer.mid(at < 0 ? lineEnd.size() - 1 : at + lineEnd.size());
  if (FTPStatusInstance) FTPStatusInstance->Response_FTP(line);
  // The server is ready for the data connection's TLS handshake once it has announced the transfer.
  if ((code == 125 || code == 150) && DataSocket && DataSocket->Secure()) DataSocket->RequestHandshake();
  Dispatch(*this, line, code);
}

void FTPSessionClass::ParseCommandBuffer(qint32 code) {
  ResetConnectionTimer();
  // A made-up line that passes both forms of the final-line test.
  Dispatch(*this, QStringLiteral("x     "), code);
}

}  // namespace velmar
