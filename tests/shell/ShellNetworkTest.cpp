// The `velmar` binary against the in-process scripted server: reports become lines, `wait`
// follows the session, the session runs between lines of a pipe, and the shell does not
// wait for sessions still running at the end of its input.
#include "support/QtPrinters.h"
#include "support/ScriptedFtpServer.h"
#include "tests/shell/ShellProcess.h"

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

using Result = ShellProcess::Result;

QString LogonScript(quint16 port) {
  return QStringLiteral("SetLoginInfo 127.0.0.1 alice s3cret\nset CommandPort %1\n").arg(port);
}

QStringList Only(const QStringList& lines, const QStringList& kinds) {
  QStringList out;
  for (const QString& line : lines)
    if (kinds.contains(line.section(u'\t', 0, 0))) out.append(line);
  return out;
}

// The one-command operations as a script calls them: a quoted argument, a field set by
// its name, and the exit status of the last report.
TEST(ShellNetwork, OneCommandOperationsTakeTheirWordsAndFields) {
  ScriptedFtpServer server;
  server.OnConnect({Line("220 ready")})
      .Expect("USER alice", {Line("331 ok")})
      .Expect("PASS s3cret", {Line("230 in")})
      .Expect("SITE CHMOD 600 x", {Line("200 ok")})
      .Expect("SITE CHMOD 640 y", {Line("200 ok")})
      .Expect("CWD pub", {Line("250 ok")})
      .Expect("RMD pub", {Line("550 not empty")});
  const Result r = ShellProcess::Run({}, LogonScript(server.Port()) +
                                             "Logon\nwait 10\n"
                                             "SITECommand \"CHMOD 600 x\"\nwait 10\n"
                                             "print DirectCommand\n"
                                             "set ChmodMask 640\nAddFileName y\nChmodSingleFile\nwait 10\n"
                                             "SetServerDirectoryPathName pub\nChangeDir\nwait 10\n"
                                             "print CurrentWorkingDirectory\n"
                                             "RemoveDir\nwait 10\n");
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 1) << r.err.toStdString();  // the last report is RMD's refusal
  EXPECT_TRUE(server.Mismatches().isEmpty()) << server.Mismatches().join("; ").toStdString();
  EXPECT_EQ(Only(r.Lines(), {"success", "error", "value"}),
            (QStringList{"success\tLogon Complete.", "success\tFTP SITE command complete",
                         "value\tDirectCommand\t\"CHMOD 600 x\"", "success\tChmod Command Complete.",
                         "success\tDirectory Change Complete.", "value\tCurrentWorkingDirectory\t\"\"",
                         "error\tError: 550 not empty\\n"}));
}

TEST(ShellNetwork, LogonWaitAndLogoffPrintTheSessionsReports) {
  ScriptedFtpServer server;
  server.OnConnect({Line("220 Scripted server ready")})
      .Expect("USER alice", {Line("331 Password please")})
      .Expect("PASS s3cret", {Line("230 Welcome")})
      .Expect("QUIT", {Line("221 Bye")});
  const Result r = ShellProcess::Run({}, LogonScript(server.Port()) +
                                             "Logon\n"
                                             "wait 10\n"
                                             "print CommandSocket.IsConnected\n"
                                             "print CurrentFTPStep\n"
                                             "set DataSocket.FileData \"a\\tb \u00e9\"\n"
                                             "print DataSocket.FileData\n"
                                             "print DataSocket\n"
                                             "Logoff\n"
                                             "wait 10\n");
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
  EXPECT_EQ(server.Commands(), (QStringList{"USER alice", "PASS s3cret", "QUIT"}));
  EXPECT_TRUE(server.Mismatches().isEmpty()) << server.Mismatches().join("; ").toStdString();

  // The value lines come after the first success: `wait` held the script until then.
  EXPECT_EQ(Only(r.Lines(), {"success", "error", "value", "wait"}),
            (QStringList{"success\tLogon Complete.", "value\tCommandSocket.IsConnected\ttrue",
                         "value\tCurrentFTPStep\t\"PASS\"",
                         // Bytes print one character per byte: 0xE9 is é.
                         QString::fromUtf8("value\tDataSocket.FileData\t\"a\\tb \u00e9\""),
                         QString::fromUtf8("value\tDataSocket\t{\"FileName\":\"\",\"FileList\":false,\"BytesSent\":0,"
                                           "\"ByteCount\":0,\"FileData\":\"a\\tb \u00e9\",\"Address\":\"\",\"Port\":0,"
                                           "\"ConnectionType\":0,\"LocalAddress\":\"\",\"LastErrorCode\":0,"
                                           "\"IsConnected\":false,\"IsListening\":false}"),
                         "success\tLogoff Complete."}));
  // The dialogue is shown, the password never.
  EXPECT_TRUE(r.Lines().contains("response\t220 Scripted server ready"));
  EXPECT_TRUE(r.Lines().contains("response\tUSER alice"));
  EXPECT_TRUE(r.Lines().contains("response\tPASS"));
  EXPECT_TRUE(r.Lines().contains("status\tSend Logon Command"));
  EXPECT_FALSE(r.out.contains("s3cret"));
}

TEST(ShellNetwork, ARefusedLogonEndsWithStatusOne) {
  ScriptedFtpServer server;
  server.OnConnect({Line("220 ready")})
      .Expect("USER alice", {Line("331 Password please")})
      .Expect("PASS s3cret", {Line("530 Login incorrect.")});
  const Result r = ShellProcess::Run({}, LogonScript(server.Port()) + "Logon\nwait 10\n");
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 1);
  const QStringList ends = Only(r.Lines(), {"success", "error", "wait"});
  ASSERT_EQ(ends.size(), 1) << r.out.toStdString();
  EXPECT_TRUE(ends[0].startsWith("error\tError: 530 Login incorrect.")) << ends[0].toStdString();
  // The error text's line end is escaped: the report stays on one line.
  EXPECT_FALSE(ends[0].contains(u'\r'));
}

TEST(ShellNetwork, TheSessionRunsBetweenTheLinesOfAPipe) {
  ScriptedFtpServer server;
  server.OnConnect({Line("220 ready")})
      .Expect("USER alice", {Line("331 Password please")})
      .Expect("PASS s3cret", {Line("230 Welcome")})
      .Expect("QUIT", {Line("221 Bye")});
  ShellProcess shell;
  shell.Start({});
  ASSERT_TRUE(shell.Started());
  shell.Write(LogonScript(server.Port()) + "Logon\n");
  // No `wait`: the logon completes while the shell waits for its next line.
  ASSERT_TRUE(shell.WaitForOutput("success\tLogon Complete.\n"));
  shell.Write("print CommandSocket.IsConnected\n");
  ASSERT_TRUE(shell.WaitForOutput("value\tCommandSocket.IsConnected\ttrue\n"));
  // The report that arrived before this wait satisfies it at once.
  shell.Write("wait 10\nprint ID\n");
  ASSERT_TRUE(shell.WaitForOutput("value\tID\t\"\"\n"));
  shell.Write("Logoff\nwait 10\n");
  shell.CloseInput();
  const Result r = shell.Finish();
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
  EXPECT_FALSE(r.out.contains("wait\ttimeout"));
  EXPECT_EQ(server.Commands(), (QStringList{"USER alice", "PASS s3cret", "QUIT"}));
}

TEST(ShellNetwork, WaitTimesOutOnASilentServerAndTheShellDoesNotWaitAtTheEnd) {
  ScriptedFtpServer server;  // accepts, never greets
  const Result r = ShellProcess::Run({}, LogonScript(server.Port()) +
                                             "SetTimeoutSeconds 600\n"
                                             "Logon\n"
                                             "wait 0.3\n"
                                             "print CurrentFTPStep\n"
                                             "print CommandSocket.IsConnected\n");
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
  EXPECT_EQ(Only(r.Lines(), {"success", "error", "value", "wait"}),
            (QStringList{"wait\ttimeout", "value\tCurrentFTPStep\t\"CONNECT\"", "value\tCommandSocket.IsConnected\ttrue"}));
  // The shell closed its connection on the way out.
  EXPECT_TRUE(RunUntil([&] { return !server.ClientConnected(); }, 10000));
  EXPECT_EQ(server.ConnectionCount(), 1);
}

}  // namespace
}  // namespace velmar::test
