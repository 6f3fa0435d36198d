#pragma once
// The app's calls into the desktop that a test must be able to watch instead of suffer:
// the beep, the end of the program, and a window shown modally (which would block).
#include <functional>

class QDialog;

namespace velmar {

class AppHooks {
public:
  using BeepHook = std::function<void()>;
  using QuitHook = std::function<void(int status)>;
  // Gets the dialog, ready to show, in place of its exec(); returns when the dialog should
  // count as closed.
  using ModalHook = std::function<void(QDialog& dialog)>;

  static void SetBeepHook(BeepHook hook);
  static void SetQuitHook(QuitHook hook);
  static void SetModalHook(ModalHook hook);

  // QApplication::beep(), or the hook.
  static void Beep();
  // Ends the event loop with this status at once, or calls the hook.
  static void Quit(int status);
  // Runs the dialog modally (exec), or hands it to the hook.
  static void ShowModal(QDialog& dialog);
};

}  // namespace velmar
