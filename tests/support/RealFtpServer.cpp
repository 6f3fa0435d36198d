#include "support/RealFtpServer.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUuid>

#include <csignal>
#include <sys/prctl.h>

namespace velmar::test {

using namespace Qt::StringLiterals;

namespace {

QString FirstLine(const QByteArray& output) {
  return QString::fromLocal8Bit(output).trimmed().section(u'\n', 0, 0).trimmed();
}

// Runs a short helper program to its end; returns its complaint, or empty on success.
QString RunTool(const QString& program, const QStringList& arguments) {
  QProcess process;
  process.setProcessChannelMode(QProcess::MergedChannels);
  process.start(program, arguments);
  if (!process.waitForStarted(5000)) return u"cannot run %1: %2"_s.arg(program, process.errorString());
  if (!process.waitForFinished(30000)) return u"%1 did not finish"_s.arg(program);  // killed by ~QProcess
  if (process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0) return {};
  return u"%1 failed: %2"_s.arg(program, FirstLine(process.readAll()));
}

}  // namespace

// The server runs in the launcher shared with the demo and the benchmarks, which makes vsftpd's
// system account, finds a free port, says "PORT USER" once the server greets, and cleans up
// when its stdin closes (or when this process dies: it gets SIGTERM then).
struct RealFtpServer::Impl {
  Kind kind;
  QString certificateName;
  QString certificateFile;
  QString skipReason;  // empty once the server runs
  quint16 port = 0;
  QString user;
  QString password = QUuid::createUuid().toString(QUuid::Id128);  // 32 hex digits, 122 of their bits random
  QString root;
  QTemporaryDir temp{QDir::tempPath() + u"/velmar-ftp-XXXXXX"_s};
  QProcess process;

  Impl(Kind k, const QString& name) : kind(k), certificateName(name) {
    root = temp.isValid() ? temp.filePath(u"home"_s) : QString();
    if (root.isEmpty())
      skipReason = u"cannot create a temporary folder: %1"_s.arg(temp.errorString());
    else if (!QDir().mkpath(root))
      skipReason = u"cannot create %1"_s.arg(root);
    else if (!QFile::setPermissions(temp.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                                     QFile::ExeGroup | QFile::ExeOther))  // vsftpd's user walks through
      skipReason = u"cannot open %1 to others"_s.arg(temp.path());
    else
      skipReason = Start();
  }

  ~Impl() {
    // The launcher stops the server and removes the account before it exits.
    process.closeWriteChannel();
    if (!process.waitForFinished(15000)) process.kill();
  }

  QString Start() {
    const bool vsftpd = kind == Kind::Vsftpd || kind == Kind::VsftpdTLSData;
    QStringList arguments{QStringLiteral(VELMAR_LOCAL_FTP_SERVER), vsftpd ? u"vsftpd"_s : u"pyftpdlib"_s,
                          u"--root"_s, root, u"--password"_s, password, u"--until-stdin-closes"_s};
    if (kind != Kind::Pyftpdlib && kind != Kind::Vsftpd) {
      // A fresh self-signed certificate, and its key in the same PEM file.
      const QString pem = temp.filePath(u"server.pem"_s);
      const QString error = RunTool(u"openssl"_s, {u"req"_s, u"-x509"_s, u"-newkey"_s, u"rsa:2048"_s, u"-nodes"_s,
                                                   u"-days"_s, u"2"_s, u"-subj"_s, u"/CN="_s + certificateName,
                                                   u"-keyout"_s, pem, u"-out"_s, pem});
      if (!error.isEmpty()) return error;
      certificateFile = pem;
      arguments << u"--tls"_s << pem;
      if (kind != Kind::PyftpdlibTLS) arguments << u"--tls-data-required"_s;
    }
    // The system's interpreter first: that is where the Debian packages install pyftpdlib,
    // while a python3 earlier on PATH (pyenv and the like) may lack it.
    const QString python = QFileInfo(u"/usr/bin/python3"_s).isExecutable()
                               ? u"/usr/bin/python3"_s : QStandardPaths::findExecutable(u"python3"_s);
    if (python.isEmpty()) return u"python3 is not installed"_s;
    process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);  // its warnings go to the test's stderr
    process.start(python, arguments);
    if (!process.waitForStarted(5000)) return u"cannot run %1: %2"_s.arg(python, process.errorString());
    const QDeadlineTimer deadline(40000);  // three tries of vsftpd's start, and a new account
    while (!process.canReadLine() && process.state() == QProcess::Running && !deadline.hasExpired())
      process.waitForReadyRead(std::clamp(int(deadline.remainingTime()), 1, 1000));
    const QString line = QString::fromLocal8Bit(process.readLine()).trimmed();
    port = line.section(u' ', 0, 0).toUShort();
    user = line.section(u' ', 1);
    if (port > 0 && !user.isEmpty()) return {};
    if (line.startsWith("error: "_L1)) return line.mid(7);
    return line.isEmpty() ? u"the server did not start within 40 s"_s : line;
  }
};

RealFtpServer::RealFtpServer(Kind kind, const QString& certificateName)
    : impl_(std::make_unique<Impl>(kind, certificateName)) {}
RealFtpServer::~RealFtpServer() = default;

bool RealFtpServer::Started() const { return impl_->skipReason.isEmpty(); }
QString RealFtpServer::SkipReason() const { return impl_->skipReason; }
quint16 RealFtpServer::Port() const { return impl_->port; }
QString RealFtpServer::User() const { return impl_->user; }
QString RealFtpServer::Password() const { return impl_->password; }
QString RealFtpServer::Root() const { return impl_->root; }
QString RealFtpServer::CertificateFile() const { return impl_->certificateFile; }

bool RealFtpServer::HandOverRoot() const {
  if (impl_->kind != Kind::Vsftpd && impl_->kind != Kind::VsftpdTLSData) return true;  // pyftpdlib runs as the owner of the files
  const QString error = RunTool(u"chown"_s, {u"-R"_s, impl_->user + u':', impl_->root});
  if (!error.isEmpty()) qWarning("chown: %s", qPrintable(error));
  return error.isEmpty();
}

}  // namespace velmar::test
