#pragma once
// The program's arguments. Without arguments the windows open; with --drop the items are
// uploaded headless. Qt's own options (-platform, -style, ...) are taken by QApplication
// before the rest is parsed here.
#include <QString>
#include <QStringList>

namespace velmar {

class CommandLine {
public:
  enum class Mode { Window, Drop, Help, Version };

  Mode mode = Mode::Window;
  // --drop: the items, as absolute paths, in the order given.
  QStringList Paths;
  // --show: the main window is shown during the drop (default: offscreen, unseen).
  bool Show = false;
  // --linger MS: the program stays this long after the drop has ended.
  int LingerMs = 0;
  // --screenshot FILE, --preferences-screenshot FILE: PNG pictures of the two windows,
  // taken when the drop has ended.
  QString Screenshot;
  QString PreferencesScreenshot;
  // Set when the arguments are wrong; then nothing else is meaningful.
  QString Error;

  // arguments without the program name; relative paths are taken from currentDirectory.
  // Paths must name existing files or folders.
  static CommandLine Parse(const QStringList& arguments, const QString& currentDirectory);

  // True when `option` comes before any "--" among the raw arguments: for the decisions
  // that must be made before QApplication exists (help, version, offscreen platform).
  static bool Mentions(const QStringList& arguments, const QString& option);
  // True when the raw arguments choose Qt's platform (-platform / --platform).
  static bool ChoosesPlatform(const QStringList& arguments);

  static QString Usage();
};

}  // namespace velmar
