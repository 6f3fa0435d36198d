// The `velmar` binary at a terminal (a pseudo-terminal of script(1)): it prompts with line
// editing, Tab completion and a history kept across runs; a script error is reported without
// ending the run, so a person typing keeps the session; a transfer shows a progress bar.
#include "support/RealFtpServer.h"
#include "support/TestFiles.h"
#include "tests/shell/ShellProcess.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

// The shell (or a one-line command) in a pseudo-terminal, its history in `state`.
void StartInTerminal(ShellProcess& terminal, const QString& state, const QString& arguments = QString()) {
  terminal.SetEnv("XDG_STATE_HOME", state);
  terminal.Start({"-qfec", QStringLiteral(VELMAR_SHELL_BINARY " ") + arguments, "/dev/null"}, "script");
}

TEST(ShellTerminal, PromptsCompletesKeepsHistoryAndGoesOnAfterAScriptError) {
  QTemporaryDir state;
  // Each run: what is typed, then what the terminal must show (with CR LF line ends); line
  // numbers go on counting the lines typed. The second run takes the last line from the
  // history (arrow up) and runs it again.
  const std::vector<std::vector<std::pair<const char*, const char*>>> runs = {
      {
          {"", "velmar> "},
          {"Bogus\n", "velmar: line 1: unknown instruction or method Bogus\r\nvelmar> "},
          {"set CommandPort 2121\nprint CommandPort\n", "value\tCommandPort\t2121\r\nvelmar> "},
          {"set CommandPort x\n", "velmar: line 4: CommandPort: 'x' is not a decimal integer of 32 bits\r\nvelmar> "},
          {"prin\tConnectionTimer.Mo\t\n", "value\tConnectionTimer.Mode\t0\r\nvelmar> "},
          {"GetVelm\t\n", "result\tGetVelmarVersion\t\"5.0.0\"\r\nvelmar> "},
      },
      {{"", "velmar> "}, {"\x1b[A\n", "result\tGetVelmarVersion\t\"5.0.0\"\r\nvelmar> "}},
  };
  for (const auto& steps : runs) {
    ShellProcess terminal;
    StartInTerminal(terminal, state.path());
    ASSERT_TRUE(terminal.Started());
    for (const auto& [typed, shown] : steps) {
      terminal.Write(typed);
      ASSERT_TRUE(terminal.WaitForOutput(shown)) << terminal.Finish().out.toStdString();
    }
    // End of input (Ctrl-D) ends the shell; no report came, so the status is 0.
    terminal.Write("\x04");
    const ShellProcess::Result r = terminal.Finish();
    EXPECT_EQ(r.exitCode, 0) << r.out.toStdString();
  }
  // Typed lines may hold passwords: the history is the user's alone.
  const QFileInfo history(state.path() + "/velmar/history");
  EXPECT_TRUE(history.isFile());
  EXPECT_FALSE(history.permissions() & (QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther));
}

// An upload at a terminal: a bar with the total instead of progress lines, cleared before
// each report line.
TEST(ShellTerminal, ATransferShowsAProgressBar) {
  RealFtpServer server(RealFtpServer::Kind::Pyftpdlib);
  if (!server.Started()) GTEST_SKIP() << server.SkipReason().toStdString();
  QTemporaryDir local;
  WriteFile(local.path() + "/big.bin", RandomBytes(3 * 1024 * 1024, 9));
  ShellProcess terminal;
  StartInTerminal(terminal, local.path(), QStringLiteral("put %1/big.bin ftp://%2:%3@127.0.0.1:%4/")
                                              .arg(local.path(), server.User(), server.Password())
                                              .arg(server.Port()));
  const ShellProcess::Result r = terminal.Finish(30000);
  EXPECT_EQ(r.exitCode, 0) << r.out.toStdString();
  EXPECT_TRUE(r.out.contains(QRegularExpression(" of 3.0 MiB +\\d+%.*/s.*\r\x1b\\[Kresponse\t"))) << r.out.toStdString();
  EXPECT_TRUE(r.out.endsWith("success\tFile Transfer Complete.\r\n")) << r.out.toStdString();
  EXPECT_FALSE(r.out.contains("progress\t"));
}

}  // namespace
}  // namespace velmar::test
