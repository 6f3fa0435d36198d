// Checks the launchers of real servers: two servers of each kind come up side by side, each
// greets on its own port, and each goes away with its process, its folder and (vsftpd) its
// system account. Logging in to every kind, plain and TLS, is what the session's real-server
// tests do.
#include "support/RealFtpServer.h"

#include <QDir>
#include <QTcpSocket>
#include <gtest/gtest.h>

#include <pwd.h>

#include <array>

namespace velmar::test {
namespace {

using Kind = RealFtpServer::Kind;

class RealFtpServerTest : public ::testing::TestWithParam<Kind> {};

bool HasAccount(const QString& user) { return ::getpwnam(user.toLocal8Bit().constData()) != nullptr; }

TEST_P(RealFtpServerTest, TwoServersComeUpSideBySideAndGoAwayWithTheirDestructors) {
  const Kind kind = GetParam();
  struct Gone { quint16 port; QString root, user; };
  QList<Gone> gone;
  {
    RealFtpServer first(kind);
    if (!first.Started()) GTEST_SKIP() << first.SkipReason().toStdString();
    RealFtpServer second(kind);
    ASSERT_TRUE(second.Started()) << second.SkipReason().toStdString();
    EXPECT_NE(first.Port(), second.Port());
    EXPECT_TRUE(kind != Kind::Vsftpd || first.User() != second.User());
    for (const RealFtpServer* server : {&first, &second}) {
      gone.append({server->Port(), server->Root(), server->User()});
      EXPECT_TRUE(QDir(server->Root()).exists());
      EXPECT_TRUE(kind != Kind::Vsftpd || HasAccount(server->User()));
      QTcpSocket control;  // blocking waits, bounded: the server runs in its own process
      control.connectToHost(QHostAddress::LocalHost, server->Port());
      EXPECT_TRUE(control.waitForReadyRead(10000) && control.readAll().startsWith("220"));
    }
  }
  for (const Gone& server : gone) {
    QTcpSocket probe;
    probe.connectToHost(QHostAddress::LocalHost, server.port);
    EXPECT_FALSE(probe.waitForConnected(5000));
    EXPECT_EQ(probe.error(), QAbstractSocket::ConnectionRefusedError);
    EXPECT_FALSE(QDir(server.root).exists());
    EXPECT_TRUE(kind != Kind::Vsftpd || !HasAccount(server.user));
  }
}

std::string KindName(const ::testing::TestParamInfo<Kind>& info) {
  return std::array{"Pyftpdlib", "TLS", "Vsftpd"}[static_cast<int>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Kinds, RealFtpServerTest, ::testing::Values(Kind::Pyftpdlib, Kind::PyftpdlibTLS, Kind::Vsftpd),
                         KindName);

}  // namespace
}  // namespace velmar::test
