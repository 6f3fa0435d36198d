#include "support/RealFtpServer.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace velmar::test {

namespace {

constexpr int kStartTimeoutMs = 10000;

QString RandomText(int length) {
  static const char alphabet[] = "abcdefghijkmnopqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789";
  QString text;
  for (int i = 0; i < length; ++i)
    text += QLatin1Char(alphabet[QRandomGenerator::system()->bounded(int(sizeof alphabet - 1))]);
  return text;
}

QString FirstLine(const QByteArray& output) {
  const QString text = QString::fromLocal8Bit(output).trimmed();
  return text.section(u'\n', 0, 0).trimmed();
}

// Runs a short helper program to its end; returns an error text, or empty on success.
QString RunTool(const QString& program, const QStringList& arguments, const QByteArray& input = {}) {
  QProcess process;
  process.setProcessChannelMode(QProcess::MergedChannels);
  process.start(program, arguments);
  if (!process.waitForStarted(5000)) return QStringLiteral("cannot run %1: %2").arg(program, process.errorString());
  if (!input.isEmpty()) process.write(input);
  process.closeWriteChannel();
  if (!process.waitForFinished(30000)) {
    process.kill();
    process.waitForFinished(2000);
    return QStringLiteral("%1 did not finish").arg(program);
  }
  if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
    return QStringLiteral("%1 failed: %2").arg(program, FirstLine(process.readAll()));
  return {};
}

// useradd and userdel lock /etc/passwd; tests running in parallel may hold it for a moment.
QString RunAccountTool(const QString& program, const QStringList& arguments, const QByteArray& input = {}) {
  QString error;
  for (int attempt = 0; attempt < 20; ++attempt) {
    error = RunTool(program, arguments, input);
    if (error.isEmpty() || !error.contains(QLatin1String("lock"), Qt::CaseInsensitive)) return error;
    QThread::msleep(100);
  }
  return error;
}

QString FindProgram(const QString& name, const QStringList& extraPaths = {}) {
  QString path = QStandardPaths::findExecutable(name);
  if (path.isEmpty()) path = QStandardPaths::findExecutable(name, extraPaths);
  return path;
}

// A port that was free a moment ago, for servers that cannot be told to pick one.
quint16 FreePort() {
  QTcpServer probe;
  if (!probe.listen(QHostAddress::LocalHost, 0)) return 0;
  return probe.serverPort();
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
const QString kUserPrefix = QStringLiteral("velmarftp");

void RemoveStaleUsers(const QString& userdel) {
  QFile passwd(QStringLiteral("/etc/passwd"));
  if (!passwd.open(QIODevice::ReadOnly)) return;
  const QList<QByteArray> lines = passwd.readAll().split('\n');
  for (const QByteArray& line : lines) {
    const QString name = QString::fromLatin1(line.left(line.indexOf(':')));
    if (!name.startsWith(kUserPrefix)) continue;
    const QString pid = name.mid(kUserPrefix.size()).section(u'x', 0, 0);
    bool ok = false;
    pid.toLongLong(&ok);
    if (ok && !QFileInfo::exists(QStringLiteral("/proc/") + pid))
      RunAccountTool(userdel, {QStringLiteral("-f"), name});
  }
}

}  // namespace

struct RealFtpServer::Impl {
  Kind kind;
  bool started = false;
  QString skipReason;
  quint16 port = 0;
  QString user;
  QString password;
  QString root;
  QString createdUser;  // a system account to remove again (vsftpd)
  QString userdel;
  QTemporaryDir temp{QDir::tempPath() + QStringLiteral("/velmar-ftp-XXXXXX")};
  QProcess process;
  pid_t group = 0;  // the server's process group while it runs

  explicit Impl(Kind k) : kind(k) {
    password = RandomText(16);
    if (!temp.isValid()) {
      skipReason = QStringLiteral("cannot create a temporary folder: %1").arg(temp.errorString());
      return;
    }
    root = temp.path() + QStringLiteral("/home");
    if (!QDir().mkpath(root)) {
      skipReason = QStringLiteral("cannot create %1").arg(root);
      return;
    }
    if (kind == Kind::Vsftpd)
      StartVsftpd();
    else
      StartPyftpdlib();
  }

  ~Impl() {
    Stop();
    if (!createdUser.isEmpty()) RunAccountTool(userdel, {QStringLiteral("-f"), createdUser});
  }

  // The server and whatever it forked run in a process group of their own, so it can be stopped
  // whole; and they get SIGTERM should this process die without running its destructors.
  void PrepareProcess() {
    process.setChildProcessModifier([] {
      ::setpgid(0, 0);
      ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    });
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

  bool StartProcess(const QString& program, const QStringList& arguments) {
    process.start(program, arguments);
    if (!process.waitForStarted(5000)) return false;
    group = static_cast<pid_t>(process.processId());
    return true;
  }

  // ---- pyftpdlib

  void StartPyftpdlib() {
    user = QStringLiteral("tester");
    const QString script = QStringLiteral(VELMAR_TEST_SUPPORT_DIR "/pyftpd_server.py");
    if (!QFileInfo::exists(script)) {
      skipReason = QStringLiteral("%1 is missing").arg(script);
      return;
    }
    QStringList arguments{script,
                          QStringLiteral("--root"), root,
                          QStringLiteral("--user"), user,
                          QStringLiteral("--password"), password,
                          QStringLiteral("--passive-ports"), QStringLiteral("29000-29999")};
    if (kind == Kind::PyftpdlibTLS) {
      const QString certificate = MakeCertificate();
      if (certificate.isEmpty()) return;
      arguments << QStringLiteral("--tls") << certificate;
    }
    // The system's interpreter first: that is where the Debian packages install pyftpdlib,
    // while a python3 earlier on PATH (pyenv and the like) may lack it.
    QStringList interpreters;
    if (QFileInfo(QStringLiteral("/usr/bin/python3")).isExecutable()) interpreters << QStringLiteral("/usr/bin/python3");
    const QString onPath = FindProgram(QStringLiteral("python3"));
    if (!onPath.isEmpty() && !interpreters.contains(onPath)) interpreters << onPath;
    if (interpreters.isEmpty()) {
      skipReason = QStringLiteral("python3 is not installed");
      return;
    }
    for (const QString& interpreter : interpreters) {
      skipReason.clear();
      if (StartPyftpdlibWith(interpreter, arguments)) {
        started = true;
        return;
      }
    }
  }

  bool StartPyftpdlibWith(const QString& interpreter, const QStringList& arguments) {
    PrepareProcess();
    // Warnings and tracebacks of the server go to the test's own stderr.
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    if (!StartProcess(interpreter, arguments)) {
      skipReason = QStringLiteral("cannot run %1: %2").arg(interpreter, process.errorString());
      return false;
    }
    // The first line on stdout is the port, or "error: ...".
    const QDeadlineTimer deadline(kStartTimeoutMs);
    QByteArray output;
    while (!output.contains('\n') && !deadline.hasExpired()) {
      if (!process.waitForReadyRead(std::clamp(int(deadline.remainingTime()), 1, 1000)) &&
          process.state() == QProcess::NotRunning)
        break;
      output += process.readAllStandardOutput();
    }
    const QString line = FirstLine(output);
    bool ok = false;
    const uint number = line.toUInt(&ok);
    if (ok && number > 0 && number < 65536 && output.contains('\n')) {
      port = static_cast<quint16>(number);
      return true;
    }
    if (line.startsWith(QLatin1String("error: ")))
      skipReason = QStringLiteral("pyftpdlib: %1").arg(line.mid(7));
    else if (process.state() == QProcess::NotRunning)
      skipReason = QStringLiteral("pyftpdlib server exited at start (%1, exit code %2)").arg(interpreter).arg(process.exitCode());
    else
      skipReason = QStringLiteral("pyftpdlib server did not come up within %1 s").arg(kStartTimeoutMs / 1000);
    Stop();
    return false;
  }

  // A fresh self-signed certificate and its key, in one PEM file.
  QString MakeCertificate() {
    const QString openssl = FindProgram(QStringLiteral("openssl"));
    if (openssl.isEmpty()) {
      skipReason = QStringLiteral("openssl is not installed");
      return {};
    }
    const QString key = temp.filePath(QStringLiteral("key.pem"));
    const QString cert = temp.filePath(QStringLiteral("cert.pem"));
    const QString error = RunTool(openssl, {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                                            QStringLiteral("rsa:2048"), QStringLiteral("-nodes"), QStringLiteral("-days"),
                                            QStringLiteral("2"), QStringLiteral("-subj"), QStringLiteral("/CN=localhost"),
                                            QStringLiteral("-keyout"), key, QStringLiteral("-out"), cert});
    if (!error.isEmpty()) {
      skipReason = error;
      return {};
    }
    QFile keyFile(key), certFile(cert);
    QFile both(temp.filePath(QStringLiteral("server.pem")));
    if (!keyFile.open(QIODevice::ReadOnly) || !certFile.open(QIODevice::ReadOnly) ||
        !both.open(QIODevice::WriteOnly) || both.write(certFile.readAll() + keyFile.readAll()) < 0) {
      skipReason = QStringLiteral("cannot write the certificate file");
      return {};
    }
    return both.fileName();
  }

  // ---- vsftpd

  void StartVsftpd() {
    const QString vsftpd = QStringLiteral("/usr/sbin/vsftpd");
    if (::geteuid() != 0) {
      skipReason = QStringLiteral("vsftpd tests need root (they create a system user)");
      return;
    }
    if (!QFileInfo(vsftpd).isExecutable()) {
      skipReason = QStringLiteral("vsftpd is not installed (/usr/sbin/vsftpd)");
      return;
    }
    const QStringList sbin{QStringLiteral("/usr/sbin"), QStringLiteral("/sbin")};
    const QString useradd = FindProgram(QStringLiteral("useradd"), sbin);
    const QString chpasswd = FindProgram(QStringLiteral("chpasswd"), sbin);
    userdel = FindProgram(QStringLiteral("userdel"), sbin);
    if (useradd.isEmpty() || chpasswd.isEmpty() || userdel.isEmpty()) {
      skipReason = QStringLiteral("useradd, chpasswd or userdel is missing");
      return;
    }
    RemoveStaleUsers(userdel);

    // Unique per process and per server: tests may run in parallel.
    static int serial = 0;
    user = QStringLiteral("%1%2x%3").arg(kUserPrefix).arg(QCoreApplication::applicationPid()).arg(++serial);
    QString error = RunAccountTool(useradd, {QStringLiteral("-M"), QStringLiteral("-d"), root, QStringLiteral("-s"),
                                             QStringLiteral("/bin/bash"), user});
    if (!error.isEmpty()) {
      skipReason = error;
      return;
    }
    createdUser = user;
    // SHA-512 keeps a login cheap; the default yescrypt costs a lot of CPU per login.
    error = RunAccountTool(chpasswd, {QStringLiteral("-c"), QStringLiteral("SHA512")},
                           (user + u':' + password + u'\n').toUtf8());
    if (!error.isEmpty()) {
      skipReason = error;
      return;
    }
    // The user owns its home (it is the chroot); the folders above it must be traversable.
    QFile::setPermissions(temp.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
                                           QFileDevice::ReadGroup | QFileDevice::ExeGroup |
                                           QFileDevice::ReadOther | QFileDevice::ExeOther);
    error = RunTool(QStringLiteral("chown"), {user + QStringLiteral(":"), root});
    if (!error.isEmpty()) {
      skipReason = error;
      return;
    }
    const QString emptyDir = temp.filePath(QStringLiteral("empty"));
    QDir().mkpath(emptyDir);
    QFile::setPermissions(emptyDir, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
                                        QFileDevice::ReadGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther |
                                        QFileDevice::ExeOther);

    // The chosen port may be taken by someone else before vsftpd binds it: try a few.
    for (int attempt = 0; attempt < 3 && !started; ++attempt) {
      skipReason.clear();
      port = FreePort();
      if (port == 0) {
        skipReason = QStringLiteral("no free port on 127.0.0.1");
        return;
      }
      const QString config = temp.filePath(QStringLiteral("vsftpd.conf"));
      QFile file(config);
      if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        skipReason = QStringLiteral("cannot write %1").arg(config);
        return;
      }
      file.write(VsftpdConfig(emptyDir).toUtf8());
      file.close();

      PrepareProcess();
      process.setProcessChannelMode(QProcess::MergedChannels);
      if (!StartProcess(vsftpd, {config})) {
        skipReason = QStringLiteral("cannot run vsftpd: %1").arg(process.errorString());
        return;
      }
      // vsftpd does not tell when it listens: knock until it greets, or it exits.
      const QDeadlineTimer deadline(kStartTimeoutMs);
      while (!deadline.hasExpired() && process.state() == QProcess::Running) {
        if (AnswersWithGreeting(port, deadline) && process.state() == QProcess::Running) {
          started = true;
          break;
        }
        process.waitForFinished(50);
      }
      if (!started) {
        const QString output = FirstLine(process.readAll());
        skipReason = process.state() == QProcess::Running
                         ? QStringLiteral("vsftpd did not come up within %1 s").arg(kStartTimeoutMs / 1000)
                         : QStringLiteral("vsftpd exited at start: %1").arg(output.isEmpty() ? QStringLiteral("no output") : output);
        Stop();
      }
    }
  }

  QString VsftpdConfig(const QString& emptyDir) const {
    QStringList lines{
        QStringLiteral("listen=YES"),
        QStringLiteral("listen_ipv6=NO"),
        QStringLiteral("background=NO"),
        QStringLiteral("listen_address=127.0.0.1"),
        QStringLiteral("listen_port=%1").arg(port),
        QStringLiteral("anonymous_enable=NO"),
        QStringLiteral("local_enable=YES"),
        QStringLiteral("write_enable=YES"),
        QStringLiteral("local_umask=022"),
        // Its seccomp filter kills sessions on Debian 12's glibc (newfstatat).
        QStringLiteral("seccomp_sandbox=NO"),
        // A network namespace per login makes every login slow.
        QStringLiteral("isolate_network=NO"),
        QStringLiteral("pam_service_name=vsftpd"),
        QStringLiteral("secure_chroot_dir=%1").arg(emptyDir),
        QStringLiteral("chroot_local_user=YES"),
        QStringLiteral("allow_writeable_chroot=YES"),
        QStringLiteral("pasv_enable=YES"),
        // Below the ephemeral range: ports in TIME_WAIT there make PASV fail.
        QStringLiteral("pasv_min_port=31000"),
        QStringLiteral("pasv_max_port=31999"),
        QStringLiteral("port_enable=YES"),
        QStringLiteral("connect_from_port_20=NO"),
        QStringLiteral("xferlog_enable=NO"),
        QStringLiteral("dirmessage_enable=NO"),
        QStringLiteral("use_localtime=NO"),
        // Its own pause after a wrong password (PAM adds another): tests of refusals stay short.
        QStringLiteral("delay_failed_login=0"),
        QStringLiteral("max_per_ip=0"),
        QStringLiteral("max_clients=0"),
    };
    return lines.join(u'\n') + u'\n';
  }
};

RealFtpServer::RealFtpServer(Kind kind) : impl_(std::make_unique<Impl>(kind)) {}
RealFtpServer::~RealFtpServer() = default;

bool RealFtpServer::Started() const { return impl_->started; }
QString RealFtpServer::SkipReason() const { return impl_->skipReason; }
quint16 RealFtpServer::Port() const { return impl_->port; }
QString RealFtpServer::User() const { return impl_->user; }
QString RealFtpServer::Password() const { return impl_->password; }
QString RealFtpServer::Root() const { return impl_->root; }

bool RealFtpServer::HandOverRoot() const {
  if (impl_->kind != Kind::Vsftpd) return true;  // pyftpdlib runs as the owner of the files
  const QString error = RunTool(QStringLiteral("chown"), {QStringLiteral("-R"), impl_->user + QStringLiteral(":"), impl_->root});
  if (!error.isEmpty()) qWarning("chown: %s", qPrintable(error));
  return error.isEmpty();
}

}  // namespace velmar::test
