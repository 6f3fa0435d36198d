// Logon and Logoff against real servers: the TLS handshake, and the servers' own replies and closes.
#include "session/RealSession.h"

namespace velmar::test {
namespace {

using Kind = RealFtpServer::Kind;
using RealLogon = RealSession;

// The fixture has logged on and checked the reports.
TEST_P(RealLogon, LogsOnAndOff) {
  EXPECT_EQ(Run(&S::Logoff), "success\tLogoff Complete.");
  // The server closes after QUIT, silently for the session.
  ASSERT_TRUE(RunUntil([&] { return !session->CommandSocket->IsConnected(); }));
  RunFor(50);
  EXPECT_EQ(RecordingStatus::Ends(*log).size(), 2);
}

INSTANTIATE_TEST_SUITE_P(Servers, RealLogon, ::testing::Values(Kind::Pyftpdlib, Kind::PyftpdlibTLS, Kind::Vsftpd),
                         ServerName);

}  // namespace
}  // namespace velmar::test
