#pragma once
// The program's settings of its one FTP server and the sessions of the latest drop.
#include <QList>
#include <QString>
#include <memory>

namespace velmar {

class FTPSessionClass;

class Globals {
public:
  static QString Server;
  static QString ServerPath;
  static QString LoginID;
  // Held and stored in the clear.
  static QString Password;
  // The sessions of the latest drop; index = row = ID of the session.
  static QList<std::shared_ptr<FTPSessionClass>> Session;

  // Fills the four settings from the preferences file "Skelvane"; a missing file leaves them
  // as they are. A file that exists but cannot be read raises NilObjectException.
  static void LoadPreferences();
  // Writes the four settings to "Skelvane" (UTF-8, LF, mode 0600); a failure shows a
  // message box and the values stay in memory.
  static void SavePreferences();

  // The path of the preferences file, for messages.
  static QString PreferencesFilePath();
};

}  // namespace velmar
