// The `velmar` binary as other programs see it: output lines, exit status, script errors,
// the order of sources, and a pipe driven line by line.
#include "support/QtPrinters.h"
#include "tests/shell/ShellProcess.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace velmar::test {
namespace {

using Result = ShellProcess::Result;

Result RunScript(const QString& script, const QStringList& arguments = {}) {
  return ShellProcess::Run(arguments, script);
}

TEST(ShellBinary, PrintShowsFieldsAsJsonValueLines) {
  const Result r = RunScript(
      "print CommandPort\n"
      "print ServerTextEncoding\n"
      "set ServerTextEncoding UTF-8\n"
      "print ServerTextEncoding\n"
      "set ID \"row 7\"\n"
      "print ID\n"
      "set PassiveMode false\n"
      "print PassiveMode\n"
      "set Timeout -5\n"
      "print Timeout\n"
      R"(set Files "[\"a\",\"b c\"]")" "\n"
      "print Files\n"
      "print DirList\n"
      "print DataSocket\n"
      "print DataSocket.FileName\n"
      "print CommandSocket.SSLConnected\n"
      "print ConnectionTimer.Mode\n"
      "set Buffer \"220 hi\\r\\n\"\n"
      "print Buffer\n");
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
  EXPECT_EQ(r.Lines(), (QStringList{
                           "value\tCommandPort\t21",
                           "value\tServerTextEncoding\t\"ISO-8859-1\"",
                           "value\tServerTextEncoding\t\"UTF-8\"",
                           "value\tID\t\"row 7\"",
                           "value\tPassiveMode\tfalse",
                           "value\tTimeout\t-5",
                           "value\tFiles\t[\"a\",\"b c\"]",
                           "value\tDirList\t[]",
                           "value\tDataSocket\tnull",
                           "value\tDataSocket.FileName\tnull",
                           "value\tCommandSocket.SSLConnected\tnull",
                           "value\tConnectionTimer.Mode\t0",
                           "value\tBuffer\t\"220 hi\\r\\n\"",
                       }));
  EXPECT_TRUE(r.err.isEmpty()) << r.err.toStdString();
}

TEST(ShellBinary, PasswordNeverAppearsInOutput) {
  const Result r = RunScript(
      "print ServerPassword\n"
      "SetLoginInfo example.org alice \"top secret\"\n"
      "print ServerPassword\n"
      "set ServerPassword hunter2\n"
      "print ServerPassword\n"
      "print ServerUserID\n");
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
  EXPECT_EQ(r.Lines(), (QStringList{"value\tServerPassword\t\"********\"", "value\tServerPassword\t\"********\"",
                                    "value\tServerPassword\t\"********\"", "value\tServerUserID\t\"alice\""}));
  EXPECT_FALSE(r.out.contains("secret"));
  EXPECT_FALSE(r.out.contains("hunter2"));
}

TEST(ShellBinary, OperationsWithResultsPrintResultLines) {
  const Result r = RunScript(
      "Squeeze \"a   b\" \" \"\n"
      "GetVelmarVersion\n"
      "FormatBytes 1025\n"
      "FormatBytes 1024\n"
      "FormatBytes 1048577\n"
      "GetFileCount\n"
      "AddFileName first\n"
      "AddFileName second\n"
      "GetFileCount\n"
      "GetNextFileName\n"
      "SetServerDirectoryPathName /pub/in\n"
      "GetServerDirectoryPathName\n"
      "SuccessfulMessage \"Logon Complete.\"\n"
      "SuccessfulMessage nonsense\n"
      "ParseDirListLine \"-rw-r--r-- 1 o g 12 Jan 15 10:30 a  b\"\n"
      // A read past the line's last token: reported, and the script goes on.
      "ParseDirListLine \"-rw-r--r-- 1 o g 12 Jan 15\"\n"
      "GetFileFromPath /pub/x.txt\n");
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
  EXPECT_EQ(r.Lines(), (QStringList{
                           "result\tSqueeze\t\"a b\"",
                           "result\tGetVelmarVersion\t\"5.0.0\"",
                           "result\tFormatBytes\t\"1 KB\"",
                           "result\tFormatBytes\t\"1024 bytes\"",
                           "result\tFormatBytes\t\"1.0 MB\"",
                           "result\tGetFileCount\t-1",
                           "result\tGetFileCount\t1",
                           "result\tGetNextFileName\t\"second\"",
                           "result\tGetServerDirectoryPathName\t\"/pub/in\"",
                           "result\tSuccessfulMessage\ttrue",
                           "result\tSuccessfulMessage\tfalse",
                           "result\tParseDirListLine\t{\"Name\":\"a b\",\"IsDir\":false,\"IsFile\":true,\"Size\":12,"
                           "\"ModTime\":\"10:30\",\"ModDate\":\"Jan 15\",\"Permissions\":\"rw-r--r--\"}",
                           "exception\tOutOfBoundsException: index 7 of an array of 7 elements",
                           "result\tGetFileFromPath\t\"x.txt\"",
                       }));
}

TEST(ShellBinary, OverloadsAreChosenByArgumentCount) {
  // ParseCommandBuffer with no argument takes the line out of Buffer; with a code it is
  // the other overload. Both exist; three arguments fit neither.
  const Result ok = RunScript("ParseCommandBuffer\nParseCommandBuffer 200\nprint ID\n");
  ASSERT_TRUE(ok.finished);
  EXPECT_EQ(ok.exitCode, 0) << ok.err.toStdString();
  EXPECT_TRUE(ok.out.contains("value\tID\t\"\"")) << ok.out.toStdString();

  const Result bad = RunScript("ParseCommandBuffer 1 2 3\n");
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_TRUE(bad.err.contains("velmar: line 1: ParseCommandBuffer takes 0 or 1 arguments, got 3"))
      << bad.err.toStdString();
}

TEST(ShellBinary, ReportsAreEscapedLinesAndDecideTheExitStatus) {
  // No report at all: 0.
  EXPECT_EQ(RunScript("print ID\n").exitCode, 0);

  // The last report decides; its text is escaped onto one line.
  const Result error = RunScript(
      "EndFTPSession \"Logon Complete.\"\n"
      "EndFTPSession \"Error: 550 no\\r\\nC:\\\\x\\tend\"\n");
  ASSERT_TRUE(error.finished);
  EXPECT_EQ(error.exitCode, 1);
  EXPECT_EQ(error.Lines(), (QStringList{"success\tLogon Complete.", "error\tError: 550 no\\r\\nC:\\\\x\\tend"}));

  const Result success = RunScript("EndFTPSession \"Error: first\"\nEndFTPSession \"Logon Complete.\"\n");
  EXPECT_EQ(success.exitCode, 0);

  // Status and response lines come from NextFTPStep; an empty command sends nothing.
  const Result step = RunScript("NextFTPStep START \"\" \"Send\\tit\"\nGetCurrentFTPStep\n");
  EXPECT_EQ(step.exitCode, 0);
  EXPECT_EQ(step.Lines(), (QStringList{"response\t", "status\tSend\\tit", "result\tGetCurrentFTPStep\t\"START\""}));
}

TEST(ShellBinary, ScriptErrorsStopTheRunWithStatusTwo) {
  struct Case {
    const char* line;
    const char* message;
  };
  const Case cases[] = {
      {"Bogus", "unknown instruction or method Bogus"},
      {"logon", "unknown instruction or method logon"},
      {"print Nope", "unknown field Nope"},
      {"print commandport", "unknown field commandport (did you mean CommandPort?)"},
      {"print DataSocket.Nope", "unknown field DataSocket.Nope"},
      {"print CommandPort.Value", "CommandPort has no fields"},
      {"print", "usage: print FIELD"},
      {"set CommandPort", "usage: set FIELD VALUE"},
      {"set CommandPort 21x", "CommandPort: '21x' is not a decimal integer"},
      {"set CommandPort 99999999999", "is not a decimal integer of 32 bits"},
      {"set NT yes", "NT: 'yes' is not a boolean"},
      {"set ServerTextEncoding KOI8-R", "unknown text encoding 'KOI8-R'"},
      {"set Files notjson", "Files: not a JSON array of strings"},
      {"set Files [1,2]", "element 0 is not a string"},
      {"set DirList []", "DirList is read-only"},
      {"set DataSocket.FileName x", "cannot set DataSocket.FileName: DataSocket is nil"},
      {"set ConnectionTimer something", "can only be set to null"},
      {"Squeeze onlyone", "Squeeze takes 2 arguments, got 1"},
      {"SetTimeoutSeconds ten", "SetTimeoutSeconds: argument 1: 'ten' is not a decimal integer"},
      {"SetStatusReporting maybe", "SetStatusReporting: argument 1: 'maybe' is not a boolean"},
      {"SetServerEncoding EBCDIC", "unknown text encoding 'EBCDIC'"},
      {"SetLocalFolderItem relative/path", "'relative/path' is not an absolute path"},
      {"print \"ID", "unterminated quote"},
      {"print \"I\\D\"", "unknown escape \\D"},
      {"wait soon", "wait: 'soon' is not a number of seconds"},
      {"wait -1", "is not a number of seconds"},
      {"sleep 1.5", "sleep: '1.5' is not a number of milliseconds"},
      {"quit now", "usage: quit"},
      {"new a b", "usage: new [ID]"},
  };
  for (const Case& c : cases) {
    // A line before the error runs, the line after it does not.
    const Result r = RunScript(QStringLiteral("print CommandPort\n%1\nprint ID\n").arg(QString::fromUtf8(c.line)));
    ASSERT_TRUE(r.finished) << c.line;
    EXPECT_EQ(r.exitCode, 2) << c.line;
    EXPECT_EQ(r.Lines(), QStringList{"value\tCommandPort\t21"}) << c.line;
    EXPECT_TRUE(r.err.startsWith(QStringLiteral("velmar: line 2: "))) << c.line << " -> " << r.err.toStdString();
    EXPECT_TRUE(r.err.contains(QString::fromUtf8(c.message))) << c.line << " -> " << r.err.toStdString();
  }
}

TEST(ShellBinary, ErrorsCountLinesPerSource) {
  QTemporaryDir dir;
  ASSERT_TRUE(dir.isValid());
  const QString script = dir.filePath("script.vel");
  {
    QFile file(script);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("# a comment\n\nprint ID\r\nBogus\nprint CommandPort\n");
  }
  // -e instructions run first, counted among themselves; the script counts its own lines
  // (comments, blank lines and CR LF ends included).
  const Result r = ShellProcess::Run({"-e", "set ID first", "-e", "print ID", script});
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(r.Lines(), (QStringList{"value\tID\t\"first\"", "value\tID\t\"first\""}));
  EXPECT_EQ(r.err, "velmar: line 4: unknown instruction or method Bogus\n");

  const Result e = ShellProcess::Run({"-e", "print ID", "-e", "Bogus", "-e", "print CommandPort"});
  EXPECT_EQ(e.exitCode, 2);
  EXPECT_EQ(e.err, "velmar: line 2: unknown instruction or method Bogus\n");
  EXPECT_EQ(e.Lines(), QStringList{"value\tID\t\"\""});
}

TEST(ShellBinary, SourcesAndTheirOrder) {
  // With -e and no SCRIPT stdin is not read.
  const Result only = ShellProcess::Run({"-e", "print CommandPort"}, "Bogus\n");
  EXPECT_EQ(only.exitCode, 0) << only.err.toStdString();
  EXPECT_EQ(only.Lines(), QStringList{"value\tCommandPort\t21"});

  // "-" names stdin as the SCRIPT, after the -e instructions; a last line without LF counts.
  const Result dash = ShellProcess::Run({"-e", "set CommandPort 2121", "-"}, "print CommandPort\nprint FTPS");
  EXPECT_EQ(dash.exitCode, 0) << dash.err.toStdString();
  EXPECT_EQ(dash.Lines(), (QStringList{"value\tCommandPort\t2121", "value\tFTPS\tfalse"}));

  // A script file that cannot be read.
  const Result missing = ShellProcess::Run({"/nonexistent/velmar-script"});
  EXPECT_EQ(missing.exitCode, 2);
  EXPECT_TRUE(missing.err.startsWith("velmar: cannot read /nonexistent/velmar-script")) << missing.err.toStdString();
  EXPECT_TRUE(missing.out.isEmpty());
}

TEST(ShellBinary, ExceptionsOfTheSessionBecomeLinesAndTheRunGoesOn) {
  // Deleting a local file with no local folder set raises inside the session; the shell
  // stops it at the call, prints it, and runs the next line. It is no report: status 0.
  const Result r = RunScript("DeleteLocalFile name.txt\nprint ID\n");
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
  const QStringList lines = r.Lines();
  ASSERT_EQ(lines.size(), 2) << r.out.toStdString();
  EXPECT_TRUE(lines[0].startsWith("exception\t")) << lines[0].toStdString();
  EXPECT_GT(lines[0].size(), QString("exception\t").size());
  EXPECT_EQ(lines[1], "value\tID\t\"\"");
  EXPECT_TRUE(r.err.isEmpty()) << r.err.toStdString();
}

TEST(ShellBinary, QuitEndsTheScript) {
  const Result r = RunScript("EndFTPSession \"Error: gone\"\nquit\nprint ID\nBogus\n");
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.Lines(), QStringList{"error\tError: gone"});
  EXPECT_TRUE(r.err.isEmpty());
}

TEST(ShellBinary, WaitConsumesEachReportOnce) {
  // The report came during the call before `wait`: the first wait returns at once, the
  // second has none left and times out.
  const Result r = RunScript(
      "EndFTPSession \"Error: a\"\n"
      "wait 20\n"
      "print ID\n"
      "wait 0.2\n"
      "print CommandPort\n");
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.Lines(), (QStringList{"error\tError: a", "value\tID\t\"\"", "wait\ttimeout", "value\tCommandPort\t21"}));

  // Two reports satisfy two waits; `new` forgets the old session's reports.
  const Result two = RunScript(
      "EndFTPSession \"Error: a\"\nEndFTPSession \"Logon Complete.\"\nwait 20\nwait 20\nprint ID\n"
      "EndFTPSession \"Error: b\"\nnew fresh\nwait 0.2\nprint ID\n");
  ASSERT_TRUE(two.finished);
  EXPECT_EQ(two.Lines(), (QStringList{"error\tError: a", "success\tLogon Complete.", "value\tID\t\"\"",
                                      "error\tError: b", "wait\ttimeout", "value\tID\t\"fresh\""}));
  // The old session's error is still the last report.
  EXPECT_EQ(two.exitCode, 1);
}

TEST(ShellBinary, NewReplacesTheSession) {
  const Result r = RunScript(
      "set CommandPort 2121\nAddFileName x\nnew row-1\nprint ID\nprint CommandPort\nGetFileCount\nnew\nprint ID\n");
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.Lines(), (QStringList{"value\tID\t\"row-1\"", "value\tCommandPort\t21", "result\tGetFileCount\t-1",
                                    "value\tID\t\"\""}));
}

TEST(ShellBinary, ObjectFieldsCanBeDroppedAndReceiverRestored) {
  const Result r = RunScript(
      "print FTPStatusInstance\n"
      "set ConnectionTimer null\n"
      "print ConnectionTimer\n"
      "print ConnectionTimer.Period\n"
      "set FTPStatusInstance null\n"
      "print FTPStatusInstance\n"
      "EndFTPSession \"Error: unseen\"\n"
      "SetStatusReporting true\n"
      "EndFTPSession \"Error: seen\"\n");
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.Lines(), (QStringList{"value\tFTPStatusInstance\t{\"Session\":\"\"}", "value\tConnectionTimer\tnull",
                                    "value\tConnectionTimer.Period\tnull", "value\tFTPStatusInstance\tnull",
                                    "error\tError: seen"}));
}

TEST(ShellBinary, VersionHelpAndBadOptions) {
  const Result version = ShellProcess::Run({"--version"});
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_EQ(version.out, "velmar 5.0.0\n");

  const Result help = ShellProcess::Run({"--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_TRUE(help.out.startsWith("Usage: velmar [--no-progress] [-e INSTRUCTION]... [SCRIPT]"));
  for (const char* word : {"wait [SECONDS]", "sleep MS", "Squeeze", "ParseCommandBuffer", "FormatBytes", "SITECommand",
                           "DataSocket.FileData", "ConnectionTimer.Mode", "ServerPassword"})
    EXPECT_TRUE(help.out.contains(QString::fromUtf8(word))) << word;

  const Result unknown = ShellProcess::Run({"--frobnicate"});
  EXPECT_EQ(unknown.exitCode, 2);
  EXPECT_TRUE(unknown.err.startsWith("velmar: unknown option --frobnicate"));

  const Result dangling = ShellProcess::Run({"-e"});
  EXPECT_EQ(dangling.exitCode, 2);
  EXPECT_TRUE(dangling.err.contains("-e needs an INSTRUCTION"));

  const Result two = ShellProcess::Run({"a.vel", "b.vel"});
  EXPECT_EQ(two.exitCode, 2);
  EXPECT_TRUE(two.err.contains("only one SCRIPT"));

  const Result quiet = ShellProcess::Run({"--no-progress", "-e", "print CommandPort"});
  EXPECT_EQ(quiet.exitCode, 0);
  EXPECT_EQ(quiet.Lines(), QStringList{"value\tCommandPort\t21"});
}

TEST(ShellBinary, APipeIsRunLineByLineAsLinesArrive) {
  ShellProcess shell;
  shell.Start({});
  ASSERT_TRUE(shell.Started());
  // Each answer arrives while stdin is still open: the line ran before the next was written.
  shell.Write("print CommandPort\n");
  ASSERT_TRUE(shell.WaitForOutput("value\tCommandPort\t21\n"));
  shell.Write("set CommandPort 990\n");
  shell.Write("print Comm");  // half a line runs nothing yet
  shell.Write("andPort\n");
  ASSERT_TRUE(shell.WaitForOutput("value\tCommandPort\t990\n"));
  // A wait that times out while the pipe stays open, then the next line.
  shell.Write("wait 0.1\n");
  ASSERT_TRUE(shell.WaitForOutput("wait\ttimeout\n"));
  shell.Write("FormatBytes 1025\n");
  ASSERT_TRUE(shell.WaitForOutput("result\tFormatBytes\t\"1 KB\"\n"));
  shell.CloseInput();
  const Result r = shell.Finish();
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.Lines(), (QStringList{"value\tCommandPort\t21", "value\tCommandPort\t990", "wait\ttimeout",
                                    "result\tFormatBytes\t\"1 KB\""}));
}

TEST(ShellBinary, AScriptErrorOnAPipeStopsAtOnce) {
  ShellProcess shell;
  shell.Start({});
  ASSERT_TRUE(shell.Started());
  shell.Write("print ID\nBogus\n");
  // The shell ends without waiting for the end of its input.
  const Result r = shell.Finish(10000);
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(r.err, "velmar: line 2: unknown instruction or method Bogus\n");
}

}  // namespace
}  // namespace velmar::test
