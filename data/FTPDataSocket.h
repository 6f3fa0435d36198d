#pragma once
// The data connection of a session: moves the bytes of files and listings. It has no
// machine of its own; each event asks the session for its type and acts on that.
#include "platform/SSLSocket.h"

#include <QByteArray>
#include <QString>
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
  qint32 BytesSent = 0;
  std::shared_ptr<BinaryStream> DataStream;
  qint32 ByteCount = 0;
  std::shared_ptr<BinaryStream> bs;
  QByteArray FileData;
  FTPSessionClass* Session = nullptr;
  std::shared_ptr<FolderItem> FileFolderItem;

  explicit FTPDataSocket(FTPSessionClass* session);
  ~FTPDataSocket() override;

  QString GetFileName() const { return FileName; }
  void SetFileList() { FileList = true; }

protected:
  std::shared_ptr<void> Anchor() override;
};

}  // namespace velmar
