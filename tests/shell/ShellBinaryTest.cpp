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

// One run of the shell: its arguments and stdin, and what it must give back.
struct ShellRun {
  QStringList arguments;
  QString input;
  int exitCode;
  QStringList lines;
  QString err = {};  // the whole of stderr
};

void Check(const ShellRun& c) {
  SCOPED_TRACE(c.arguments.join(' ').toStdString() + " <<< " + c.input.toStdString());
  const Result r = ShellProcess::Run(c.arguments, c.input);
  ASSERT_TRUE(r.finished);
  EXPECT_EQ(r.exitCode, c.exitCode) << r.err.toStdString();
  EXPECT_EQ(r.Lines(), c.lines) << r.out.toStdString();
  EXPECT_EQ(r.err, c.err);
}

TEST(ShellBinary, ScriptsGiveTheirLinesAndExitStatus) {
  const ShellRun runs[] = {
      {{}, "print CommandPort\nprint ServerTextEncoding\nset ServerTextEncoding UTF-8\nprint ServerTextEncoding\n"
           "set ID \"row 7\"\nprint ID\nset PassiveMode false\nprint PassiveMode\nset Timeout -5\nprint Timeout\n"
           R"(set Files "[\"a\",\"b c\"]")" "\nprint Files\nprint DirList\nprint DataSocket\n"
           "print DataSocket.FileName\nprint CommandSocket.SSLConnected\nprint ConnectionTimer.Mode\n"
           "set Buffer \"220 hi\\r\\n\"\nprint Buffer\n",
       0,
       {"value\tCommandPort\t21", "value\tServerTextEncoding\t\"ISO-8859-1\"", "value\tServerTextEncoding\t\"UTF-8\"",
        "value\tID\t\"row 7\"", "value\tPassiveMode\tfalse", "value\tTimeout\t-5", "value\tFiles\t[\"a\",\"b c\"]",
        "value\tDirList\t[]", "value\tDataSocket\tnull", "value\tDataSocket.FileName\tnull",
        "value\tCommandSocket.SSLConnected\tnull", "value\tConnectionTimer.Mode\t0", "value\tBuffer\t\"220 hi\\r\\n\""}},
      // The password never appears in the output.
      {{}, "print ServerPassword\nSetLoginInfo example.org alice \"top secret\"\nprint ServerPassword\n"
           "set ServerPassword hunter2\nprint ServerPassword\nprint ServerUserID\n",
       0,
       {"value\tServerPassword\t\"********\"", "value\tServerPassword\t\"********\"",
        "value\tServerPassword\t\"********\"", "value\tServerUserID\t\"alice\""}},
      // A read past the line's last token is reported, and the script goes on.
      {{}, "Squeeze \"a   b\" \" \"\nGetVelmarVersion\nFormatBytes 1025\nFormatBytes 1024\nFormatBytes 1048577\n"
           "GetFileCount\nAddFileName first\nAddFileName second\nGetFileCount\nGetNextFileName\n"
           "SetServerDirectoryPathName /pub/in\nGetServerDirectoryPathName\nSuccessfulMessage \"Logon Complete.\"\n"
           "SuccessfulMessage nonsense\nParseDirListLine \"-rw-r--r-- 1 o g 12 Jan 15 10:30 a  b\"\n"
           "ParseDirListLine \"-rw-r--r-- 1 o g 12 Jan 15\"\nGetFileFromPath /pub/x.txt\n",
       0,
       {"result\tSqueeze\t\"a b\"", "result\tGetVelmarVersion\t\"5.0.0\"", "result\tFormatBytes\t\"1 KB\"",
        "result\tFormatBytes\t\"1024 bytes\"", "result\tFormatBytes\t\"1.0 MB\"", "result\tGetFileCount\t-1",
        "result\tGetFileCount\t1", "result\tGetNextFileName\t\"second\"",
        "result\tGetServerDirectoryPathName\t\"/pub/in\"", "result\tSuccessfulMessage\ttrue",
        "result\tSuccessfulMessage\tfalse",
        "result\tParseDirListLine\t{\"Name\":\"a b\",\"IsDir\":false,\"IsFile\":true,\"Size\":12,"
        "\"ModTime\":\"10:30\",\"ModDate\":\"Jan 15\",\"Permissions\":\"rw-r--r--\"}",
        "exception\tOutOfBoundsException: index 7 of an array of 7 elements", "result\tGetFileFromPath\t\"x.txt\""}},
      // Words convert by the type of the field or argument.
      {{}, "set SessionStartTime 1.5\nprint SessionStartTime\nset DataPort -2147483648\nprint DataPort\n"
           "set ServerTextEncoding utf8\nprint ServerTextEncoding\nSetServerEncoding ISO-8859-1\n"
           "print ServerTextEncoding\nset ConnectionTimer.Period 750\nprint ConnectionTimer\nSetTimeoutSeconds 7\n"
           "print Timeout\nSocketsActive\n",
       1,
       {"value\tSessionStartTime\t1.5", "value\tDataPort\t-2147483648", "value\tServerTextEncoding\t\"UTF-8\"",
        "value\tServerTextEncoding\t\"ISO-8859-1\"", "value\tConnectionTimer\t{\"Mode\":0,\"Period\":750}",
        "value\tTimeout\t7000", "error\tData Socket is no longer active.", "result\tSocketsActive\tfalse"}},
      // Overloads by argument count: without one ParseCommandBuffer takes the line out of
      // Buffer (empty: an empty response), with a code it is the other; three fit neither.
      {{}, "ParseCommandBuffer\nParseCommandBuffer 200\nprint ID\n", 0, {"response\t", "value\tID\t\"\""}},
      {{}, "ParseCommandBuffer 1 2 3\n", 2, {}, "velmar: line 1: ParseCommandBuffer takes 0 or 1 arguments, got 3\n"},
      // The last report decides the status; its text is escaped onto one line.
      {{}, "EndFTPSession \"Logon Complete.\"\nEndFTPSession \"Error: 550 no\\r\\nC:\\\\x\\tend\"\n", 1,
       {"success\tLogon Complete.", "error\tError: 550 no\\r\\nC:\\\\x\\tend"}},
      {{}, "EndFTPSession \"Error: first\"\nEndFTPSession \"Logon Complete.\"\n", 0,
       {"error\tError: first", "success\tLogon Complete."}},
      // Status and response lines come from NextFTPStep; an empty command sends nothing.
      {{}, "NextFTPStep START \"\" \"Send\\tit\"\nGetCurrentFTPStep\n", 0,
       {"response\t", "status\tSend\\tit", "result\tGetCurrentFTPStep\t\"START\""}},
      // An exception of the session becomes a line and the run goes on; it is no report.
      {{}, "DeleteLocalFile name.txt\nprint ID\n", 0,
       {"exception\tNilObjectException: local folder is nil", "value\tID\t\"\""}},
      {{}, "EndFTPSession \"Error: gone\"\nquit\nprint ID\nBogus\n", 1, {"error\tError: gone"}},
      // A report that came before `wait` satisfies it at once, and only once; a wait that runs
      // out of time makes the status 3 until a later report decides it.
      {{}, "EndFTPSession \"Error: a\"\nwait 20\nprint ID\nwait 0.2\nprint CommandPort\n", 3,
       {"error\tError: a", "value\tID\t\"\"", "wait\ttimeout", "value\tCommandPort\t21"}},
      // Two reports satisfy two waits; `new` forgets the old session's reports, but the old
      // session's error is still the last report.
      {{}, "EndFTPSession \"Error: a\"\nEndFTPSession \"Logon Complete.\"\nwait 20\nwait 20\nprint ID\n"
           "EndFTPSession \"Error: b\"\nnew fresh\nwait 0.2\nprint ID\n", 3,
       {"error\tError: a", "success\tLogon Complete.", "value\tID\t\"\"", "error\tError: b", "wait\ttimeout",
        "value\tID\t\"fresh\""}},
      // A socket failure gets a hint line naming the server; other errors get none.
      {{}, "SetLoginInfo 127.0.0.1 u p\nset CommandPort 1\nLogon\nwait\nEndFTPSession \"Error: 550 no\"\n", 1,
       {"response\t", "status\tSend Logon Command", "error\tError: 104",
        "hint\t127.0.0.1:1 refused the connection: is an FTP server listening on port 1 there? Check the address, "
        "the port, and any firewall", "error\tError: 550 no"}},
      {{}, "SetLoginInfo nowhere.invalid u p\nLogon\nwait\n", 1,
       {"response\t", "status\tSend Logon Command", "error\tError: 103",
        "hint\tthe name nowhere.invalid could not be resolved: check its spelling, and the DNS settings of this machine"}},
      {{}, "wait 0.1\nEndFTPSession \"Logon Complete.\"\n", 0, {"wait\ttimeout", "success\tLogon Complete."}},
      {{}, "wait 0.1\nEndFTPSession \"Error: x\"\n", 1, {"wait\ttimeout", "error\tError: x"}},
      {{}, "set CommandPort 2121\nAddFileName x\nnew row-1\nprint ID\nprint CommandPort\nGetFileCount\nnew\nprint ID\n", 0,
       {"value\tID\t\"row-1\"", "value\tCommandPort\t21", "result\tGetFileCount\t-1", "value\tID\t\"\""}},
      // Object fields can be dropped, and SetStatusReporting restores the receiver.
      {{}, "print FTPStatusInstance\nset ConnectionTimer null\nprint ConnectionTimer\nprint ConnectionTimer.Period\n"
           "set FTPStatusInstance null\nprint FTPStatusInstance\nEndFTPSession \"Error: unseen\"\n"
           "SetStatusReporting true\nEndFTPSession \"Error: seen\"\n", 1,
       {"value\tFTPStatusInstance\t{\"Session\":\"\"}", "value\tConnectionTimer\tnull",
        "value\tConnectionTimer.Period\tnull", "value\tFTPStatusInstance\tnull", "error\tError: seen"}},
      // Sources: with -e and no SCRIPT stdin is not read; "-" names stdin as the SCRIPT,
      // after the -e instructions, and a last line without LF counts.
      {{"-e", "print CommandPort"}, "Bogus\n", 0, {"value\tCommandPort\t21"}},
      {{"-e", "set CommandPort 2121", "-"}, "print CommandPort\nprint FTPS", 0,
       {"value\tCommandPort\t2121", "value\tFTPS\tfalse"}},
      {{"-e", "print ID", "-e", "Bogus", "-e", "print CommandPort"}, "", 2, {"value\tID\t\"\""},
       "velmar: line 2: unknown instruction or method Bogus\n"},
      {{"/nonexistent/velmar-script"}, "", 2, {}, "velmar: cannot read /nonexistent/velmar-script: No such file or directory\n"},
      // Options.
      {{"--version"}, "", 0, {"velmar 5.0.0"}},
      {{"--no-progress", "-e", "print CommandPort"}, "", 0, {"value\tCommandPort\t21"}},
      {{"--frobnicate"}, "", 2, {}, "velmar: unknown option --frobnicate\nvelmar: try 'velmar --help'\n"},
      {{"-e"}, "", 2, {}, "velmar: -e needs an INSTRUCTION\nvelmar: try 'velmar --help'\n"},
      {{"a.vel", "b.vel"}, "", 2, {}, "velmar: only one SCRIPT may be given\nvelmar: try 'velmar --help'\n"},
  };
  for (const ShellRun& run : runs) Check(run);
}

TEST(ShellBinary, ScriptErrorsStopTheRunWithStatusTwo) {
  const std::pair<const char*, const char*> cases[] = {
      {"Bogus", "unknown instruction or method Bogus"},
      {"logon", "unknown instruction or method logon"},
      {"print Nope", "unknown field Nope"},
      {"print commandport", "unknown field commandport (did you mean CommandPort?)"},
      {"print DataSocket.Nope", "unknown field DataSocket.Nope"},
      {"print CommandPort.Value", "CommandPort has no fields to reach with '.'"},
      {"print", "usage: print FIELD"},
      {"set CommandPort", "usage: set FIELD VALUE"},
      {"set NT yes", "NT: 'yes' is not a boolean (true or false)"},
      {"set ServerTextEncoding KOI8-R", "ServerTextEncoding: unknown text encoding 'KOI8-R' (ISO-8859-1 or UTF-8)"},
      {"set Files notjson", "Files: not a JSON array of strings: unexpected character 'n' at column 1"},
      {"set Files [1,2]", "Files: not a JSON array of strings: element 0 is not a string"},
      {"set DirList []", "DirList is read-only"},
      {"set DataSocket.FileName x", "cannot set DataSocket.FileName: DataSocket is nil"},
      {"set ConnectionTimer something", "ConnectionTimer: an object field can only be set to null"},
      {"Squeeze onlyone", "Squeeze takes 2 arguments, got 1"},
      {"AddFileName a b", "AddFileName takes 1 argument, got 2"},
      {"SetTimeoutSeconds ten", "SetTimeoutSeconds: argument 1: 'ten' is not a decimal integer of 32 bits"},
      {"SetStatusReporting maybe", "SetStatusReporting: argument 1: 'maybe' is not a boolean (true or false)"},
      {"SetServerEncoding EBCDIC", "SetServerEncoding: argument 1: unknown text encoding 'EBCDIC' (ISO-8859-1 or UTF-8)"},
      {"SetLocalFolderItem relative/path", "SetLocalFolderItem: argument 1: 'relative/path' is not an absolute path"},
      {"print \"ID", "unterminated quote in word starting at column 7"},
      {"print \"I\\D\"", R"(unknown escape \D in a quoted word (use \" \\ \r \n \t))"},
      {"wait soon", "wait: 'soon' is not a number of seconds"},
      {"wait -1", "wait: '-1' is not a number of seconds"},
      {"sleep 1.5", "sleep: '1.5' is not a number of milliseconds"},
      {"quit now", "usage: quit"},
      {"new a b", "usage: new [ID]"},
  };
  // A line before the error runs, the line after it does not.
  for (const auto& [line, message] : cases)
    Check({{}, QStringLiteral("print CommandPort\n%1\nprint ID\n").arg(QString::fromUtf8(line)), 2,
           {"value\tCommandPort\t21"}, QStringLiteral("velmar: line 2: %1\n").arg(QString::fromUtf8(message))});
}

TEST(ShellBinary, ErrorsCountLinesPerSourceAndHelpListsTheWords) {
  QTemporaryDir dir;
  ASSERT_TRUE(dir.isValid());
  QFile file(dir.filePath("script.vel"));
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  file.write("# a comment\n\nprint ID\r\nBogus\nprint CommandPort\n");
  file.close();
  // -e instructions run first, counted among themselves; the script counts its own lines
  // (comments, blank lines and CR LF ends included).
  Check({{"-e", "set ID first", "-e", "print ID", file.fileName()}, "", 2,
         {"value\tID\t\"first\"", "value\tID\t\"first\""}, "velmar: line 4: unknown instruction or method Bogus\n"});

  const Result help = ShellProcess::Run({"--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_TRUE(help.out.startsWith("Usage: velmar [--no-progress] [-e INSTRUCTION]... [SCRIPT]"));
  for (const char* word : {"wait [SECONDS]", "sleep MS", "Squeeze", "ParseCommandBuffer", "FormatBytes", "SITECommand",
                           "DataSocket.FileData", "ConnectionTimer.Mode", "ServerPassword", "SecureDataConnection",
                           "VerifyServerCertificate", "TrustedCertificateFile"})
    EXPECT_TRUE(help.out.contains(QString::fromUtf8(word))) << word;
}

TEST(ShellBinary, APipeIsRunLineByLineAsLinesArrive) {
  ShellProcess shell;
  shell.Start({});
  ASSERT_TRUE(shell.Started());
  // Each answer arrives while stdin is still open: the line ran before the next was written.
  // Half a line runs nothing yet; a wait times out while the pipe stays open.
  const std::pair<const char*, const char*> steps[] = {
      {"print CommandPort\n", "value\tCommandPort\t21\n"},
      {"set CommandPort 990\nprint Comm", nullptr},
      {"andPort\n", "value\tCommandPort\t990\n"},
      {"wait 0.1\n", "wait\ttimeout\n"},
      {"FormatBytes 1025\n", "result\tFormatBytes\t\"1 KB\"\n"},
  };
  for (const auto& [line, answer] : steps) {
    shell.Write(line);
    if (answer) {
      ASSERT_TRUE(shell.WaitForOutput(answer)) << answer;
    }
  }
  shell.CloseInput();
  const Result r = shell.Finish();
  EXPECT_EQ(r.exitCode, 3);  // the wait ran out of time
  EXPECT_EQ(r.Lines(), (QStringList{"value\tCommandPort\t21", "value\tCommandPort\t990", "wait\ttimeout",
                                    "result\tFormatBytes\t\"1 KB\""}));

  // A script error on a pipe ends the shell without waiting for the end of its input.
  ShellProcess failing;
  failing.Start({});
  failing.Write("print ID\nBogus\n");
  const Result error = failing.Finish(10000);
  ASSERT_TRUE(error.finished);
  EXPECT_EQ(error.exitCode, 2);
  EXPECT_EQ(error.err, "velmar: line 2: unknown instruction or method Bogus\n");
}

}  // namespace
}  // namespace velmar::test
