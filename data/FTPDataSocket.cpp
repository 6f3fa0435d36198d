#include "data/FTPDataSocket.h"

#include "platform/BinaryStream.h"
#include "platform/FolderItem.h"
#include "session/FTPSessionClass.h"

namespace velmar {

FTPDataSocket::FTPDataSocket(FTPSessionClass* session) : Session(session) {}

FTPDataSocket::~FTPDataSocket() = default;

std::shared_ptr<void> FTPDataSocket::Anchor() {
  return Session ? std::shared_ptr<void>(Session->weak_from_this().lock()) : nullptr;
}

}  // namespace velmar
