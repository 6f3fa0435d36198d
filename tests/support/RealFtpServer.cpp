#include "support/RealFtpServer.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QUuid>

#include <csignal>
#include <functional>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velmar::test {

using namespace Qt::StringLiterals;

namespace {

constexpr int kStartTimeoutMs = 10000;

QString FirstLine(const QByteArray& output) {
  return QString::fromLocal8Bit(output).trimmed().section(u'\n', 0, 0).trimmed();
}

// Runs a short helper program to its end; returns an error text, or empty on success. A complaint
// about a lock is tried again: useradd and userdel lock /etc/passwd, and tests running in parallel
// may hold it for a moment.
QString RunTool(const QString& program, const QStringList& arguments, const QByteArray& input = {}) {
  QString error;
  for (int attempt = 0; attempt < 20; ++attempt) {
    if (attempt > 0) QThread::msleep(100);
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForStarted(5000)) return u"cannot run %1: %2"_s.arg(program, process.errorString());
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(30000)) return u"%1 did not finish"_s.arg(program);  // killed by ~QProcess
    if (process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0) return {};
    error = u"%1 failed: %2"_s.arg(program, FirstLine(process.readAll()));
    if (!error.contains("lock"_L1, Qt::CaseInsensitive)) break;
  }
  return error;
}

// On PATH, or in the system's sbin folders, which the PATH of root may lack.
QString FindProgram(const QString& name) {
  const QString onPath = QStandardPaths::findExecutable(name);
  return onPath.isEmpty() ? QStandardPaths::findExecutable(name, {u"/usr/sbin"_s, u"/sbin"_s}) : onPath;
}

// A port that was free a moment ago, for servers that cannot be told to pick one.
quint16 FreePort() {
  QTcpServer probe;
  return probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
}

// True when something on the port answers with an FTP greeting within the time left.
bool AnswersWithGreeting(quint16 port, const QDeadlineTimer& deadline) {
  QTcpSocket socket;
  socket.connectToHost(QHostAddress::LocalHost, port);
  if (!socket.waitForConnected(std::clamp(int(deadline.remainingTime()), 1, 500))) return false;
  QByteArray greeting;
  while (!greeting.contains('\n') && !deadline.hasExpired() &&
         socket.waitForReadyRead(std::clamp(int(deadline.remainingTime()), 1, 2000)))
    greeting += socket.readAll();
  socket.abort();
  return greeting.startsWith("220");
}

// Test accounts are named after the process that made them, so a run that crashed can be
// cleaned up by a later one without touching the accounts of a run that is still going.
const QString kUserPrefix = u"velmarftp"_s;

void RemoveStaleUsers(const QString& userdel) {
  static const QRegularExpression ours(u"^%1(\\d+)x\\d+$"_s.arg(kUserPrefix));  // prefix, pid, x, serial
  QFile passwd(u"/etc/passwd"_s);
  if (!passwd.open(QIODevice::ReadOnly)) return;
  for (const QByteArray& line : passwd.readAll().split('\n')) {
    const QString name = QString::fromLatin1(line.left(line.indexOf(':')));
    const QRegularExpressionMatch match = ours.match(name);
    if (match.hasMatch() && !QFileInfo::exists(u"/proc/"_s + match.captured(1))) RunTool(userdel, {u"-f"_s, name});
  }
}

}  // namespace

struct RealFtpServer::Impl {
  Kind kind;
  QString skipReason;  // empty once the server runs
  quint16 port = 0;
  QString user = u"tester"_s;
  QString password = QUuid::createUuid().toString(QUuid::Id128);  // 32 hex digits, 122 of their bits random
  QString root;
  QString createdUser, userdel;  // a system account to remove again (vsftpd), and the tool for that
  QTemporaryDir temp{QDir::tempPath() + u"/velmar-ftp-XXXXXX"_s};
  QProcess process;
  pid_t group = 0;  // the server's process group while it runs

  explicit Impl(Kind k) : kind(k) {
    root = temp.isValid() ? temp.filePath(u"home"_s) : QString();
    if (root.isEmpty())
      skipReason = u"cannot create a temporary folder: %1"_s.arg(temp.errorString());
    else if (!QDir().mkpath(root))
      skipReason = u"cannot create %1"_s.arg(root);
    else
      skipReason = kind == Kind::Vsftpd ? StartVsftpd() : StartPyftpdlib();
  }

  ~Impl() {
    Stop();
    if (!createdUser.isEmpty()) RunTool(userdel, {u"-f"_s, createdUser});
  }

  // Starts the server in a process group of its own, so that Stop() ends it whole, and which gets
  // SIGTERM should this process die without running its destructors. Then waits until `up` says
  // it serves. Returns why it does not (the server stopped again), or empty.
  QString Launch(const QString& name, const QString& program, const QStringList& arguments,
                 QProcess::ProcessChannelMode channels, const std::function<bool(const QDeadlineTimer&)>& up) {
    process.setChildProcessModifier([] {
      ::setpgid(0, 0);
      ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    });
    process.setProcessChannelMode(channels);
    process.start(program, arguments);
    if (!process.waitForStarted(5000)) return u"cannot run %1: %2"_s.arg(program, process.errorString());
    group = static_cast<pid_t>(process.processId());
    if (up(QDeadlineTimer(kStartTimeoutMs))) return {};
    const QString output = FirstLine(process.readAll());
    const QString error = process.state() == QProcess::Running
                              ? u"%1 did not come up within %2 s"_s.arg(name).arg(kStartTimeoutMs / 1000)
                              : u"%1 exited at start (exit code %2): %3"_s.arg(name).arg(process.exitCode())
                                    .arg(output.isEmpty() ? u"no output"_s : output);
    Stop();
    return error;
  }

  void Stop() {
    if (group <= 0) return;
    process.closeWriteChannel();
    ::kill(-group, SIGTERM);
    if (!process.waitForFinished(3000)) {
      ::kill(-group, SIGKILL);
      process.waitForFinished(3000);
    }
    ::kill(-group, SIGKILL);  // forked session processes that outlived the listener
    group = 0;
  }

  QString StartPyftpdlib() {
    const QString script = QStringLiteral(VELMAR_PYFTPD_SERVER);
    if (!QFileInfo::exists(script)) return script + u" is missing"_s;
    QStringList arguments{script, u"--root"_s, root, u"--user"_s, user, u"--password"_s, password,
                          u"--until-stdin-closes"_s};
    if (kind == Kind::PyftpdlibTLS) {
      const QString openssl = FindProgram(u"openssl"_s);
      if (openssl.isEmpty()) return u"openssl is not installed"_s;
      // A fresh self-signed certificate, and its key in the same PEM file.
      const QString pem = temp.filePath(u"server.pem"_s);
      const QString error = RunTool(openssl, {u"req"_s, u"-x509"_s, u"-newkey"_s, u"rsa:2048"_s, u"-nodes"_s,
                                              u"-days"_s, u"2"_s, u"-subj"_s, u"/CN=localhost"_s,
                                              u"-keyout"_s, pem, u"-out"_s, pem});
      if (!error.isEmpty()) return error;
      arguments << u"--tls"_s << pem;
    }
    // The system's interpreter first: that is where the Debian packages install pyftpdlib,
    // while a python3 earlier on PATH (pyenv and the like) may lack it.
    QStringList interpreters;
    for (const QString& candidate : {u"/usr/bin/python3"_s, QStandardPaths::findExecutable(u"python3"_s)})
      if (QFileInfo(candidate).isExecutable() && !interpreters.contains(candidate)) interpreters << candidate;
    QString error = u"python3 is not installed"_s;
    for (const QString& interpreter : interpreters) {
      QString line;  // the first line on stdout: the port, or "error: ..."
      const auto up = [&](const QDeadlineTimer& deadline) {
        while (!process.canReadLine() && process.state() == QProcess::Running && !deadline.hasExpired())
          process.waitForReadyRead(std::clamp(int(deadline.remainingTime()), 1, 1000));
        line = process.canReadLine() ? QString::fromLocal8Bit(process.readLine()).trimmed() : QString();
        port = line.toUShort();
        return port > 0;
      };
      // Warnings and tracebacks of the server go to the test's own stderr.
      const QString name = u"pyftpdlib server (%1)"_s.arg(interpreter);
      error = Launch(name, interpreter, arguments, QProcess::ForwardedErrorChannel, up);
      if (error.isEmpty()) break;
      if (line.startsWith("error: "_L1)) error = u"pyftpdlib: "_s + line.mid(7);
    }
    return error;
  }

  QString StartVsftpd() {
    const QString vsftpd = u"/usr/sbin/vsftpd"_s;
    if (::geteuid() != 0) return u"vsftpd tests need root (they create a system user)"_s;
    if (!QFileInfo(vsftpd).isExecutable()) return u"vsftpd is not installed (/usr/sbin/vsftpd)"_s;
    const QString useradd = FindProgram(u"useradd"_s), chpasswd = FindProgram(u"chpasswd"_s);
    userdel = FindProgram(u"userdel"_s);
    if (useradd.isEmpty() || chpasswd.isEmpty() || userdel.isEmpty())
      return u"useradd, chpasswd or userdel is missing"_s;
    RemoveStaleUsers(userdel);

    // Unique per process and per server: tests may run in parallel.
    static int serial = 0;
    user = u"%1%2x%3"_s.arg(kUserPrefix).arg(QCoreApplication::applicationPid()).arg(++serial);
    QString error = RunTool(useradd, {u"-M"_s, u"-d"_s, root, u"-s"_s, u"/bin/bash"_s, user});
    if (!error.isEmpty()) return error;
    createdUser = user;
    // SHA-512 keeps a login cheap; the default yescrypt costs a lot of CPU per login.
    error = RunTool(chpasswd, {u"-c"_s, u"SHA512"_s}, (user + u':' + password + u'\n').toUtf8());
    // The user owns its home (it is the chroot); the folders above it must be traversable.
    if (error.isEmpty()) error = RunTool(u"chown"_s, {user + u':', root});
    if (!error.isEmpty()) return error;
    // The configuration shared with the demo and the benchmarks.
    QFile shared(QStringLiteral(VELMAR_VSFTPD_CONFIG));
    if (!shared.open(QIODevice::ReadOnly)) return u"cannot read %1"_s.arg(shared.fileName());
    const QByteArray configTemplate = shared.readAll();
    const QString emptyDir = temp.filePath(u"empty"_s);
    QDir().mkpath(emptyDir);
    for (const QString& dir : {temp.path(), emptyDir}) ::chmod(QFile::encodeName(dir).constData(), 0755);

    // The chosen port may be taken by someone else before vsftpd binds it: try a few.
    for (int attempt = 0; attempt < 3; ++attempt) {
      port = FreePort();
      if (port == 0) return u"no free port on 127.0.0.1"_s;
      QFile config(temp.filePath(u"vsftpd.conf"_s));
      if (!config.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
          config.write(QByteArray(configTemplate).replace("@PORT@", QByteArray::number(port))
                           .replace("@EMPTY_DIR@", QFile::encodeName(emptyDir))) < 0)
        return u"cannot write %1"_s.arg(config.fileName());
      config.close();
      // vsftpd does not tell when it listens: knock until it greets, or it exits.
      error = Launch(u"vsftpd"_s, vsftpd, {config.fileName()}, QProcess::MergedChannels, [&](const auto& deadline) {
        while (!deadline.hasExpired() && process.state() == QProcess::Running) {
          if (AnswersWithGreeting(port, deadline) && process.state() == QProcess::Running) return true;
          process.waitForFinished(50);
        }
        return false;
      });
      if (error.isEmpty()) break;
    }
    return error;
  }
};

RealFtpServer::RealFtpServer(Kind kind) : impl_(std::make_unique<Impl>(kind)) {}
RealFtpServer::~RealFtpServer() = default;

bool RealFtpServer::Started() const { return impl_->skipReason.isEmpty(); }
QString RealFtpServer::SkipReason() const { return impl_->skipReason; }
quint16 RealFtpServer::Port() const { return impl_->port; }
QString RealFtpServer::User() const { return impl_->user; }
QString RealFtpServer::Password() const { return impl_->password; }
QString RealFtpServer::Root() const { return impl_->root; }

bool RealFtpServer::HandOverRoot() const {
  if (impl_->kind != Kind::Vsftpd) return true;  // pyftpdlib runs as the owner of the files
  const QString error = RunTool(u"chown"_s, {u"-R"_s, impl_->user + u':', impl_->root});
  if (!error.isEmpty()) qWarning("chown: %s", qPrintable(error));
  return error.isEmpty();
}

}  // namespace velmar::test
