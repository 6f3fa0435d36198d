#pragma once
// The application: at start it loads the settings, asks for missing ones in the preferences
// window, and shows the main window.
namespace velmar {

class App {
public:
  // Run once, as the first event of the event loop.
  void Event_Open();

  // True when Server, LoginID or Password is empty (the server path may be empty).
  static bool SettingsMissing();
};

}  // namespace velmar
