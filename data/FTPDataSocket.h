#pragma once
// The data connection of a session: moves the bytes of files and listings. It has no
// machine of its own; each event asks the session for its type and acts on that, so one
// socket object serves every operation of the session.
#include "platform/SSLSocket.h"

#include <QByteArray>
#include <QString>
#include <initializer_list>
#include <memory>

namespace velmar {

class BinaryStream;
class FTPSessionClass;
class FolderItem;

class FTPDataSocket : public SSLSocket {
public:
  // Fields, in declared order.
  QString FileName;
  bool FileList = false;
  // Progress counters are 32-bit as declared: past 2 GiB they wrap in reports, while the
  // bytes moved never depend on them.
  qint32 BytesSent = 0;
  std::shared_ptr<BinaryStream> DataStream;
  qint32 ByteCount = 0;
  std::shared_ptr<BinaryStream> bs;
  QByteArray FileData;
  FTPSessionClass* Session = nullptr;
  std::shared_ptr<FolderItem> FileFolderItem;

  explicit FTPDataSocket(FTPSessionClass* session);
  ~FTPDataSocket() override;

  // Methods, in declared order.
  void UpdateTransferStatus(qint32 count);
  void SetFileFolderItem(const std::shared_ptr<FolderItem>& item);
  QString GetFileName() const { return FileName; }
  // A listing never goes to a file: the stream of the file before it is closed here. A file of
  // no bytes is done at its 226, and its connection may be dropped before its close is seen.
  void SetFileList();
  // Turns a received listing into the session's directory tree.
  virtual void ParseDirectoryList(const QString& listing);
  void PutFileName(const QString& name);
  // Moves DataStream to Session->RestartByteCount and sends the first block from there; before
  // the connection is up, the connected event does it.
  void SetRestartPosition();

  void Event_DataAvailable() override;
  void Event_SendComplete(bool userAborted) override;
  void Event_Error() override;
  void Event_Connected() override;

protected:
  std::shared_ptr<void> Anchor() override;
  void TransportConnected() override;

private:
  bool TypeIs(std::initializer_list<const char*> types) const;
  // A connection made for an operation that never uses it (a delete or a server query
  // agrees on one all the same) once another operation runs: its late close is not an
  // event of that operation.
  bool LeftOverFromUnusedConnection() const;
  void End(const QString& text);
  // Opens the local file to send; false when the session has been ended.
  bool OpenFileToSend(const QString& path);
  void SendFirstBlock();
  // Creates (or truncates) the local file to receive into; false on a nil item.
  bool CreateFileToReceive(const std::shared_ptr<FolderItem>& item);
  std::shared_ptr<FolderItem> LocalChild(const QString& name) const;
  void EndOfReceivedFile(bool peerFinished, const QString& code);

  // DataStream was opened for the name of the running transfer (not left by an earlier one).
  bool streamOfThisTransfer_ = false;
  // SetRestartPosition came before the connection: the connected event carries it out.
  bool restartPending_ = false;
  // The session type under which the present connection came up.
  QString connectedFor_;
};

}  // namespace velmar
