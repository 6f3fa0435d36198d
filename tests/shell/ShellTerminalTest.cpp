// The `velmar` binary at a terminal (a pseudo-terminal of script(1)): it prompts, and a
// script error is reported without ending the run, so a person typing keeps the session.
#include "tests/shell/ShellProcess.h"

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

TEST(ShellTerminal, PromptsAndGoesOnAfterAScriptError) {
  ShellProcess terminal;
  terminal.Start({"-qfec", VELMAR_SHELL_BINARY, "/dev/null"}, "script");
  ASSERT_TRUE(terminal.Started());
  // What is typed, then what the terminal must show (with CR LF line ends); line numbers
  // go on counting the lines typed.
  const std::pair<const char*, const char*> steps[] = {
      {"", "velmar> "},
      {"Bogus\n", "velmar: line 1: unknown instruction or method Bogus\r\nvelmar> "},
      {"set CommandPort 2121\nprint CommandPort\n", "value\tCommandPort\t2121\r\nvelmar> "},
      {"set CommandPort x\n", "velmar: line 4: CommandPort: 'x' is not a decimal integer of 32 bits\r\nvelmar> "},
  };
  for (const auto& [typed, shown] : steps) {
    terminal.Write(typed);
    ASSERT_TRUE(terminal.WaitForOutput(shown)) << terminal.Finish().out.toStdString();
  }
  // End of input (Ctrl-D) ends the shell; no report came, so the status is 0.
  terminal.Write("\x04");
  const ShellProcess::Result r = terminal.Finish();
  EXPECT_EQ(r.exitCode, 0) << r.out.toStdString();
}

}  // namespace
}  // namespace velmar::test
