#include "data/FTPDataSocket.h"

#include "listing/FTPDirectoryClass.h"
#include "listing/FTPParsedDirListLineClass.h"
#include "platform/BinaryStream.h"
#include "platform/Exceptions.h"
#include "platform/FolderItem.h"
#include "platform/Strings.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPSessionClass.h"
#include "session/FTPStatusClass.h"

namespace velmar {

namespace {

// The declared counters are 32-bit: larger values wrap, as they would in the framework.
qint32 Wrap32(qint64 value) { return static_cast<qint32>(static_cast<quint32>(value)); }

}  // namespace

FTPDataSocket::FTPDataSocket(FTPSessionClass* session) : Session(session) {}

FTPDataSocket::~FTPDataSocket() = default;

std::shared_ptr<void> FTPDataSocket::Anchor() {
  return Session ? std::shared_ptr<void>(Session->weak_from_this().lock()) : nullptr;
}

bool FTPDataSocket::TypeIs(std::initializer_list<const char*> types) const {
  if (!Session) return false;
  const QString type = Session->GetFTPSessionType();
  for (const char* candidate : types)
    if (type.compare(QLatin1String(candidate), Qt::CaseInsensitive) == 0) return true;
  return false;
}

bool FTPDataSocket::LeftOverFromUnusedConnection() const {
  if (!Session) return false;
  static const char* const kUnusedBy[] = {"DeleteSingleFile", "GetStatus", "GetSystemInfo"};
  for (const char* type : kUnusedBy)
    if (connectedFor_.compare(QLatin1String(type), Qt::CaseInsensitive) == 0)
      return !TypeIs({type});
  return false;
}

void FTPDataSocket::TransportConnected() {
  // A secured data connection resumes the control connection's TLS session: servers may
  // refuse a data connection that comes from another client than the one logged on.
  if (Secure() && Session && Session->CommandSocket) ResumeTLSSession(Session->CommandSocket->TLSSession());
  SSLSocket::TransportConnected();
  connectedFor_ = Session ? Session->GetFTPSessionType() : QString();
}

void FTPDataSocket::End(const QString& text) {
  if (Session) Session->EndFTPSession(text);
}

// ---- Methods ----------------------------------------------------------------------

void FTPDataSocket::UpdateTransferStatus(qint32 count) {
  ByteCount = count;
  if (Session && Session->FTPStatusInstance) Session->FTPStatusInstance->Progress_FTP(ByteCount);
}

void FTPDataSocket::SetFileFolderItem(const std::shared_ptr<FolderItem>& item) {
  FileFolderItem = item;
  if (!item) throw NilObjectException(QStringLiteral("NilObjectException: SetFileFolderItem of a nil item"));
  FileName = item->Name();
  if (TypeIs({"GetDir", "GetDirImmediate", "GetFile", "GetSingleFile"})) CreateFileToReceive(FileFolderItem);
}

void FTPDataSocket::SetFileList() {
  FileList = true;
  if (bs) bs->Close();
}

void FTPDataSocket::ParseDirectoryList(const QString& listing) {
  if (!Session) return;
  // CR, LF and CR LF all end a line. The whole listing goes into the tree in this one call,
  // so no machine ever sees it half filled.
  const QString lineEnd = FTPSessionClass::EndOfLine;
  QList<std::shared_ptr<FTPDirectoryClass>>& tree = Session->DirList;
  for (const QString& line : Split(ReplaceLineEndings(listing, lineEnd), lineEnd)) {
    const std::shared_ptr<FTPParsedDirListLineClass> entry = Session->ParseDirListLine(line);
    const qint32 here = Session->CurrentDirectoryIndex;
    if (entry->IsDir) {
      // A link counts as a directory, its arrow and target part of the path.
      if (entry->Name == QStringLiteral(".") || entry->Name == QStringLiteral("..")) continue;
      const QString path = Session->CurrentWorkingDirectory + QStringLiteral("/") + entry->Name;
      const QString parent = Deref(At(tree, here), "DirList entry").GetName();
      tree.append(std::make_shared<FTPDirectoryClass>(path, parent));
      At(tree, here)->AddSubDirectory(path);
    } else if (entry->IsFile) {
      Deref(At(tree, here), "DirList entry").AddFile(entry->Name);
    }
  }
}

void FTPDataSocket::PutFileName(const QString& name) {
  FileName = name;
  // A new transfer: whatever DataStream holds belongs to an earlier one.
  streamOfThisTransfer_ = false;
  restartPending_ = false;
  if (TypeIs({"GetDir", "GetDirImmediate", "GetFile", "GetSingleFile"})) {
    CreateFileToReceive(LocalChild(FileName));
  } else if (TypeIs({"RestartGetSingleFile"})) {
    const std::shared_ptr<FolderItem> item = LocalChild(FileName);
    if (!item) {
      End(QStringLiteral("Error writing local file: ") + FileName);
      return;
    }
    if (bs) bs->Close();
    // Opened without truncating: received bytes are appended from the local length on.
    bs = item->OpenAsBinaryFile(true);
    if (!bs) {
      End(QStringLiteral("Error writing local file: ") + FileName);
      return;
    }
    Session->RestartByteCount = Wrap32(item->Length());
    bs->SetPosition(item->Length());
  }
}

void FTPDataSocket::SetRestartPosition() {
  if (!Session) return;
  if (!streamOfThisTransfer_ || !DataStream || !DataStream->IsOpen()) {
    // The connection is not up yet (always so in active mode, where the server connects
    // after STOR): the connected event opens the file and sends from the offset then.
    restartPending_ = true;
    return;
  }
  DataStream->SetPosition(Session->RestartByteCount);
  const QByteArray block = DataStream->Read(Session->SendBufferSize);
  // Progress of a restarted upload counts from zero.
  BytesSent = Wrap32(block.size());
  UpdateTransferStatus(BytesSent);
  Write(block);
}

std::shared_ptr<FolderItem> FTPDataSocket::LocalChild(const QString& name) const {
  const std::shared_ptr<FolderItem> folder = GetFolderItem(Session->GetLocalDirectoryPathName());
  if (!folder)
    throw NilObjectException(QStringLiteral("NilObjectException: no local folder \"%1\"")
                                 .arg(Session->GetLocalDirectoryPathName()));
  return folder->Child(name);
}

bool FTPDataSocket::CreateFileToReceive(const std::shared_ptr<FolderItem>& item) {
  if (!item) {
    End(QStringLiteral("Error writing local file: ") + FileName);
    return false;
  }
  if (bs) bs->Close();
  bs = item->CreateBinaryFile(QStringLiteral("*/*"));
  if (!bs) {
    // A folder that does not exist or cannot be written: nothing could be received.
    End(QStringLiteral("Error writing local file: ") + FileName);
    return false;
  }
  return true;
}

// ---- Connected ----------------------------------------------------------------------

void FTPDataSocket::Event_Connected() {
  if (!Session || LeftOverFromUnusedConnection()) return;
  if (TypeIs({"PutDir", "PutDirImmediate"})) {
    if (OpenFileToSend(At(Session->Paths, Session->CurrentFileIndex))) SendFirstBlock();
  } else if (TypeIs({"PutFile", "PutSingleFile"})) {
    if (OpenFileToSend(Session->GetLocalDirectoryPathName() + FileName)) SendFirstBlock();
  } else if (TypeIs({"RestartPutSingleFile"})) {
    // No block here: SetRestartPosition sends the first one from the restart offset, now if
    // the offset is already known.
    if (OpenFileToSend(Session->GetLocalDirectoryPathName() + FileName)) {
      Session->ResetConnectionTimer();
      if (restartPending_) {
        restartPending_ = false;
        SetRestartPosition();
      }
    }
  } else if (TypeIs({"DeleteDir", "DeleteDirImmediate", "GetFile", "GetSingleFile", "GetDir", "GetDirImmediate",
                     "GetDirListImmediate"})) {
    Poll();
  }
}

bool FTPDataSocket::OpenFileToSend(const QString& path) {
  const std::shared_ptr<FolderItem> item = GetFolderItem(path);
  if (!item || !item->Exists()) {
    End(QStringLiteral("Cannot Find File: ") + FileName);
    return false;
  }
  DataStream = item->OpenAsBinaryFile(false);
  if (!DataStream) {
    End(QStringLiteral("Cannot open file: ") + FileName);
    return false;
  }
  streamOfThisTransfer_ = true;
  return true;
}

void FTPDataSocket::SendFirstBlock() {
  const QByteArray block = DataStream->Read(Session->SendBufferSize);
  BytesSent = Wrap32(block.size());
  UpdateTransferStatus(BytesSent);
  Write(block);
  Session->ResetConnectionTimer();
}

// ---- Sending: one block in flight ------------------------------------------------------

void FTPDataSocket::Event_SendComplete(bool userAborted) {
  (void)userAborted;
  if (!Session || LeftOverFromUnusedConnection()) return;
  if (TypeIs({"PutDir", "PutDirImmediate", "PutFile", "PutSingleFile", "RestartPutSingleFile"})) {
    if (!DataStream) return;
    if (DataStream->EOF()) {
      UpdateTransferStatus(BytesSent);
      DataStream->Close();
      // Closing the connection is what tells the server that the file has ended.
      Close();
    } else {
      const QByteArray block = DataStream->Read(Session->SendBufferSize);
      if (block.isEmpty()) {
        // The file could not be read on: a reset, not an orderly close, so that the
        // server does not keep a truncated file as complete.
        DataStream->Close();
        Abort();
        End(QStringLiteral("Error reading local file: ") + FileName);
        return;
      }
      BytesSent = Wrap32(qint64(BytesSent) + block.size());
      UpdateTransferStatus(BytesSent);
      Write(block);
      Poll();
    }
    Session->ResetConnectionTimer();
  } else if (TypeIs({"AbortTransfer"})) {
    if (DataStream) DataStream->Close();
    Close();
  }
}

// ---- Receiving -----------------------------------------------------------------------

void FTPDataSocket::Event_DataAvailable() {
  if (!Session || LeftOverFromUnusedConnection()) return;
  if (TypeIs({"GetDir", "GetDirImmediate", "GetFile", "GetSingleFile", "RestartGetSingleFile"})) {
    // In a download FileData is a marker, not a buffer: the last block read. The tree walk's
    // listing comes this way too, so only its last read is parsed; a line that the previous read
    // cut off is carried over, so that it reaches the parser whole rather than as a fragment.
    const bool treeListing = FileList && TypeIs({"GetDir", "GetDirImmediate"});
    FileData = (treeListing ? FileData.mid(FileData.lastIndexOf('\n') + 1) : QByteArray()) + ReadAll();
    if (bs) {
      if (!bs->Write(FileData) && bs->IsOpen()) {
        // A full disk or a failed write must not end as a complete transfer.
        bs->Close();
        Abort();
        End(QStringLiteral("Error writing local file: ") + FileName);
        return;
      }
      UpdateTransferStatus(Wrap32(bs->Length()));
      Poll();
    }
  } else if (TypeIs({"GetDirList", "GetDirListImmediate"})) {
    FileData += ReadAll();
    UpdateTransferStatus(Wrap32(FileData.size()));
    Poll();
  } else if (TypeIs({"DeleteDir", "DeleteDirImmediate"})) {
    FileData += ReadAll();
    UpdateTransferStatus(Wrap32(FileData.size()));
  }
  Session->ResetConnectionTimer();
}

// ---- The end of a connection -----------------------------------------------------------

void FTPDataSocket::EndOfReceivedFile(bool peerFinished, const QString& code) {
  if (peerFinished) {
    // The server's close is the end of the file: the emptied FileData tells the machine.
    if (bs) bs->Close();
    FileData.clear();
    ByteCount = 0;
  } else {
    End(QStringLiteral("Error while receiving the file: ") + code);
  }
}

void FTPDataSocket::Event_Error() {
  if (!Session || LeftOverFromUnusedConnection()) return;
  const qint32 code = LastErrorCode();
  const QString number = Session->SocketErrorText(*this);
  const bool peerFinished = code == ErrorPeerClosed;
  if (TypeIs({"AbortTransfer"})) {
    End(QStringLiteral("Error while sending the file: ") + number);
  } else if (TypeIs({"PutDir", "PutDirImmediate", "PutFile", "PutSingleFile", "RestartPutSingleFile"})) {
    // This side closes first on upload, so any event here is a failure, 102 included.
    End(QStringLiteral("Error while sending the file: ") + number);
  } else if (TypeIs({"GetFile", "GetSingleFile", "RestartGetSingleFile"})) {
    EndOfReceivedFile(peerFinished, number);
  } else if (TypeIs({"DeleteDir", "DeleteDirImmediate"})) {
    if (peerFinished) {
      ParseDirectoryList(Session->ServerTextEncoding.Decode(FileData));
      FileData.clear();
      Session->ListingTakenIn();
    } else {
      End(QStringLiteral("Error while receiving the directory list: ") + number);
    }
  } else if (TypeIs({"GetDirList", "GetDirListImmediate"})) {
    if (peerFinished) {
      Session->DirectoryFileList = Session->ServerTextEncoding.Decode(FileData);
      FileData.clear();
    } else {
      End(QStringLiteral("Error while receiving the directory list: ") + number);
    }
  } else if (TypeIs({"GetDir", "GetDirImmediate"})) {
    if (!FileList) {
      EndOfReceivedFile(peerFinished, number);
    } else {
      FileList = false;
      if (peerFinished) {
        // No encoding is defined for the tree's listing: its bytes are read one to one.
        ParseDirectoryList(QString::fromLatin1(FileData));
        FileData.clear();
        ByteCount = 0;
        Session->ListingTakenIn();
      } else {
        End(QStringLiteral("Error while receiving the directory list: ") + number);
      }
    }
  }
}

}  // namespace velmar
