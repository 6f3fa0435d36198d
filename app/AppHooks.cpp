#include "app/AppHooks.h"

#include <QApplication>
#include <QDialog>

namespace velmar {

namespace {
AppHooks::BeepHook& BeepHookSlot() {
  static AppHooks::BeepHook hook;
  return hook;
}
AppHooks::QuitHook& QuitHookSlot() {
  static AppHooks::QuitHook hook;
  return hook;
}
AppHooks::ModalHook& ModalHookSlot() {
  static AppHooks::ModalHook hook;
  return hook;
}
}  // namespace

void AppHooks::SetBeepHook(BeepHook hook) { BeepHookSlot() = std::move(hook); }
void AppHooks::SetQuitHook(QuitHook hook) { QuitHookSlot() = std::move(hook); }
void AppHooks::SetModalHook(ModalHook hook) { ModalHookSlot() = std::move(hook); }

void AppHooks::Beep() {
  if (BeepHookSlot()) return BeepHookSlot()();
  QApplication::beep();
}

void AppHooks::Quit(int status) {
  if (QuitHookSlot()) return QuitHookSlot()(status);
  QCoreApplication::exit(status);
}

void AppHooks::ShowModal(QDialog& dialog) {
  if (ModalHookSlot()) return ModalHookSlot()(dialog);
  dialog.exec();
}

}  // namespace velmar
