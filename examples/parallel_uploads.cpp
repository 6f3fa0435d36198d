// Uploads several files at once, each by a session of its own on its own connection, all on
// the one event loop of the program:
//
//   parallel-uploads HOST PORT USER SERVERDIR FILE...
//
// Prints one line per file as its session ends; the exit status is 0 when every file arrived.
// The password comes from FTP_PASSWORD.
#include "session/FTPSessionClass.h"
#include "session/FTPStatusSignals.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <cstdio>
#include <memory>
#include <vector>

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  const QStringList args = app.arguments();
  if (args.size() < 6) {
    std::fprintf(stderr, "usage: parallel-uploads HOST PORT USER SERVERDIR FILE... (password in FTP_PASSWORD)\n");
    return 2;
  }
  std::vector<std::shared_ptr<velmar::FTPSessionClass>> sessions;
  int running = 0, failures = 0;
  for (const QString& path : args.mid(5)) {
    const QFileInfo file(path);
    auto session = std::make_shared<velmar::FTPSessionClass>(file.fileName());
    session->SetLoginInfo(args[1], args[3], qEnvironmentVariable("FTP_PASSWORD"));
    session->CommandPort = args[2].toInt();
    session->SetLocalDirectoryPathName(file.absolutePath() + "/");
    session->SetServerDirectoryPathName(args[4]);
    session->AddFileName(file.fileName());
    auto reports = velmar::FTPStatusSignals::Attach(*session);
    const auto finished = [&running, &failures, name = file.fileName()](bool ok, const QString& text) {
      std::printf("%s: %s\n", qPrintable(name), qPrintable(text));
      if (!ok) ++failures;
      if (--running == 0) QCoreApplication::exit(failures ? 1 : 0);
    };
    QObject::connect(reports.get(), &velmar::FTPStatusSignals::succeeded,
                     [finished](const QString& text) { finished(true, text); });
    QObject::connect(reports.get(), &velmar::FTPStatusSignals::failed,
                     [finished](const QString& text) { finished(false, text); });
    sessions.push_back(session);
  }
  // Every session starts before any of them has ended: they run side by side.
  running = static_cast<int>(sessions.size());
  for (const auto& session : sessions) session->StartPutFile();
  return app.exec();
}
