#include "app/App.h"

#include "app/Globals.h"
#include "app/MainWindow.h"
#include "app/PreferencesWindow.h"

namespace velmar {

bool App::SettingsMissing() {
  return Globals::Server.isEmpty() || Globals::LoginID.isEmpty() || Globals::Password.isEmpty();
}

void App::Event_Open() {
  Globals::LoadPreferences();
  if (SettingsMissing()) PreferencesWindow::ShowModal();
  // Also when the settings are still missing: the user may open them again from there.
  MainWindow::Instance()->show();
}

}  // namespace velmar
