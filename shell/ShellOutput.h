#pragma once
// The shell's output lines. stdout carries one line per event, KIND, TAB, text, LF. Lines
// are gathered and written out whenever the shell is about to wait (see main.cpp), so a
// program reading the pipe has every line before the shell waits for anything, while a busy
// transfer costs one write per burst of events instead of one per line.
// stderr carries the shell's own complaints ("velmar: line N: message").
// Implemented in Shell.cpp.
#include <QString>
#include <functional>
#include <nlohmann/json_fwd.hpp>

namespace velmar {

using Json = nlohmann::ordered_json;
class TerminalLine;

class ShellOutput {
public:
  // KIND TAB text, with the text escaped (no TAB, CR or LF can reach the line).
  static void Report(const QString& kind, const QString& text);
  // KIND TAB NAME TAB JSON, for `value` and `result` lines.
  static void Value(const QString& kind, const QString& name, const Json& value);
  // "velmar: line N: message" on stderr.
  static void ScriptError(int line, const QString& message);
  // "velmar: message" on stderr.
  static void Error(const QString& message);
  // Raw text on stderr (the prompt), flushed.
  static void Prompt(const QString& text);
  // Writes out the stdout lines gathered so far, then draws the kept terminal line again.
  static void Flush();

  // `progress` lines, or what `SetProgressDisplay` installed instead (a progress bar).
  static void Progress(qint64 bytes);
  static void SetProgressDisplay(std::function<void(qint64)> display);
  // The line kept at the foot of the terminal (see TerminalLine); `shown` when it is on the
  // screen already. Keep replaces the line kept before; Release lets go of `line` if kept.
  static void Keep(TerminalLine* line, bool shown);
  static void Release(TerminalLine* line);
  static TerminalLine* Kept();
  // Clears the kept line now, to be drawn anew at the next Flush.
  static void Repaint();
};

}  // namespace velmar
