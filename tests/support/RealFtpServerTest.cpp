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
#include <optional>

namespace velmar::test {
namespace {

using Kind = RealFtpServer::Kind;

class RealFtpServerTest : public ::testing::TestWithParam<Kind> {};

bool HasAccount(const QString& user) { return ::getpwnam(user.toLocal8Bit().constData()) != nullptr; }

TEST_P(RealFtpServerTest, TwoServersComeUpSideBySideAndGoAwayWithTheirDestructors) {
  const Kind kind = GetParam();
  std::optional<RealFtpServer> servers[2];
  servers[0].emplace(kind);
  if (!servers[0]->Started()) GTEST_SKIP() << servers[0]->SkipReason().toStdString();
  servers[1].emplace(kind);
  ASSERT_TRUE(servers[1]->Started()) << servers[1]->SkipReason().toStdString();
  EXPECT_NE(servers[0]->Port(), servers[1]->Port());
  EXPECT_TRUE(kind != Kind::Vsftpd || servers[0]->User() != servers[1]->User());
  // One after the other, each greets and then goes away with its destructor; the second still
  // greets once the first has gone.
  for (auto& server : servers) {
    const quint16 port = server->Port();
    const QString root = server->Root(), user = server->User();
    EXPECT_TRUE(QDir(root).exists());
    EXPECT_TRUE(kind != Kind::Vsftpd || HasAccount(user));
    QTcpSocket socket;  // blocking waits, bounded: the server runs in its own process
    socket.connectToHost(QHostAddress::LocalHost, port);
    EXPECT_TRUE(socket.waitForReadyRead(10000) && socket.readAll().startsWith("220"));
    socket.abort();
    server.reset();
    socket.connectToHost(QHostAddress::LocalHost, port);
    EXPECT_FALSE(socket.waitForConnected(5000));
    EXPECT_EQ(socket.error(), QAbstractSocket::ConnectionRefusedError);
    EXPECT_FALSE(QDir(root).exists());
    EXPECT_TRUE(kind != Kind::Vsftpd || !HasAccount(user));
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, RealFtpServerTest, ::testing::Values(Kind::Pyftpdlib, Kind::PyftpdlibTLS, Kind::Vsftpd),
                         [](const auto& info) {
                           return std::string(std::array{"Pyftpdlib", "TLS", "Vsftpd"}[int(info.param)]);
                         });

}  // namespace
}  // namespace velmar::test
