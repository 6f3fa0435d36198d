#pragma once
// The one-line transfers of `velmar COMMAND ARG...`: each command becomes one or more jobs,
// each a connecting operation of a fresh session (it connects, logs on, works and quits),
// run one after the other on the event loop; the first failure ends the run. Reports are the
// shell's lines. The exit status is that of a script: 0 success, 1 an error report, 2 a
// wrong command, a missing local path or a login that cannot be completed.
//
//   ls URL                   StartGetDirList of the URL's directory; the listing as a value line
//   get URL [LOCAL]          StartGetFile; LOCAL a folder, or a new name for the file
//   put LOCAL... URL         StartPutFile per local folder, into the URL's directory
//   mirror URL LOCALDIR      StartGetDir: the server folder comes down into LOCALDIR
//   mirror -R LOCALDIR URL   StartPutDir: the local folder goes up into the URL's directory
//   rm URL...                StartDeleteFile per server directory
//   rmdir -r URL             StartDeleteDir
//   mv URL NEWNAME           StartRenameFile
#include "shell/FtpUrl.h"

#include <QString>
#include <QStringList>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace velmar {

class FTPSessionClass;
class ProgressBar;

class OneLineCommand {
public:
  // True when `arguments` (what follows the options) start with a command and its operands.
  static bool Names(const QStringList& arguments);
  // The commands' part of --help.
  static QString Usage();

  // `bar`, when given, is told the size of each transfer that has one.
  OneLineCommand(bool showProgress, ProgressBar* bar);
  // ftps:// checks the server's certificate and name against the system's roots, or against
  // the PEM file given; `insecure` skips the check (a self-signed test server).
  void SetCertificateCheck(bool insecure, const QString& trustedCertificateFile);
  ~OneLineCommand();
  OneLineCommand(const OneLineCommand&) = delete;
  OneLineCommand& operator=(const OneLineCommand&) = delete;

  // Reads the command and the logins and starts the first job; the run then goes on in the
  // event loop and ends with QCoreApplication::exit(status). Returns false after a message on
  // stderr when the command cannot run (exit status 2).
  bool Start(const QStringList& arguments);

private:
  struct Job {
    FtpUrl url;
    std::function<void(FTPSessionClass&)> prepare;  // fields of the operation
    void (FTPSessionClass::*operation)() = nullptr;
    std::function<bool(FTPSessionClass&)> finish;   // after its success; false: the run failed
    qint64 totalBytes = -1;                          // of a transfer whose size is known
  };

  void Plan(const QString& command, QStringList operands);
  void Login(FtpUrl& url);
  void RunNext();
  void OnReport(FTPSessionClass* session, bool success);

  bool showProgress_;
  bool verifyCertificate_ = true;
  QString trustedCertificateFile_;
  ProgressBar* bar_;
  std::vector<Job> jobs_;
  size_t next_ = 0;
  std::shared_ptr<FTPSessionClass> session_;
  std::shared_ptr<std::function<void(FTPSessionClass*, bool)>> reportHandler_;
  // Logins already completed, by user, host and port: one question per server.
  std::map<QString, QString> passwords_;
};

}  // namespace velmar
