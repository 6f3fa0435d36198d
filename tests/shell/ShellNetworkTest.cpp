// The `velmar` binary against servers: reports become lines, `wait` follows the session,
// the session runs between lines of a pipe, the shell does not wait for sessions still
// running at the end of its input; against real servers the exact lines of a logon and
// logoff, in the clear and over explicit TLS, and the exit status of failures; the one-line
// commands with addresses.
#include "support/RealSession.h"
#include "support/QtPrinters.h"
#include "support/RealFtpServer.h"
#include "support/RecordingStatus.h"
#include "support/ScriptedFtpServer.h"
#include "tests/shell/ShellProcess.h"

#include <QFile>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

using Result = ShellProcess::Result;

QString LogonScript(quint16 port, const QString& user = "alice", const QString& password = "s3cret") {
  return QStringLiteral("SetLoginInfo 127.0.0.1 %1 %2\nset CommandPort %3\n").arg(user, password).arg(port);
}

// The scripted server's logon of alice, answering PASS with `answer`.
ScriptedFtpServer& Logon(ScriptedFtpServer& server, const QString& answer = "230 Welcome") {
  return server.OnConnect({Line("220 Scripted server ready")})
      .Expect("USER alice", {Line("331 Password please")})
      .Expect("PASS s3cret", {Line(answer)});
}

// The shell prints reports as the log records them: kind, TAB, text.
constexpr auto* Only = &RecordingStatus::Only;

// The one-command operations as a script calls them: a quoted argument, a field set by
// its name, and the exit status of the last report.
TEST(ShellNetwork, OneCommandOperationsTakeTheirWordsAndFields) {
  ScriptedFtpServer server;
  Logon(server)
      .Expect("SITE CHMOD 600 x", {Line("200 ok")})
      .Expect("SITE CHMOD 640 y", {Line("200 ok")})
      .Expect("CWD pub", {Line("250 ok")})
      .Expect("RMD pub", {Line("550 not empty")});
  const Result r = ShellProcess::Run({}, LogonScript(server.Port()) +
                                             "Logon\nwait 10\nSITECommand \"CHMOD 600 x\"\nwait 10\n"
                                             "print DirectCommand\nset ChmodMask 640\nAddFileName y\n"
                                             "ChmodSingleFile\nwait 10\nSetServerDirectoryPathName pub\n"
                                             "ChangeDir\nwait 10\nprint CurrentWorkingDirectory\nRemoveDir\nwait 10\n");
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 1) << r.err.toStdString();  // the last report is RMD's refusal
  EXPECT_TRUE(server.Mismatches().isEmpty()) << server.Mismatches().join("; ").toStdString();
  EXPECT_EQ(Only(r.Lines(), {"success", "error", "value"}),
            (QStringList{"success\tLogon Complete.", "success\tFTP SITE command complete",
                         "value\tDirectCommand\t\"CHMOD 600 x\"", "success\tChmod Command Complete.",
                         "success\tDirectory Change Complete.", "value\tCurrentWorkingDirectory\t\"\"",
                         "error\tError: 550 not empty\\n"}));
}

TEST(ShellNetwork, LogonAndLogoffPrintTheSessionsReportsAndTheSessionRunsBetweenTheLinesOfAPipe) {
  ScriptedFtpServer server;
  Logon(server).Expect("QUIT", {Line("221 Bye")});
  ShellProcess shell;
  shell.Start({});
  ASSERT_TRUE(shell.Started());
  // No `wait`: the logon completes while the shell waits for its next line; then the
  // report that arrived before a wait satisfies it at once.
  const std::pair<QString, const char*> steps[] = {
      {LogonScript(server.Port()) + "Logon\n", "success\tLogon Complete.\n"},
      {"wait 10\nprint CommandSocket.IsConnected\nprint CurrentFTPStep\n", "value\tCurrentFTPStep\t\"PASS\"\n"},
  };
  for (const auto& [lines, answer] : steps) {
    shell.Write(lines);
    ASSERT_TRUE(shell.WaitForOutput(answer)) << answer;
  }
  shell.Write("set DataSocket.FileData \"a\\tb \u00e9\"\nprint DataSocket.FileData\nprint DataSocket\nLogoff\nwait 10\n");
  shell.CloseInput();
  const Result r = shell.Finish();
  EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
  EXPECT_EQ(server.Commands(), (QStringList{"USER alice", "PASS s3cret", "QUIT"}));
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
  for (const char* line : {"response\t220 Scripted server ready", "response\tUSER alice", "response\tPASS",
                           "status\tSend Logon Command"})
    EXPECT_TRUE(r.Lines().contains(line)) << line;
  EXPECT_FALSE(r.out.contains("s3cret"));
}

TEST(ShellNetwork, ARefusedLogonEndsWithStatusOneAndTheLastReportDecides) {
  // The error text's line end is escaped: the report stays on one line. A logoff after the
  // failure succeeds, and the status follows it.
  for (bool logoff : {false, true}) {
    ScriptedFtpServer server;
    Logon(server, "530 Login incorrect.").Expect("QUIT", {Line("221 Bye")});
    const Result r =
        ShellProcess::Run({}, LogonScript(server.Port()) + "Logon\nwait 10\n" + (logoff ? "Logoff\nwait 10\n" : ""));
    EXPECT_EQ(r.exitCode, logoff ? 0 : 1) << r.out.toStdString();
    QStringList ends{"error\tError: 530 Login incorrect.\\n"};
    if (logoff) ends << "success\tLogoff Complete.";
    EXPECT_EQ(Only(r.Lines(), {"success", "error", "wait"}), ends);
  }
}

TEST(ShellNetwork, WaitTimesOutOnASilentServerAndTheShellDoesNotWaitAtTheEnd) {
  ScriptedFtpServer server;  // accepts, never greets
  const Result r = ShellProcess::Run({}, LogonScript(server.Port()) +
                                             "SetTimeoutSeconds 600\nLogon\nwait 0.3\nprint CurrentFTPStep\n"
                                             "print CommandSocket.IsConnected\n");
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 3) << r.err.toStdString();  // the wait ran out of time
  EXPECT_EQ(Only(r.Lines(), {"success", "error", "value", "wait"}),
            (QStringList{"wait\ttimeout", "value\tCurrentFTPStep\t\"CONNECT\"", "value\tCommandSocket.IsConnected\ttrue"}));
  // The shell closed its connection on the way out.
  EXPECT_TRUE(RunUntil([&] { return !server.ClientConnected(); }, 10000));
  EXPECT_EQ(server.ConnectionCount(), 1);
}

// Report lines without the server's own texts, which differ from server to server.
QStringList Shape(const QStringList& lines) {
  QStringList shape;
  for (const QString& line : lines)
    shape << (line.startsWith("response\t") && QStringView(line).mid(9, 3).toInt() > 0 ? line.left(12) : line);
  return shape;
}

TEST(ShellRealServer, LogonAndLogoffInTheClearAndOverTls) {
  for (bool tls : {false, true}) {
    RealFtpServer server(tls ? RealFtpServer::Kind::PyftpdlibTLS : RealFtpServer::Kind::Pyftpdlib);
    if (!server.Started()) GTEST_SKIP() << server.SkipReason().toStdString();
    const auto r = ShellProcess::Run({"--no-progress"}, LogonScript(server.Port(), server.User(), server.Password()) +
                                                            (tls ? "set FTPS true\n" : "") + "Logon\nwait\nLogoff\nwait\n",
                                     30000);
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

// The TLS settings from a script: the certificate checked (an address where the certificate
// names a host is refused with its reason), then a listing over a data connection in TLS from a
// server that refuses data in the clear.
TEST(ShellRealServer, SecureDataAndACheckedCertificate) {
  RealFtpServer server(RealFtpServer::Kind::PyftpdlibTLSData);
  if (!server.Started()) GTEST_SKIP() << server.SkipReason().toStdString();
  QFile(server.Root() + "/listed.txt").open(QIODevice::WriteOnly);
  const QString settings = "set FTPS true\nset SecureDataConnection true\nset VerifyServerCertificate true\n"
                           "set TrustedCertificateFile \"" + server.CertificateFile() + "\"\nprint SecureDataConnection\n";
  const auto r = ShellProcess::Run({"--no-progress"}, LogonScript(server.Port(), server.User(), server.Password()) +
                                                          settings + "Logon\nwait\nset ServerAddress localhost\n"
                                                          "Logon\nwait\nGetDirList\nwait\nprint DirectoryFileList\n",
                                   30000);
  EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
  const QStringList lines = RecordingStatus::Only(r.Lines(), {"success", "error", "value"});
  ASSERT_EQ(lines.size(), 5) << r.out.toStdString();
  EXPECT_EQ(lines.mid(0, 4), (QStringList{"value\tSecureDataConnection\ttrue",
                                          "error\tError: 108 (certificate verify failed: IP address mismatch, "
                                          "expected \"127.0.0.1\")",
                                          "success\tLogon Complete.", "success\tThe file list has been transferred."}));
  EXPECT_TRUE(lines[4].contains(" listed.txt\\r\\n")) << lines[4].toStdString();
  EXPECT_FALSE(r.out.contains(server.Password()));
  // A one-line ftps:// command checks the certificate unless told otherwise.
  const QString ftps = QStringLiteral("ftps://%1:%2@localhost:%3/").arg(server.User(), server.Password()).arg(server.Port());
  const std::tuple<QStringList, int, QString> rows[] = {
      {{"ls", ftps}, 1, "error\tError: 108 (certificate verify failed: self-signed certificate)\nhint\tthe TLS handshake"},
      {{"--cacert", server.CertificateFile(), "ls", ftps}, 0, "value\tDirectoryFileList\t\""},
      {{"--insecure", "ls", ftps}, 0, "value\tDirectoryFileList\t\""}};
  for (const auto& [arguments, status, last] : rows) {
    const auto one = ShellProcess::Run(QStringList{"--no-progress"} + arguments, "", 30000);
    EXPECT_EQ(one.exitCode, status) << arguments.join(' ').toStdString() << one.err.toStdString();
    EXPECT_TRUE(one.out.contains("\n" + last)) << one.out.toStdString();
  }
}

// The one-line commands, one after the other against one server: what each leaves on both sides,
// its last line and its exit status. HOME is a fresh folder, so the netrc is the test's own.
TEST(ShellRealServer, OneLineCommandsWithAddresses) {
  RealFtpServer server(RealFtpServer::Kind::Pyftpdlib);
  if (!server.Started()) GTEST_SKIP() << server.SkipReason().toStdString();
  QTemporaryDir home, local;
  const QString root = server.Root(), l = local.path();
  const QString url = QStringLiteral("ftp://%1:%2@127.0.0.1:%3").arg(server.User(), server.Password()).arg(server.Port());
  const QString bare = QStringLiteral("ftp://127.0.0.1:%1").arg(server.Port());
  WriteFile(l + "/a b.txt", "first");
  WriteFile(l + "/two.bin", RandomBytes(100000, 7));
  WriteFile(l + "/tree/sub/deep.txt", "deep");
  WriteFile(home.path() + "/.netrc", QStringLiteral("machine 127.0.0.1 login %1 password %2\n")
                                         .arg(server.User(), server.Password()).toUtf8());
  QFile(home.path() + "/.netrc").setPermissions(QFile::ReadOwner | QFile::WriteOwner);
  const QString done = "success\tFile Transfer Complete.", tree = "success\tDirectory Transfer Complete.";
  const QByteArray two = ReadFile(l + "/two.bin");
  struct Row {
    QStringList arguments;
    int status;
    QString lastLine;  // or the start of stderr for status 2
    QStringList serverFiles;
  };
  const Row rows[] = {
      {{"put", l + "/a b.txt", l + "/two.bin", url + "/"}, 0, done, {Entry("a b.txt", "first"), Entry("two.bin", two)}},
      {{"get", url + "/a%20b.txt", l + "/got.txt"}, 0, done, {Entry("a b.txt", "first"), Entry("two.bin", two)}},
      {{"mv", url + "/a%20b.txt", "c.txt"}, 0, "success\tFile Rename Complete.", {Entry("c.txt", "first"), Entry("two.bin", two)}},
      // The password from the netrc.
      {{"ls", bare + "/"}, 0, "value\tDirectoryFileList", {Entry("c.txt", "first"), Entry("two.bin", two)}},
      {{"rm", url + "/two.bin", url + "/c.txt"}, 0, "success\tFile has been deleted.", {}},
      {{"rm", url + "/c.txt"}, 1, "error\tError: 550", {}},
      {{"mirror", "-R", l + "/tree", url + "/"}, 0, tree, {"tree/", "tree/sub/", Entry("tree/sub/deep.txt", "deep")}},
      {{"mirror", url + "/tree", l + "/down"}, 0, tree, {"tree/", "tree/sub/", Entry("tree/sub/deep.txt", "deep")}},
      {{"rmdir", "-r", url + "/tree"}, 0, "success\tThe directory has been deleted.", {}},
      // Nobody to ask: a user without a password and no terminal, before anything is sent.
      {{"ls", "ftp://nobody@127.0.0.1:1/"}, 2, "velmar: no password for nobody@127.0.0.1:1", {}},
      {{"get", url + "/"}, 2, "velmar: get: '" + url + "/' names no file", {}},
  };
  for (const Row& row : rows) {
    ShellProcess shell;
    shell.SetEnv("HOME", home.path());
    shell.Start(row.arguments);
    shell.CloseInput();
    const Result r = shell.Finish(30000);
    const QString last = row.status == 2 ? r.err : r.Lines().value(r.Lines().size() - 1);
    EXPECT_EQ(r.exitCode, row.status) << row.arguments.join(' ').toStdString() << "\n" << r.out.toStdString() << r.err.toStdString();
    EXPECT_TRUE(last.startsWith(row.lastLine)) << row.arguments.join(' ').toStdString() << ": " << last.toStdString();
    EXPECT_EQ(Snapshot(root), row.serverFiles) << row.arguments.join(' ').toStdString();
    EXPECT_FALSE(r.out.contains(server.Password()));
  }
  EXPECT_EQ(ReadFile(l + "/got.txt"), "first");
  EXPECT_EQ(Snapshot(l + "/down"), (QStringList{"tree/", "tree/sub/", Entry("tree/sub/deep.txt", "deep")}));
  EXPECT_FALSE(QDir(l).entryList(QDir::Hidden | QDir::NoDotAndDotDot).join(' ').contains(".velmar-"));
}

}  // namespace
}  // namespace velmar::test
