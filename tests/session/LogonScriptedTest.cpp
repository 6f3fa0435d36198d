// Logon and Logoff against the scripted server: exact command sequences and report
// streams, reply shapes a real server will not produce, and connection failures.
#include "session/FTPCommandSocket.h"
#include "session/FTPConnectionTimer.h"
#include "session/FTPSessionClass.h"
#include "support/RecordingStatus.h"
#include "support/ScriptedFtpServer.h"
#include "support/TestEventLoop.h"

#include <QTcpServer>

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace velmar::test {
namespace {

constexpr auto Ends = &RecordingStatus::Ends;

struct LogonFixture : ::testing::Test {
  ScriptedFtpServer server;
  std::shared_ptr<FTPSessionClass> session = std::make_shared<FTPSessionClass>();
  std::shared_ptr<QStringList> log = RecordingStatus::Attach(*session);

  void SetUp() override {
    session->SetLoginInfo("127.0.0.1", "alice", "s3cret");
    session->CommandPort = server.Port();
  }
  bool WaitForEnd(int count = 1, int timeoutMs = 10000) {
    return RunUntil([&] { return Ends(*log).size() >= count; }, timeoutMs);
  }
};

TEST_F(LogonFixture, PlainLogonSendsUserAndPassAndEndsQuietly) {
  server.OnConnect({Line("220 Scripted server ready")})
      .Expect("USER alice", {Line("331 Password please")})
      .Expect("PASS s3cret", {Line("230 Welcome")});
  session->Logon();
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(*log, (QStringList{"response\t", "status\tSend Logon Command", "response\t220 Scripted server ready",
                               "response\tUSER alice", "status\tSend UserID", "response\t331 Password please",
                               "response\tPASS", "status\tSend Password", "response\t230 Welcome",
                               "success\tLogon Complete."}));
  EXPECT_EQ(server.Commands(), (QStringList{"USER alice", "PASS s3cret"}));
  EXPECT_EQ(session->CurrentFTPStep, "PASS");
  EXPECT_TRUE(session->IgnoreCancel);
  EXPECT_TRUE(session->CommandSocket && session->CommandSocket->IsConnected());
  EXPECT_EQ(session->ConnectionTimer->Mode(), 0);
  EXPECT_FALSE(session->NT);
}

TEST_F(LogonFixture, MultiLineAndSplitGreetingSendsUserOnceAfterTheLastLine) {
  server.OnConnect({Raw("220-Welcome to a Microsoft"), Delay(60), Raw(" FTP service\r\n220-second line\r\n"), Delay(60),
                    Raw("220 ready\r")  /* split between CR and LF */, Delay(60), Raw("\n")})
      .Expect("USER alice", {Line("331 ok")})
      .Expect("PASS s3cret", {Line("230 in")});
  session->Logon();
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(Ends(*log), QStringList{"success\tLogon Complete."});
  EXPECT_EQ(server.Commands(), (QStringList{"USER alice", "PASS s3cret"}));
  EXPECT_FALSE(session->NT);  // only the final greeting line is looked at
}

TEST_F(LogonFixture, GreetingsOf530AndMicrosoftAreAccepted) {
  server.OnConnect({Line("530 microsoft ftp, please log in")})
      .Expect("USER alice", {Line("331 ok")})
      .Expect("PASS s3cret", {Line("230 in")});
  session->Logon();
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(Ends(*log), QStringList{"success\tLogon Complete."});
  EXPECT_TRUE(session->NT);
}

TEST_F(LogonFixture, TwoRepliesInOneReadAreTakenApartInOrder) {
  // The 331 and an early 230 arrive together: USER's step sends PASS, then the 230 is
  // dispatched to the new step PASS.
  server.OnConnect({Line("220 ready")}).Expect("USER alice", {Raw("331 ok\r\n230 in\r\n")}).Expect("PASS s3cret", {});
  session->Logon();
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(Ends(*log), QStringList{"success\tLogon Complete."});
}

TEST_F(LogonFixture, RefusedPasswordTakesTheErrorBranchWithTheRestOfTheBuffer) {
  server.OnConnect({Line("220 ready")})
      .Expect("USER alice", {Line("331 ok")})
      .Expect("PASS s3cret", {Raw("530 Login incorrect.\r\n421 bye\r\n")});
  session->Logon();
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(Ends(*log).first(), "error\tError: 530 Login incorrect.\n421 bye\r\n");
  // Logon keeps the connection after an error: the caller may try again.
  EXPECT_TRUE(session->CommandSocket && session->CommandSocket->IsConnected());
}

TEST_F(LogonFixture, UserLoggedOnWithoutPasswordIsAnErrorForLogon) {
  server.OnConnect({Line("220 ready")}).Expect("USER alice", {Line("230 no password needed")});
  session->Logon();
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(Ends(*log), QStringList{"error\tError: 230 no password needed\n"});
  EXPECT_EQ(server.Commands(), QStringList{"USER alice"});
}

TEST_F(LogonFixture, ExplicitTlsRefusedUsesTheCarriageReturnForm) {
  session->FTPS = true;
  server.OnConnect({Line("220 ready")}).Expect("AUTH TLS", {Line("500 AUTH not understood")});
  session->Logon();
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(Ends(*log), QStringList{"error\tError: 500 AUTH not understood\r"});
  EXPECT_TRUE(log->contains("status\t\"Sending AUTH\""));
}

TEST_F(LogonFixture, TlsWaitSleepsInsteadOfSpinningAndGivesUpWhenTheSocketCloses) {
  // The server agrees to TLS, then never speaks TLS and closes after a while.
  session->FTPS = true;
  server.OnConnect({Line("220 ready")}).Expect("AUTH TLS", {Line("234 go ahead"), Delay(1500), CloseControl()});
  rusage before{};
  getrusage(RUSAGE_SELF, &before);
  session->Logon();
  ASSERT_TRUE(WaitForEnd(1, 15000));
  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  const double cpuSeconds = (after.ru_utime.tv_sec - before.ru_utime.tv_sec) +
                            (after.ru_utime.tv_usec - before.ru_utime.tv_usec) / 1e6 +
                            (after.ru_stime.tv_sec - before.ru_stime.tv_sec) +
                            (after.ru_stime.tv_usec - before.ru_stime.tv_usec) / 1e6;
  // A spinning wait burns the whole 1.5 s; a sleeping one a few milliseconds.
  EXPECT_LT(cpuSeconds, 0.5);
  // The peer left in the middle of the handshake: a TLS failure.
  EXPECT_EQ(Ends(*log), QStringList{"error\tError: 108"});
}

TEST_F(LogonFixture, LogoffEndsCompleteWhateverTheServerAnswers) {
  server.OnConnect({Line("220 ready")})
      .Expect("USER alice", {Line("331 ok")})
      .Expect("PASS s3cret", {Line("230 in")})
      .Expect("QUIT", {Line("500 no quitting"), CloseControl()});
  session->Logon();
  ASSERT_TRUE(WaitForEnd());
  session->Logoff();
  ASSERT_TRUE(WaitForEnd(2));
  EXPECT_EQ(Ends(*log), (QStringList{"success\tLogon Complete.", "success\tLogoff Complete."}));
  EXPECT_TRUE(log->contains("status\tSend Logoff Command"));
  // The close after QUIT is the normal end: no error follows.
  RunUntil([&] { return !session->CommandSocket->IsConnected(); }, 5000);
  RunFor(50);
  EXPECT_EQ(Ends(*log).size(), 2);
  // And a resident method now finds the connection gone.
  session->Logoff();
  EXPECT_EQ(Ends(*log).last(), "error\tConnection Lost.");
}

TEST_F(LogonFixture, ConnectionDroppedBeforeQuitIsAnError) {
  server.OnConnect({Line("220 ready")}).Expect("USER alice", {ResetControl()});
  session->Logon();
  ASSERT_TRUE(WaitForEnd());
  // A reset is not the peer's orderly close (102).
  EXPECT_EQ(Ends(*log), QStringList{"error\tError: 106"});
}

TEST_F(LogonFixture, SilentServerTimesOut) {
  server.OnConnect({});  // accepts and never greets
  session->SetTimeoutSeconds(1);
  session->Logon();
  ASSERT_TRUE(WaitForEnd(1, 10000));
  EXPECT_EQ(Ends(*log), QStringList{"error\tError: The connection timed out. Ending session."});
}

TEST(LogonFailures, ClosedPortIsRefused) {
  QTcpServer probe;
  ASSERT_TRUE(probe.listen(QHostAddress::LocalHost));
  const quint16 port = probe.serverPort();
  probe.close();  // nothing listens there now
  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->SetLoginInfo("127.0.0.1", "u", "p");
  session->CommandPort = port;
  session->Logon();
  ASSERT_TRUE(RunUntil([&] { return !Ends(*log).isEmpty(); }));
  EXPECT_EQ(Ends(*log), QStringList{"error\tError: 104"});
}

TEST(LogonFailures, UnknownHostAndInvalidPortHaveTheirCodes) {
  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->SetLoginInfo("no-such-host.invalid", "u", "p");
  session->Logon();
  ASSERT_TRUE(RunUntil([&] { return !Ends(*log).isEmpty(); }, 15000));
  EXPECT_EQ(Ends(*log), QStringList{"error\tError: 103"});
  session->SetLoginInfo("127.0.0.1", "u", "p");
  session->CommandPort = 70000;
  session->Logon();
  ASSERT_TRUE(RunUntil([&] { return Ends(*log).size() == 2; }));
  EXPECT_EQ(Ends(*log).last(), "error\tError: 107");
}

TEST(Lifetime, ARunningSessionOutlivesItsOwnerAndIsFreedWhenItsConnectionCloses) {
  ScriptedFtpServer server;
  server.OnConnect({Line("220 ready")})
      .Expect("USER u", {Line("331 ok")})
      .Expect("PASS p", {Delay(100), Line("530 no"), Delay(200), CloseControl()});
  std::weak_ptr<FTPSessionClass> watch;
  auto log = std::make_shared<QStringList>();
  {
    auto session = std::make_shared<FTPSessionClass>();
    session->FTPStatusInstance = std::make_shared<RecordingStatus>(session.get(), log);
    session->SetLoginInfo("127.0.0.1", "u", "p");
    session->CommandPort = server.Port();
    session->Logon();
    watch = session;
  }
  EXPECT_FALSE(watch.expired());  // its open connection keeps it alive
  ASSERT_TRUE(RunUntil([&] { return !Ends(*log).isEmpty(); }));
  EXPECT_FALSE(watch.expired());  // Logon keeps the connection after an error
  ASSERT_TRUE(RunUntil([&] { return watch.expired(); }));
  EXPECT_EQ(Ends(*log), (QStringList{"error\tError: 530 no\n", "error\tError: 102"}));
}

}  // namespace
}  // namespace velmar::test
