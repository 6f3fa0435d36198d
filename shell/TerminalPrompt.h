#pragma once
// The shell's prompt at a terminal, with line editing, history and Tab completion (libedit,
// through its readline-compatible callback interface). It never blocks: the shell's notifier
// on stdin hands each keystroke to ReadAvailable while the event loop goes on running
// sessions. While a line is being typed the prompt is the terminal line kept by ShellOutput,
// so reports arriving meanwhile are written above it and the typed text is drawn again.
//
// History: $XDG_STATE_HOME/velmar/history (default ~/.local/state/velmar/history), mode 0600,
// the last 1000 lines. Completion: the first word from the instructions and the operations,
// the word after `set` and `print` from the fields (dotted paths included).
#include "shell/TerminalLine.h"

#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

namespace velmar {

class TerminalPrompt : public TerminalLine {
public:
  // `onLine` receives each line typed, or nothing at the end of input (Ctrl-D).
  using LineHandler = std::function<void(std::optional<QString> line)>;
  explicit TerminalPrompt(LineHandler onLine);
  ~TerminalPrompt() override;
  TerminalPrompt(const TerminalPrompt&) = delete;
  TerminalPrompt& operator=(const TerminalPrompt&) = delete;

  // Shows `prompt` and takes keystrokes until a line is complete.
  void Ask(const char* prompt);
  bool Asking() const { return asking_; }
  // stdin is readable: one keystroke (or more) to the editor.
  void ReadAvailable();

  // The words that complete `word` when the line before it is `before`.
  static QStringList Completions(const QString& before, const QString& word);
  static QString HistoryPath();

  void Clear() override;
  void Draw() override;

private:
  static void OnLine(char* line);
  void SaveHistory();

  LineHandler onLine_;
  bool asking_ = false;
  QString historyPath_;
};

}  // namespace velmar
