// Lists a server directory and prints each entry as the library parses it:
//
//   list-directory HOST PORT USER SERVERDIR
//
// prints "d NAME" for a folder, "l NAME" for a link and "- SIZE NAME" for a file; lines of
// the listing that fit no known form are left out. The password comes from FTP_PASSWORD.
#include "listing/FTPParsedDirListLineClass.h"
#include "session/FTPSessionClass.h"
#include "session/FTPStatusSignals.h"

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  const QStringList args = app.arguments();
  if (args.size() != 5) {
    std::fprintf(stderr, "usage: list-directory HOST PORT USER SERVERDIR (password in FTP_PASSWORD)\n");
    return 2;
  }
  auto session = std::make_shared<velmar::FTPSessionClass>();
  session->SetLoginInfo(args[1], args[3], qEnvironmentVariable("FTP_PASSWORD"));
  session->CommandPort = args[2].toInt();
  session->SetServerDirectoryPathName(args[4]);

  auto reports = velmar::FTPStatusSignals::Attach(*session);
  // The receiver belongs to the session: a lambda kept by it takes the session by plain pointer,
  // since a shared_ptr there would keep the session alive forever.
  QObject::connect(reports.get(), &velmar::FTPStatusSignals::succeeded, [session = session.get()](const QString&) {
    const QStringList lines = session->DirectoryFileList.split(QStringLiteral("\r\n"), Qt::SkipEmptyParts);
    for (const QString& line : lines) {
      const auto entry = session->ParseDirListLine(line);
      if (entry->IsDir && entry->IsFile)
        std::printf("l %s\n", qPrintable(entry->Name));
      else if (entry->IsDir)
        std::printf("d %s\n", qPrintable(entry->Name));
      else if (entry->IsFile)
        std::printf("- %d %s\n", entry->Size, qPrintable(entry->Name));
    }
    QCoreApplication::exit(0);
  });
  QObject::connect(reports.get(), &velmar::FTPStatusSignals::failed, [](const QString& text) {
    std::fprintf(stderr, "failed: %s\n", qPrintable(text));
    QCoreApplication::exit(1);
  });
  session->StartGetDirList();
  return app.exec();
}
