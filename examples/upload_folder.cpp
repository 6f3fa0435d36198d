// Uploads a local folder, with everything in it, into a server directory:
//
//   upload-folder HOST PORT USER LOCALFOLDER SERVERDIR
//
// The password is read from the environment (FTP_PASSWORD), never from the command line.
// Each report of the session arrives as a Qt signal of FTPStatusSignals.
#include "platform/FolderItem.h"
#include "session/FTPSessionClass.h"
#include "session/FTPStatusSignals.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <cstdio>

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  const QStringList args = app.arguments();
  if (args.size() != 6) {
    std::fprintf(stderr, "usage: upload-folder HOST PORT USER LOCALFOLDER SERVERDIR (password in FTP_PASSWORD)\n");
    return 2;
  }
  auto session = std::make_shared<velmar::FTPSessionClass>();
  session->SetLoginInfo(args[1], args[3], qEnvironmentVariable("FTP_PASSWORD"));
  session->CommandPort = args[2].toInt();
  // The folder's contents arrive in SERVERDIR, which is made when it is missing (its parent
  // must exist), subfolders and all; empty files are left out.
  const std::shared_ptr<velmar::FolderItem> folder = velmar::GetFolderItem(QFileInfo(args[4]).absoluteFilePath());
  if (!folder || !folder->Directory()) {
    std::fprintf(stderr, "upload-folder: %s is not a folder\n", qPrintable(args[4]));
    return 2;
  }
  session->SetLocalFolderItem(folder);
  session->SetServerDirectoryPathName(args[5]);

  auto reports = velmar::FTPStatusSignals::Attach(*session);
  QObject::connect(reports.get(), &velmar::FTPStatusSignals::status,
                   [](const QString& text) { std::printf("%s\n", qPrintable(text)); });
  QObject::connect(reports.get(), &velmar::FTPStatusSignals::succeeded, [](const QString& text) {
    std::printf("done: %s\n", qPrintable(text));
    QCoreApplication::exit(0);
  });
  QObject::connect(reports.get(), &velmar::FTPStatusSignals::failed, [](const QString& text) {
    std::fprintf(stderr, "failed: %s\n", qPrintable(text));
    QCoreApplication::exit(1);
  });
  session->StartPutDir();
  return app.exec();
}
