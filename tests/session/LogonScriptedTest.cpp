// Logon and Logoff against the scripted server: exact command sequences and report
// streams, reply shapes a real server will not produce, and connection failures.
#include "session/FTPCommandSocket.h"
#include "session/FTPConnectionTimer.h"
#include "support/OperationRow.h"

#include <QTcpServer>

namespace velmar::test {
namespace {

constexpr auto Ends = &RecordingStatus::Ends;
const QString kLoggedOn = "success\tLogon Complete.";

// A logon: the greeting, the commands the server expects with its answers, the end reports,
// what the caller sets before and what holds after. NT is set only by a "Microsoft" greeting.
struct LogonRow {
  const char* name;
  QList<ScriptAction> greeting;
  QList<Exchange> script;
  QStringList ends;
  std::function<void(S&)> prepare = {};
  std::function<void(S&, const QStringList& log)> after = {};
  bool nt = false;
};
void PrintTo(const LogonRow& row, std::ostream* out) { *out << row.name; }

const QList<Exchange> kUserPass = {Ok("USER u", "331 ok"), Ok("PASS p", "230 in")};
auto StillConnected(S& s, const QStringList&) { EXPECT_TRUE(s.CommandSocket && s.CommandSocket->IsConnected()); }
double cpuBefore = 0;

const LogonRow kRows[] = {
    {"PlainLogonSendsUserAndPassAndEndsQuietly", {Line("220 Scripted server ready")},
     {Ok("USER u", "331 Password please"), Ok("PASS p", "230 Welcome")}, {kLoggedOn}, {},
     [](S& s, const QStringList& log) {
       EXPECT_EQ(log, (QStringList{"response\t", "status\tSend Logon Command", "response\t220 Scripted server ready",
                                   "response\tUSER u", "status\tSend UserID", "response\t331 Password please",
                                   "response\tPASS", "status\tSend Password", "response\t230 Welcome", kLoggedOn}));
       EXPECT_EQ(s.CurrentFTPStep, "PASS");
       StillConnected(s, log);
     }},
    // USER goes once, after the last line; only that line is looked at for "Microsoft".
    {"MultiLineAndSplitGreeting",
     {Raw("220-Welcome to a Microsoft"), Delay(60), Raw(" FTP service\r\n220-second line\r\n"), Delay(60),
      Raw("220 ready\r") /* split between CR and LF */, Delay(60), Raw("\n")},
     kUserPass, {kLoggedOn}},
    {"GreetingsOf530AndMicrosoftAccepted", {Line("530 microsoft ftp, please log in")}, kUserPass, {kLoggedOn}, {}, {},
     true},
    // The 331 and an early 230 arrive together: USER's step sends PASS, then the 230 is
    // dispatched to the new step PASS.
    {"TwoRepliesInOneReadAreTakenApartInOrder", {Line("220 ready")},
     {{"USER u", {Raw("331 ok\r\n230 in\r\n")}}, {"PASS p", {}}}, {kLoggedOn}},
    // The rest of the buffer goes with the error and then runs through the step once more.
    // Logon keeps the connection after an error: the caller may try again.
    {"RefusedPasswordTakesTheErrorBranchWithTheRestOfTheBuffer", {Line("220 ready")},
     {Ok("USER u", "331 ok"), {"PASS p", {Raw("530 Login incorrect.\r\n421 bye\r\n")}}},
     {"error\tError: 530 Login incorrect.\n421 bye\r\n", "error\tError: 421 bye\n"}, {}, StillConnected},
    {"ExplicitTlsRefusedUsesTheCarriageReturnForm", {Line("220 ready")},
     {Ok("AUTH TLS", "500 no AUTH")}, {"error\tError: 500 no AUTH\r"}, [](S& s) { s.FTPS = true; },
     [](S&, const QStringList& log) { EXPECT_TRUE(log.contains("status\t\"Sending AUTH\"")); }},
    // The server agrees to TLS, then never speaks TLS and closes after a while: a TLS failure.
    // The wait for the handshake sleeps; a spinning one would burn the whole 1.5 s.
    {"TlsWaitSleepsAndGivesUpWhenTheSocketCloses", {Line("220 ready")},
     {{"AUTH TLS", {Line("234 go ahead"), Delay(1500), CloseControl()}}}, {"error\tError: 108"},
     [](S& s) { s.FTPS = true; cpuBefore = CpuSeconds(); },
     [](S&, const QStringList&) { EXPECT_LT(CpuSeconds() - cpuBefore, 0.5); }},
    // Logoff ends complete whatever the server answers; the close after QUIT is the normal
    // end, and a resident method then finds the connection gone.
    {"LogoffEndsCompleteWhateverTheServerAnswers", {Line("220 ready")},
     kUserPass + QList<Exchange>{{"QUIT", {Line("500 no quitting"), CloseControl()}}}, {kLoggedOn}, {},
     [](S& s, const QStringList& log) {
       s.Logoff();
       ASSERT_TRUE(RunUntil([&] { return !s.CommandSocket->IsConnected(); }, 5000));
       RunFor(50);
       EXPECT_EQ(Ends(log), (QStringList{kLoggedOn, "success\tLogoff Complete."}));
       EXPECT_TRUE(log.contains("status\tSend Logoff Command"));
       s.Logoff();
       EXPECT_EQ(Ends(log).last(), "error\tConnection Lost.");
     }},
    // A connection that never opens reports the socket's code (the platform tests give each
    // failure its code).
    {"ClosedPortIsRefused", {}, {}, {"error\tError: 104"}, [](S& s) {
       QTcpServer probe;  // nothing listens on its port once it is gone
       s.CommandPort = probe.listen(QHostAddress::LocalHost) ? probe.serverPort() : 0;
     }},
};

class Logon : public LoggedOnFixture, public ::testing::WithParamInterface<LogonRow> {};

TEST_P(Logon, EndsAsScripted) {
  const LogonRow& row = GetParam();
  server.OnConnect(row.greeting);
  QStringList commands;
  for (const Exchange& exchange : row.script) {
    server.Expect(exchange.command, exchange.actions);
    commands.append(exchange.command);
  }
  if (row.prepare) row.prepare(*session);
  session->Logon();
  ASSERT_TRUE(RunUntil([&] { return Ends(*log).size() >= row.ends.size(); }, 15000)) << log->join('\n').toStdString();
  RunFor(20);  // nothing more may follow
  EXPECT_EQ(Ends(*log), row.ends);
  if (row.after) row.after(*session, *log);
  EXPECT_EQ(server.Commands(), commands);
  EXPECT_EQ(server.Mismatches(), QStringList());
  EXPECT_EQ(session->NT, row.nt);
  EXPECT_TRUE(session->IgnoreCancel);  // the connection stays up after an error
  EXPECT_EQ(session->ConnectionTimer->Mode(), 0);  // an idle session never times out
}

INSTANTIATE_TEST_SUITE_P(Rows, Logon, ::testing::ValuesIn(kRows), [](const auto& info) { return info.param.name; });

TEST_F(LoggedOnFixture, ARunningSessionOutlivesItsOwnerAndIsFreedWhenItsConnectionCloses) {
  server.OnConnect({Line("220 ready")}).Expect("USER u", {Line("331 ok")});
  server.Expect("PASS p", {Delay(100), Line("530 no"), Delay(200), CloseControl()});
  std::weak_ptr<S> watch = session;
  session->Logon();
  session.reset();
  EXPECT_FALSE(watch.expired());  // its open connection keeps it alive
  ASSERT_TRUE(RunUntil([&] { return !Ends(*log).isEmpty(); }));
  EXPECT_FALSE(watch.expired());  // Logon keeps the connection after an error
  ASSERT_TRUE(RunUntil([&] { return watch.expired(); }));
  EXPECT_EQ(Ends(*log), (QStringList{"error\tError: 530 no\n", "error\tError: 102"}));
}

}  // namespace
}  // namespace velmar::test
