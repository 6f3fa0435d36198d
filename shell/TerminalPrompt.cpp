#include "shell/TerminalPrompt.h"

#include "shell/Shell.h"
#include "shell/ShellOperations.h"
#include "shell/ShellOutput.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <editline/readline.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velmar {

namespace {

constexpr int kHistoryLines = 1000;
TerminalPrompt* active = nullptr;

// libedit asks for one match after the other; the list is made at the first.
QStringList matches;
char* NextMatch(const char*, int state) {
  if (state >= matches.size()) return nullptr;
  return ::strdup(matches[state].toUtf8().constData());
}

char** Complete(const char* text, int start, int) {
  const QString before = QString::fromUtf8(rl_line_buffer, start);
  matches = TerminalPrompt::Completions(before, QString::fromUtf8(text));
  // No file names in place of unknown words: after a METHOD they may help, elsewhere not.
  rl_attempted_completion_over = before.trimmed().isEmpty() || before.split(u' ', Qt::SkipEmptyParts).size() == 1;
  return matches.isEmpty() ? nullptr : rl_completion_matches(text, NextMatch);
}

}  // namespace

TerminalPrompt::TerminalPrompt(LineHandler onLine) : onLine_(std::move(onLine)), historyPath_(HistoryPath()) {
  active = this;
  rl_readline_name = "velmar";
  rl_instream = stdin;
  // The prompt is no report: it goes to stderr, as the shell's other words to a person.
  rl_outstream = stderr;
  rl_attempted_completion_function = Complete;
  static char breaks[] = " \t";
  rl_completer_word_break_characters = breaks;
  rl_initialize();
  using_history();
  stifle_history(kHistoryLines);
  read_history(QFile::encodeName(historyPath_).constData());
}

TerminalPrompt::~TerminalPrompt() {
  if (asking_) rl_callback_handler_remove();
  ShellOutput::Release(this);
  active = nullptr;
}

void TerminalPrompt::Ask(const char* prompt) {
  ShellOutput::Flush();
  asking_ = true;
  rl_callback_handler_install(prompt, OnLine);
  ShellOutput::Keep(this, true);
}

void TerminalPrompt::ReadAvailable() {
  if (asking_) rl_callback_read_char();
}

void TerminalPrompt::OnLine(char* line) {
  TerminalPrompt* self = active;
  if (!self) return std::free(line);
  // The line is done: the terminal goes back to its own echo until the next question.
  self->asking_ = false;
  ShellOutput::Release(self);
  rl_callback_handler_remove();
  std::optional<QString> text;
  if (line) {
    text = QString::fromUtf8(line);
    if (!text->trimmed().isEmpty()) {
      add_history(line);
      self->SaveHistory();
    }
    std::free(line);
  } else {
    std::fputc('\n', stderr);
  }
  self->onLine_(text);
}

QStringList TerminalPrompt::Completions(const QString& before, const QString& word) {
  const QStringList words = before.split(u' ', Qt::SkipEmptyParts);
  QStringList candidates;
  if (words.isEmpty())
    candidates = Shell::Instructions() + ShellOperations::OperationNames();
  else if (words.size() == 1 && (words[0] == u"set" || words[0] == u"print"))
    candidates = ShellOperations::FieldNames();
  QStringList found;
  for (const QString& candidate : candidates)
    if (candidate.startsWith(word)) found.append(candidate);
  return found;
}

QString TerminalPrompt::HistoryPath() {
  QString state = qEnvironmentVariable("XDG_STATE_HOME");
  if (!QDir::isAbsolutePath(state)) state = QDir::homePath() + QStringLiteral("/.local/state");
  return state + QStringLiteral("/velmar/history");
}

void TerminalPrompt::SaveHistory() {
  // The folder and the file are the user's alone: typed lines may hold passwords.
  const QString folder = QFileInfo(historyPath_).path();
  if (!QDir().mkpath(folder)) return;
  ::chmod(QFile::encodeName(folder).constData(), 0700);
  const QByteArray path = QFile::encodeName(historyPath_);
  const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return;
  ::fchmod(fd, 0600);
  ::close(fd);
  write_history(path.constData());
}

void TerminalPrompt::Clear() {
  std::fputs("\r\x1b[K", stderr);
  std::fflush(stderr);
}

void TerminalPrompt::Draw() { rl_forced_update_display(); }

}  // namespace velmar
