// The `velmar` binary at a terminal (a pseudo-terminal): it prompts, and a script error is
// reported without ending the run, so a person typing keeps the session.
#include <QByteArray>
#include <QDeadlineTimer>
#include <gtest/gtest.h>

#include <csignal>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

namespace velmar::test {
namespace {

class Terminal {
public:
  ~Terminal() {
    if (pid_ > 0 && !exited_) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    if (master_ >= 0) ::close(master_);
  }

  bool Start() {
    pid_ = ::forkpty(&master_, nullptr, nullptr, nullptr);
    if (pid_ == 0) {
      ::execl(VELMAR_SHELL_BINARY, "velmar", static_cast<char*>(nullptr));
      ::_exit(127);
    }
    return pid_ > 0;
  }

  void Write(const QByteArray& bytes) { (void)!::write(master_, bytes.constData(), static_cast<size_t>(bytes.size())); }

  // Reads until the output holds `text` `count` times, or the time is up.
  bool WaitFor(const QByteArray& text, int count = 1, int timeoutMs = 10000) {
    const QDeadlineTimer deadline(timeoutMs);
    while (output_.count(text) < count) {
      if (deadline.hasExpired() || !ReadSome(50)) return output_.count(text) >= count;
    }
    return true;
  }

  // Reads until the output ends in a prompt.
  bool WaitForPrompt(int timeoutMs = 10000) {
    const QDeadlineTimer deadline(timeoutMs);
    while (!output_.endsWith("velmar> ")) {
      if (deadline.hasExpired() || !ReadSome(50)) return output_.endsWith("velmar> ");
    }
    return true;
  }

  // The exit status, or -1 when the shell has not ended in time.
  int WaitExit(int timeoutMs = 10000) {
    const QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired()) {
      int status = 0;
      if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        exited_ = true;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      }
      ReadSome(20);
    }
    return -1;
  }

  const QByteArray& Output() const { return output_; }

private:
  // False once the terminal is closed on the other side.
  bool ReadSome(int waitMs) {
    pollfd p{master_, POLLIN, 0};
    if (::poll(&p, 1, waitMs) <= 0) return true;
    char buffer[4096];
    const ssize_t n = ::read(master_, buffer, sizeof buffer);
    if (n <= 0) return false;
    output_.append(buffer, n);
    return true;
  }

  pid_t pid_ = -1;
  int master_ = -1;
  bool exited_ = false;
  QByteArray output_;
};

TEST(ShellTerminal, PromptsAndGoesOnAfterAScriptError) {
  Terminal terminal;
  ASSERT_TRUE(terminal.Start());
  ASSERT_TRUE(terminal.WaitFor("velmar> ")) << terminal.Output().toStdString();

  terminal.Write("Bogus\n");
  ASSERT_TRUE(terminal.WaitFor("velmar: line 1: unknown instruction or method Bogus"))
      << terminal.Output().toStdString();
  ASSERT_TRUE(terminal.WaitFor("velmar> ", 2)) << terminal.Output().toStdString();

  terminal.Write("set CommandPort 2121\n");
  terminal.Write("print CommandPort\n");
  ASSERT_TRUE(terminal.WaitFor("value\tCommandPort\t2121")) << terminal.Output().toStdString();

  // Line numbers go on counting the lines typed.
  terminal.Write("set CommandPort x\n");
  ASSERT_TRUE(terminal.WaitFor("velmar: line 4: CommandPort: 'x' is not a decimal integer"))
      << terminal.Output().toStdString();

  // End of input (Ctrl-D) ends the shell; no report came, so the status is 0.
  ASSERT_TRUE(terminal.WaitForPrompt()) << terminal.Output().toStdString();
  terminal.Write("\x04");
  EXPECT_EQ(terminal.WaitExit(), 0) << terminal.Output().toStdString();
}

}  // namespace
}  // namespace velmar::test
