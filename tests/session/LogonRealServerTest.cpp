// Logon and Logoff against real servers started on loopback by the test.
#include "session/FTPCommandSocket.h"
#include "session/FTPSessionClass.h"
#include "support/RealFtpServer.h"
#include "support/RecordingStatus.h"
#include "support/TestEventLoop.h"

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

constexpr auto Ends = &RecordingStatus::Ends;

class RealLogon : public ::testing::TestWithParam<RealFtpServer::Kind> {};

TEST_P(RealLogon, LogsOnAndOffAndHidesThePassword) {
  RealFtpServer server(GetParam());
  if (!server.Started()) GTEST_SKIP() << server.SkipReason().toStdString();
  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->SetLoginInfo("127.0.0.1", server.User(), server.Password());
  session->CommandPort = server.Port();
  session->FTPS = GetParam() == RealFtpServer::Kind::PyftpdlibTLS;

  session->Logon();
  ASSERT_TRUE(RunUntil([&] { return !Ends(*log).isEmpty(); }));
  ASSERT_EQ(Ends(*log), QStringList{"success\tLogon Complete."}) << log->join('\n').toStdString();
  EXPECT_EQ(session->CommandSocket->SSLConnected(), session->FTPS);
  for (const QString& entry : *log) EXPECT_FALSE(entry.contains(server.Password())) << entry.toStdString();
  EXPECT_TRUE(log->contains("response\tPASS"));
  if (session->FTPS) {
    const int auth = log->indexOf("status\t\"Sending AUTH\"");
    const int pbsz = log->indexOf("status\tSending PBSZ");
    const int prot = log->indexOf("status\tSending PROT");
    EXPECT_TRUE(auth >= 0 && auth < pbsz && pbsz < prot) << log->join('\n').toStdString();
  }

  session->Logoff();
  ASSERT_TRUE(RunUntil([&] { return Ends(*log).size() == 2; }));
  EXPECT_EQ(Ends(*log).last(), "success\tLogoff Complete.");
  // The server closes after QUIT, silently for the session.
  ASSERT_TRUE(RunUntil([&] { return !session->CommandSocket->IsConnected(); }));
  RunFor(50);
  EXPECT_EQ(Ends(*log).size(), 2);
}

TEST_P(RealLogon, WrongPasswordEndsInTheErrorBranch) {
  RealFtpServer server(GetParam());
  if (!server.Started()) GTEST_SKIP() << server.SkipReason().toStdString();
  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->SetLoginInfo("127.0.0.1", server.User(), "not-" + server.Password());
  session->CommandPort = server.Port();
  session->FTPS = GetParam() == RealFtpServer::Kind::PyftpdlibTLS;
  session->Logon();
  // Servers may delay a failed login on purpose: allow for it.
  ASSERT_TRUE(RunUntil([&] { return !Ends(*log).isEmpty(); }, 20000));
  EXPECT_TRUE(Ends(*log).first().startsWith("error\tError: 530")) << Ends(*log).first().toStdString();
}

INSTANTIATE_TEST_SUITE_P(Servers, RealLogon,
                         ::testing::Values(RealFtpServer::Kind::Pyftpdlib, RealFtpServer::Kind::PyftpdlibTLS,
                                           RealFtpServer::Kind::Vsftpd),
                         [](const auto& info) {
                           switch (info.param) {
                             case RealFtpServer::Kind::Pyftpdlib: return std::string("pyftpdlib");
                             case RealFtpServer::Kind::PyftpdlibTLS: return std::string("pyftpdlib_tls");
                             default: return std::string("vsftpd");
                           }
                         });

}  // namespace
}  // namespace velmar::test
