#pragma once
// A line kept at the foot of the terminal while report lines scroll above it: the prompt
// being typed, or a transfer's progress bar. ShellOutput clears it before it writes a line and
// draws it again once the lines are out, so neither tears the other.
namespace velmar {

class TerminalLine {
public:
  virtual ~TerminalLine() = default;
  // Removes the line from the screen, the cursor left at the start of the empty line.
  virtual void Clear() = 0;
  // Draws the line where the cursor is, without a line end, and flushes it.
  virtual void Draw() = 0;
  // The line is no longer kept (another took its place, or it was let go).
  virtual void Released() {}
  // True for a line that goes away at a success or error report (the end of a transfer).
  virtual bool EndsAtReport() const { return false; }
};

}  // namespace velmar
