// A whole listing into a tree walk's directory tree, as the data socket files it at the
// listing's close: the bytes read one to one, the walk standing in its first directory.
#include "fuzz/FuzzTarget.h"

#include "data/FTPDataSocket.h"
#include "listing/FTPDirectoryClass.h"
#include "platform/EventSource.h"
#include "platform/Exceptions.h"
#include "session/FTPSessionClass.h"

namespace velmar::fuzz {

void DirectoryListing(const std::uint8_t* data, std::size_t size) {
  EnsureApplication();
  {
    auto session = std::make_shared<FTPSessionClass>();
    session->CurrentWorkingDirectory = QStringLiteral("/srv/top");
    session->DirList.append(std::make_shared<FTPDirectoryClass>(session->CurrentWorkingDirectory, QString()));
    session->CurrentDirectoryIndex = 0;
    const auto socket = MakeEventSource<FTPDataSocket>(session.get());
    try {
      socket->ParseDirectoryList(QString::fromLatin1(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)));
    } catch (const OutOfBoundsException&) {
      // The line parser's read past the last token, passed on as it is.
    }
  }
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

}  // namespace velmar::fuzz

VELMAR_FUZZ_ENTRY(DirectoryListing)
