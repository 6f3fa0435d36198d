// Logon and Logoff against real servers: the TLS handshake, and the servers' own replies and closes.
#include "support/RealSession.h"

namespace velmar::test {
namespace {

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

// The server's certificate checked in the handshake: trusted through its own file; refused for a
// name it does not carry (an address is checked as an address), for a signer nobody trusts, and
// when the trusted certificates cannot be read, each with its reason after the TLS code; without
// the check, accepted as before.
struct VerifyRow {
  const char* name;
  const char* certificateName;
  const char* address;
  bool verify;
  const char* trusted;  // "server": the server's own certificate file
  const char* end;
};

const VerifyRow kVerifyRows[] = {
    {"TrustedThroughItsOwnFile", "localhost", "localhost", true, "server", "success\tLogon Complete."},
    {"AddressCheckedAsAnAddress", "localhost", "127.0.0.1", true, "server",
     "error\tError: 108 (certificate verify failed: IP address mismatch, expected \"127.0.0.1\")"},
    {"OtherName", "elsewhere.test", "localhost", true, "server",
     "error\tError: 108 (certificate verify failed: hostname mismatch, expected \"localhost\")"},
    {"UntrustedSigner", "localhost", "localhost", true, "",
     "error\tError: 108 (certificate verify failed: self-signed certificate)"},
    {"UnreadableTrustedFile", "localhost", "localhost", true, "/nonexistent/ca.pem",
     "error\tError: 108 (cannot read trusted certificates from \"/nonexistent/ca.pem\")"},
    {"UncheckedAsBefore", "elsewhere.test", "127.0.0.1", false, "", "success\tLogon Complete."},
};

class VerifiedLogon : public ::testing::TestWithParam<VerifyRow> {};

TEST_P(VerifiedLogon, EndsAsExpected) {
  const VerifyRow& row = GetParam();
  RealFtpServer server(Kind::PyftpdlibTLS, row.certificateName);
  if (!server.Started()) GTEST_SKIP() << server.SkipReason().toStdString();
  auto session = std::make_shared<FTPSessionClass>();
  const std::shared_ptr<QStringList> log = RecordingStatus::Attach(*session);
  session->SetLoginInfo(row.address, server.User(), server.Password());
  session->CommandPort = server.Port();
  session->FTPS = true;
  session->VerifyServerCertificate = row.verify;
  session->TrustedCertificateFile = QString(row.trusted) == "server" ? server.CertificateFile() : row.trusted;
  session->Logon();
  RunUntil([&] { return !RecordingStatus::Ends(*log).isEmpty(); }, 20000);
  EXPECT_EQ(RecordingStatus::Ends(*log).value(0), row.end) << log->join('\n').toStdString();
  EXPECT_EQ(session->CommandSocket->IsConnected(), QString(row.end).startsWith("success"));
  for (const QString& entry : *log) EXPECT_FALSE(entry.contains(server.Password())) << entry.toStdString();
}

INSTANTIATE_TEST_SUITE_P(Rows, VerifiedLogon, ::testing::ValuesIn(kVerifyRows),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmar::test
