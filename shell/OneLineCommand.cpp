#include "shell/OneLineCommand.h"

#include "platform/FolderItem.h"
#include "platform/SocketCore.h"
#include "platform/TextEncoding.h"
#include "session/FTPSessionClass.h"
#include "shell/Json.h"
#include "shell/Netrc.h"
#include "shell/PasswordPrompt.h"
#include "shell/ProgressBar.h"
#include "shell/ScriptError.h"
#include "shell/Shell.h"
#include "shell/ShellOutput.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>

namespace velmar {

namespace {

using S = FTPSessionClass;

const QStringList& Commands() {
  static const QStringList commands{"ls", "get", "put", "mirror", "rm", "rmdir", "mv"};
  return commands;
}

FtpUrl Address(const QString& text) {
  QString error;
  if (auto url = FtpUrl::Parse(text, &error)) return *url;
  throw ScriptError(error);
}

// A server folder named without its trailing "/", the root as "/".
QString FolderPath(const QString& path) {
  QString folder = path;
  while (folder.size() > 1 && folder.endsWith(u'/')) folder.chop(1);
  return folder;
}

QString LocalPath(const QString& path) { return QFileInfo(path).absoluteFilePath(); }

// Sessions of the same server and login directory can share a job.
QString ServerKey(const FtpUrl& url) {
  return QStringLiteral("%1 %2 %3 %4 %5").arg(url.tls).arg(url.user.value_or(QString()), url.host).arg(url.port).arg(url.Directory());
}

qint64 TreeBytes(const QString& folder) {
  qint64 total = 0;
  QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
  while (it.hasNext()) total += QFileInfo(it.next()).size();
  return total;
}

void CheckUsage(bool ok, const char* usage) {
  if (!ok) throw ScriptError(QStringLiteral("usage: velmar %1").arg(QLatin1String(usage)));
}

}  // namespace

bool OneLineCommand::Names(const QStringList& arguments) {
  return arguments.size() >= 2 && Commands().contains(arguments.front());
}

QString OneLineCommand::Usage() {
  return QStringLiteral(
      "Usage: velmar [--no-progress] [--insecure] [--cacert FILE] COMMAND ARG...\n"
      "\n"
      "One-line transfers, each on a connection of its own. URL is\n"
      "ftp://[USER[:PASSWORD]@]HOST[:PORT]/PATH (percent escapes allowed), or ftps:// for\n"
      "explicit TLS, where the server's certificate must be valid for HOST: signed by a\n"
      "root the system trusts, or by one in the PEM FILE of --cacert; --insecure skips that\n"
      "check (a test server with a self-signed certificate). The user is USER, else the\n"
      "login of HOST's entry in ~/.netrc, else anonymous; the password comes from the URL,\n"
      "from ~/.netrc (used only when no one else may read it) or from a question at the\n"
      "terminal. At a terminal a transfer shows a progress bar. Exit status: 0 success,\n"
      "1 an error report, 2 a wrong command or no password.\n"
      "  velmar ls URL                  list a server directory (a value line)\n"
      "  velmar get URL [LOCAL]         download a file into the current folder, the folder\n"
      "                                 LOCAL, or as the file LOCAL\n"
      "  velmar put LOCAL... URL        upload files into the server directory URL\n"
      "  velmar mirror URL LOCALDIR     download a server folder into LOCALDIR (as a folder\n"
      "                                 of its own name)\n"
      "  velmar mirror -R LOCALDIR URL  upload a local folder into the server directory URL\n"
      "                                 (as a folder of its own name)\n"
      "  velmar rm URL...               delete server files\n"
      "  velmar rmdir -r URL            delete a server folder with all it holds\n"
      "  velmar mv URL NEWNAME          rename a server file (NEWNAME a name or a path)\n");
}

OneLineCommand::OneLineCommand(bool showProgress, ProgressBar* bar)
    : showProgress_(showProgress),
      bar_(bar),
      reportHandler_(std::make_shared<std::function<void(FTPSessionClass*, bool)>>()) {
  *reportHandler_ = [this](FTPSessionClass* session, bool success) { OnReport(session, success); };
  Shell::InstallReceivers(showProgress_, reportHandler_);
}

OneLineCommand::~OneLineCommand() {
  *reportHandler_ = nullptr;
  SocketCore::CloseAll();
  session_.reset();
  Shell::RemoveReceivers();
}

void OneLineCommand::SetCertificateCheck(bool insecure, const QString& trustedCertificateFile) {
  verifyCertificate_ = !insecure;
  trustedCertificateFile_ = trustedCertificateFile;
}

bool OneLineCommand::Start(const QStringList& arguments) {
  try {
    Plan(arguments.front(), arguments.mid(1));
    for (Job& job : jobs_) Login(job.url);
  } catch (const ScriptError& error) {
    ShellOutput::Error(error.Message());
    return false;
  }
  QTimer::singleShot(0, [this] { RunNext(); });
  return true;
}

void OneLineCommand::Plan(const QString& command, QStringList operands) {
  if (command == u"ls") {
    CheckUsage(operands.size() == 1, "ls URL");
    const FtpUrl url = Address(operands[0]);
    jobs_.push_back({url, [path = url.path](S& s) { s.SetServerDirectoryPathName(path); }, &S::StartGetDirList,
                     [](S& s) {
                       ShellOutput::Value(QStringLiteral("value"), QStringLiteral("DirectoryFileList"),
                                          JsonString(s.DirectoryFileList));
                       return true;
                     }});
  } else if (command == u"get") {
    CheckUsage(operands.size() == 1 || operands.size() == 2, "get URL [LOCAL]");
    const FtpUrl url = Address(operands[0]);
    if (url.Name().isEmpty()) throw ScriptError(QStringLiteral("get: '%1' names no file").arg(operands[0]));
    const QString local = LocalPath(operands.value(1, QStringLiteral(".")));
    Job job{url, {}, &S::StartGetFile, {}};
    if (QFileInfo(local).isDir()) {
      job.prepare = [url, local](S& s) {
        s.SetServerDirectoryPathName(url.Directory());
        s.SetLocalDirectoryPathName(local + u'/');
        s.AddFileName(url.Name());
      };
    } else {
      // A new name: the file comes down under its own name into a folder of its own beside
      // LOCAL, and takes LOCAL's place only once it is complete.
      const QString parent = QFileInfo(local).absolutePath();
      if (!QFileInfo(parent).isDir()) throw ScriptError(QStringLiteral("get: no folder %1").arg(parent));
      auto landing = std::make_shared<QTemporaryDir>(parent + QStringLiteral("/.velmar-XXXXXX"));
      if (!landing->isValid()) throw ScriptError(QStringLiteral("get: cannot write in %1").arg(parent));
      job.prepare = [url, landing](S& s) {
        s.SetServerDirectoryPathName(url.Directory());
        s.SetLocalDirectoryPathName(landing->path() + u'/');
        s.AddFileName(url.Name());
      };
      job.finish = [url, landing, local](S&) {
        const QByteArray from = QFile::encodeName(landing->path() + u'/' + url.Name());
        if (std::rename(from.constData(), QFile::encodeName(local).constData()) == 0) return true;
        ShellOutput::Error(QStringLiteral("cannot name the downloaded file %1").arg(local));
        return false;
      };
    }
    jobs_.push_back(std::move(job));
  } else if (command == u"put") {
    CheckUsage(operands.size() >= 2, "put LOCAL... URL");
    const FtpUrl url = Address(operands.takeLast());
    // One job per local folder, the files in the order given (Files is served from its end).
    std::vector<std::pair<QString, QStringList>> folders;
    for (const QString& operand : operands) {
      const QFileInfo file(LocalPath(operand));
      if (file.isDir()) throw ScriptError(QStringLiteral("put: %1 is a folder; use mirror -R").arg(operand));
      if (!file.isFile() || !file.isReadable()) throw ScriptError(QStringLiteral("put: cannot read %1").arg(operand));
      if (folders.empty() || folders.back().first != file.absolutePath()) folders.push_back({file.absolutePath(), {}});
      folders.back().second.prepend(file.fileName());
    }
    for (const auto& [folder, names] : folders) {
      Job job{url, [url, folder, names](S& s) {
                s.SetServerDirectoryPathName(url.path);
                s.SetLocalDirectoryPathName(folder + u'/');
                for (const QString& name : names) s.AddFileName(name);
              },
              &S::StartPutFile, {}};
      job.totalBytes = 0;
      for (const QString& name : names) job.totalBytes += QFileInfo(folder + u'/' + name).size();
      jobs_.push_back(std::move(job));
    }
  } else if (command == u"mirror") {
    const bool up = !operands.isEmpty() && operands.front() == u"-R";
    if (up) operands.removeFirst();
    CheckUsage(operands.size() == 2, "mirror URL LOCALDIR | mirror -R LOCALDIR URL");
    const FtpUrl url = Address(operands[up ? 1 : 0]);
    const QString local = LocalPath(operands[up ? 0 : 1]);
    if (up) {
      if (!QFileInfo(local).isDir()) throw ScriptError(QStringLiteral("mirror: no folder %1").arg(operands[0]));
      QString target = FolderPath(url.path);
      if (target != u"/") target += u'/';
      target += QFileInfo(local).fileName();
      Job job{url, [local, target](S& s) {
                s.SetLocalFolderItem(GetFolderItem(local + u'/'));
                s.SetServerDirectoryPathName(target);
              },
              &S::StartPutDir, {}};
      job.totalBytes = TreeBytes(local);
      jobs_.push_back(std::move(job));
    } else {
      if (!QDir().mkpath(local)) throw ScriptError(QStringLiteral("mirror: cannot make the folder %1").arg(operands[1]));
      jobs_.push_back({url, [url, local](S& s) {
                         s.SetServerDirectoryPathName(FolderPath(url.path));
                         s.SetLocalDirectoryPathName(local + u'/');
                       },
                       &S::StartGetDir, {}});
    }
  } else if (command == u"rm") {
    CheckUsage(!operands.isEmpty(), "rm URL...");
    // One job per server directory of consecutive addresses, the names in the order given.
    std::vector<std::pair<FtpUrl, QStringList>> groups;
    for (const QString& operand : operands) {
      const FtpUrl url = Address(operand);
      if (url.Name().isEmpty()) throw ScriptError(QStringLiteral("rm: '%1' names no file").arg(operand));
      if (groups.empty() || ServerKey(groups.back().first) != ServerKey(url)) groups.push_back({url, {}});
      groups.back().second.prepend(url.Name());
    }
    for (const auto& [url, names] : groups)
      jobs_.push_back({url, [directory = url.Directory(), names](S& s) {
                         s.SetServerDirectoryPathName(directory);
                         for (const QString& name : names) s.AddFileName(name);
                       },
                       &S::StartDeleteFile, {}});
  } else if (command == u"rmdir") {
    CheckUsage(operands.size() == 2 && operands[0] == u"-r", "rmdir -r URL");
    const FtpUrl url = Address(operands[1]);
    if (FolderPath(url.path) == u"/") throw ScriptError(QStringLiteral("rmdir: the server's root is not deleted"));
    jobs_.push_back({url, [path = FolderPath(url.path)](S& s) { s.SetServerDirectoryPathName(path); },
                     &S::StartDeleteDir, {}});
  } else if (command == u"mv") {
    CheckUsage(operands.size() == 2, "mv URL NEWNAME");
    const FtpUrl url = Address(operands[0]);
    const QString newName = FtpUrl::Looks(operands[1]) ? Address(operands[1]).path : operands[1];
    if (url.Name().isEmpty() || newName.isEmpty()) throw ScriptError(QStringLiteral("mv: name a file and its new name"));
    // The old name is served first: it goes in last.
    jobs_.push_back({url, [url, newName](S& s) {
                       s.SetServerDirectoryPathName(url.Directory());
                       s.AddFileName(newName);
                       s.AddFileName(url.Name());
                     },
                     &S::StartRenameFile, {}});
  } else {
    throw ScriptError(QStringLiteral("unknown command %1").arg(command));
  }
}

void OneLineCommand::Login(FtpUrl& url) {
  QString warning;
  const auto entry = Netrc::Load(Netrc::DefaultPath(), url.host, &warning);
  if (!warning.isEmpty()) ShellOutput::Error(warning);
  if (!url.user) url.user = entry && !entry->login.isEmpty() ? entry->login : QStringLiteral("anonymous");
  if (!url.password && entry && (entry->login.isEmpty() || entry->login == *url.user)) url.password = entry->password;
  // An anonymous login is asked for no secret, only for a token by custom.
  if (!url.password && url.user->compare(u"anonymous", Qt::CaseInsensitive) == 0) url.password = QStringLiteral("anonymous@");
  if (url.password) return;

  const QString who = QStringLiteral("%1@%2:%3").arg(*url.user, url.host).arg(url.port);
  if (const auto known = passwords_.find(who); known != passwords_.end()) {
    url.password = known->second;
    return;
  }
  if (!PasswordPrompt::Possible())
    throw ScriptError(QStringLiteral("no password for %1: give it in the address or in ~/.netrc, or run at a terminal").arg(who));
  url.password = PasswordPrompt::Ask(QStringLiteral("Password for %1: ").arg(who));
  if (!url.password) throw ScriptError(QStringLiteral("no password for %1").arg(who));
  passwords_[who] = *url.password;
}

void OneLineCommand::RunNext() {
  if (next_ >= jobs_.size()) {
    QCoreApplication::exit(0);
    return;
  }
  const Job& job = jobs_[next_];
  session_ = std::make_shared<FTPSessionClass>();
  session_->SetLoginInfo(job.url.host, job.url.user.value_or(QString()), job.url.password.value_or(QString()));
  session_->CommandPort = job.url.port;
  // Explicit TLS protects the data connections as well when the server agrees to PROT P, and
  // is worth little without knowing who is at the other end: the certificate is checked.
  session_->FTPS = job.url.tls;
  session_->SecureDataConnection = job.url.tls;
  session_->VerifyServerCertificate = job.url.tls && verifyCertificate_;
  session_->TrustedCertificateFile = trustedCertificateFile_;
  session_->PassiveMode = true;
  // Names typed on a command line are UTF-8, as the servers of today expect.
  session_->SetServerEncoding(TextEncoding::UTF8());
  job.prepare(*session_);
  if (bar_) bar_->SetTotal(job.totalBytes);
  const std::shared_ptr<FTPSessionClass> session = session_;
  ((*session).*job.operation)();
}

void OneLineCommand::OnReport(FTPSessionClass* session, bool success) {
  if (session != session_.get() || next_ >= jobs_.size()) return;
  const Job& job = jobs_[next_++];
  if (!success || (job.finish && !job.finish(*session_))) {
    next_ = jobs_.size();
    QCoreApplication::exit(1);
    return;
  }
  // The next job starts from the event loop, not inside the ending session's handler.
  QTimer::singleShot(0, [this] { RunNext(); });
}

}  // namespace velmar
