// Checks the launchers of real servers with a raw FTP conversation over Qt sockets: each server
// comes up, knows the user and password it was given, serves the folder Root() names, stores
// uploads there, and goes away with its process (and, for vsftpd, its system account).
#include "support/RealFtpServer.h"
#include "support/TestEventLoop.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSslSocket>
#include <QTcpSocket>
#include <gtest/gtest.h>

#include <pwd.h>

namespace velmar::test {
namespace {

// A minimal FTP conversation: send a command, wait for its final reply line. An SSL socket,
// so that the same conversation can go on encrypted after AUTH TLS.
class RawFtp {
public:
  explicit RawFtp(quint16 port) {
    QObject::connect(&socket_, &QSslSocket::readyRead, [this] { buffer_ += socket_.readAll(); });
    socket_.connectToHost(QHostAddress::LocalHost, port);
  }
  ~RawFtp() { QObject::disconnect(&socket_, nullptr, nullptr, nullptr); }

  // The final line of the next reply ("230 Login successful."), or "" after 10 s.
  QString Reply() {
    static const QRegularExpression finalLine(QStringLiteral("^\\d{3} "));
    QString line;
    RunUntil(
        [&] {
          for (qsizetype end; (end = buffer_.indexOf("\r\n")) >= 0;) {
            const QString text = QString::fromLatin1(buffer_.left(end));
            buffer_.remove(0, end + 2);
            if (finalLine.match(text).hasMatch()) {
              line = text;
              return true;
            }
          }
          return false;
        },
        10000);
    return line;
  }
  QString Command(const QString& command) {
    socket_.write(command.toLatin1() + "\r\n");
    socket_.flush();
    return Reply();
  }
  bool Login(const QString& user, const QString& password) {
    return Command("USER " + user).startsWith("331") && Command("PASS " + password).startsWith("230");
  }

  QSslSocket& Socket() { return socket_; }

private:
  QSslSocket socket_;
  QByteArray buffer_;
};

using Kind = RealFtpServer::Kind;

// Every kind of server stops with its destructor; a server that cannot run here skips.
void StopsWithItsDestructor(Kind kind) {
  quint16 port = 0;
  QString root;
  {
    RealFtpServer server(kind);
    if (!server.Started()) GTEST_SKIP() << server.SkipReason().toStdString();
    port = server.Port();
    root = server.Root();
    ASSERT_TRUE(QDir(root).exists());
  }
  QTcpSocket probe;
  QAbstractSocket::SocketError error = QAbstractSocket::UnknownSocketError;
  QObject::connect(&probe, &QTcpSocket::errorOccurred, [&](QAbstractSocket::SocketError e) { error = e; });
  probe.connectToHost(QHostAddress::LocalHost, port);
  ASSERT_TRUE(RunUntil([&] { return error != QAbstractSocket::UnknownSocketError || probe.state() == QAbstractSocket::ConnectedState; }, 5000));
  EXPECT_EQ(error, QAbstractSocket::ConnectionRefusedError);
  EXPECT_FALSE(QDir(root).exists());
}

TEST(RealFtpServerPyftpdlib, StopsWithItsDestructor) { StopsWithItsDestructor(Kind::Pyftpdlib); }

TEST(RealFtpServerTLS, StopsWithItsDestructor) { StopsWithItsDestructor(Kind::PyftpdlibTLS); }

TEST(RealFtpServerVsftpd, StopsWithItsDestructor) { StopsWithItsDestructor(Kind::Vsftpd); }

TEST(RealFtpServerTLS, UpgradesAfterAuthTlsAndLogsInEncrypted) {
  RealFtpServer server(RealFtpServer::Kind::PyftpdlibTLS);
  if (!server.Started()) GTEST_SKIP() << server.SkipReason().toStdString();
  RawFtp ftp(server.Port());
  ASSERT_TRUE(ftp.Reply().startsWith("220"));
  ASSERT_TRUE(ftp.Command("AUTH TLS").startsWith("234"));
  QSslSocket& socket = ftp.Socket();
  // The certificate is self-signed, made for this run.
  socket.setPeerVerifyMode(QSslSocket::VerifyNone);
  socket.startClientEncryption();
  ASSERT_TRUE(RunUntil([&] { return socket.isEncrypted() || socket.state() != QAbstractSocket::ConnectedState; },
                       10000));
  ASSERT_TRUE(socket.isEncrypted());
  EXPECT_EQ(socket.peerCertificate().subjectInfo(QSslCertificate::CommonName), QStringList{"localhost"});
  EXPECT_TRUE(ftp.Login(server.User(), server.Password()));
}

TEST(RealFtpServerVsftpd, EachServerHasItsOwnAccountRemovedAtTheEnd) {
  QString firstUser, secondUser;
  {
    RealFtpServer first(RealFtpServer::Kind::Vsftpd);
    if (!first.Started()) GTEST_SKIP() << first.SkipReason().toStdString();
    RealFtpServer second(RealFtpServer::Kind::Vsftpd);
    ASSERT_TRUE(second.Started()) << second.SkipReason().toStdString();
    firstUser = first.User();
    secondUser = second.User();
    EXPECT_NE(firstUser, secondUser);
    EXPECT_NE(first.Port(), second.Port());
    EXPECT_NE(getpwnam(firstUser.toLocal8Bit().constData()), nullptr);

    for (RealFtpServer* server : {&first, &second}) {
      RawFtp ftp(server->Port());
      ASSERT_TRUE(ftp.Reply().startsWith("220"));
      EXPECT_TRUE(ftp.Login(server->User(), server->Password()));
    }
  }
  EXPECT_EQ(getpwnam(firstUser.toLocal8Bit().constData()), nullptr);
  EXPECT_EQ(getpwnam(secondUser.toLocal8Bit().constData()), nullptr);
}

}  // namespace
}  // namespace velmar::test
