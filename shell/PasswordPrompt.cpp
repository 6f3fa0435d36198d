#include "shell/PasswordPrompt.h"

#include "shell/ShellOutput.h"

#include <QByteArray>

#include <cerrno>
#include <termios.h>
#include <unistd.h>

namespace velmar {

bool PasswordPrompt::Possible() { return ::isatty(STDIN_FILENO) == 1; }

std::optional<QString> PasswordPrompt::Ask(const QString& prompt) {
  ShellOutput::Prompt(prompt);
  termios saved {};
  const bool terminal = ::tcgetattr(STDIN_FILENO, &saved) == 0;
  if (terminal) {
    termios quiet = saved;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    quiet.c_lflag |= ECHONL;
    ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
  // Byte by byte: nothing after the line end may be taken from stdin.
  QByteArray line;
  bool ended = false;
  for (char c = 0;;) {
    const ssize_t n = ::read(STDIN_FILENO, &c, 1);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    if (c == '\n') {
      ended = true;
      break;
    }
    line += c;
  }
  if (terminal) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
  if (!ended && line.isEmpty()) return std::nullopt;
  if (line.endsWith('\r')) line.chop(1);
  return QString::fromUtf8(line);
}

}  // namespace velmar
