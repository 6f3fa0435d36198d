// The shell against real servers: the exact report lines of a logon and logoff, in the
// clear and over explicit TLS, and the exit status of failures.
#include "support/RealFtpServer.h"
#include "support/ScriptedFtpServer.h"
#include "shell/ShellProcess.h"

#include <QTcpServer>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

QString Script(const RealFtpServer& server, const QString& password, bool tls) {
  return QString("SetLoginInfo 127.0.0.1 %1 %2\nset CommandPort %3\n%4Logon\nwait\nLogoff\nwait\n")
      .arg(server.User(), password)
      .arg(server.Port())
      .arg(tls ? "set FTPS true\n" : "");
}

// Report lines without the server's own texts, which differ from server to server.
QStringList Shape(const QStringList& lines) {
  QStringList shape;
  for (const QString& line : lines) {
    if (line.startsWith("response\t") && QStringView(line).mid(9, 3).toInt() > 0)
      shape << "response\t" + line.mid(9, 3);  // a server reply: its code only
    else
      shape << line;
  }
  return shape;
}

TEST(ShellRealServer, LogonAndLogoffInTheClearAndOverTls) {
  for (bool tls : {false, true}) {
    RealFtpServer server(tls ? RealFtpServer::Kind::PyftpdlibTLS : RealFtpServer::Kind::Pyftpdlib);
    if (!server.Started()) GTEST_SKIP() << server.SkipReason().toStdString();
    const auto r = ShellProcess::Run({"--no-progress"}, Script(server, server.Password(), tls), 30000);
    ASSERT_TRUE(r.finished);
    EXPECT_EQ(r.exitCode, 0) << r.out.toStdString() << r.err.toStdString();
    QStringList expected{"response\t", "status\tSend Logon Command", "response\t220"};
    if (tls)
      expected << "response\tAUTH TLS" << "status\t\"Sending AUTH\"" << "response\t234" << "response\tPBSZ 0"
               << "status\tSending PBSZ" << "response\t200" << "response\tPROT P" << "status\tSending PROT"
               << "response\t200";
    expected << "response\tUSER " + server.User() << "status\tSend UserID" << "response\t331" << "response\tPASS"
             << "status\tSend Password" << "response\t230" << "success\tLogon Complete." << "response\tQUIT"
             << "status\tSend Logoff Command" << "response\t221" << "success\tLogoff Complete.";
    EXPECT_EQ(Shape(r.Lines()), expected) << r.out.toStdString();
    EXPECT_FALSE(r.out.contains(server.Password()));
  }
}

TEST(ShellRealServer, AWrongPasswordEndsInTheErrorBranchWithStatusOne) {
  RealFtpServer server(RealFtpServer::Kind::Vsftpd);
  if (!server.Started()) GTEST_SKIP() << server.SkipReason().toStdString();
  const QString script = QString("SetLoginInfo 127.0.0.1 %1 wrong-%2\nset CommandPort %3\nLogon\nwait\n")
                             .arg(server.User(), server.Password())
                             .arg(server.Port());
  const auto r = ShellProcess::Run({}, script, 30000);
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_TRUE(r.Lines().last().startsWith("error\tError: 530")) << r.out.toStdString();
  // The exit status follows the last report: a logoff after the failure succeeds.
  const auto after = ShellProcess::Run({}, Script(server, "wrong-" + server.Password(), false), 30000);
  EXPECT_EQ(after.exitCode, 0) << after.out.toStdString();
}

TEST(ShellRealServer, AClosedPortAndASilentServerEndInErrors) {
  quint16 closedPort = 0;
  {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    closedPort = probe.serverPort();
  }
  auto r = ShellProcess::Run({}, QString("SetLoginInfo 127.0.0.1 u p\nset CommandPort %1\nLogon\nwait 5\n").arg(closedPort));
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_TRUE(r.Lines().contains("error\tError: 104")) << r.out.toStdString();

  ScriptedFtpServer silent;  // accepts and never greets
  r = ShellProcess::Run({}, QString("SetLoginInfo 127.0.0.1 u p\nset CommandPort %1\nset Timeout 500\nLogon\nwait 10\n")
                                .arg(silent.Port()));
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.Lines().last(), "error\tError: The connection timed out. Ending session.");
}

}  // namespace
}  // namespace velmar::test
