// Thornquill Upload: the drop window, or with --drop the same drop without a window.
#include "app/App.h"
#include "app/AppStatus.h"
#include "app/CommandLine.h"
#include "app/DropRunner.h"
#include "app/FileTypes.h"
#include "app/Globals.h"
#include "app/MainWindow.h"
#include "app/OpenFileLimit.h"
#include "app/PreferencesWindow.h"
#include "platform/Exceptions.h"
#include "platform/MsgBox.h"
#include "session/FTPSessionClass.h"

#include <QApplication>
#include <QDir>
#include <QIcon>
#include <QMessageBox>
#include <QTimer>

#include <csignal>
#include <cstdio>

using namespace velmar;

namespace {

const char* const kProgram = "thornquill-upload";

void PrintLine(FILE* stream, const QString& line) {
  std::fputs(line.toUtf8().constData(), stream);
  std::fputc('\n', stream);
  std::fflush(stream);
}

int BadUsage(const QString& message) {
  PrintLine(stderr, QStringLiteral("%1: %2").arg(QLatin1String(kProgram), message));
  PrintLine(stderr, QStringLiteral("Try '%1 --help'.").arg(QLatin1String(kProgram)));
  return 2;
}

QString Version() {
  return QStringLiteral("%1 %2 (velmar library %3)")
      .arg(QLatin1String(kProgram), QStringLiteral(THORNQUILL_VERSION), FTPSessionClass().GetVelmarVersion());
}

// Windows and sessions are Qt objects: they go before the application object does.
void ReleaseAll() {
  delete PreferencesWindow::Existing();
  delete MainWindow::Existing();
  Globals::Session.clear();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

int RunDrop(const CommandLine& options) {
  SetMsgBoxHook([](const QString& text) { PrintLine(stderr, QStringLiteral("msgbox\t") + DropRunner::EscapeText(text)); });
  try {
    Globals::LoadPreferences();
  } catch (const std::exception& e) {
    PrintLine(stderr, QStringLiteral("%1: %2").arg(QLatin1String(kProgram), QString::fromUtf8(e.what())));
    return 2;
  }
  const QString missing = DropRunner::MissingSettings();
  if (!missing.isEmpty()) {
    PrintLine(stderr, QStringLiteral("%1: settings missing: %2 (in %3). Run %1 without --drop and use "
                                     "\"Server Setup\", or write the four lines: server, server directory, "
                                     "user name, password.")
                          .arg(QLatin1String(kProgram), missing, Globals::PreferencesFilePath()));
    return 2;
  }
  DropRunner runner([](const QString& line) { PrintLine(stdout, line); });
  return runner.Run(options);
}

int RunWindows() {
  SetMsgBoxHook([](const QString& text) {
    QMessageBox box(QMessageBox::NoIcon, QStringLiteral("Thornquill Upload"), text, QMessageBox::Ok,
                    QApplication::activeWindow());
    box.exec();
  });
  App app;
  int failed = 0;
  // The application's open event is the first event of the loop.
  QTimer::singleShot(0, [&app, &failed] {
    try {
      app.Event_Open();
    } catch (const std::exception& e) {
      // Nothing can be done without readable settings: say why and stop.
      ReportException(QString::fromUtf8(e.what()));
      failed = 1;
      QCoreApplication::exit(1);
    }
  });
  const int status = QApplication::exec();
  return failed ? 1 : status;
}

}  // namespace

int main(int argc, char** argv) {
  // A write to a connection the server has reset must come back as an error.
  std::signal(SIGPIPE, SIG_IGN);
  OpenFileLimit::Raise();

  QStringList raw;
  for (int index = 1; index < argc; ++index) raw.append(QString::fromLocal8Bit(argv[index]));
  // Help and version need no display.
  if (CommandLine::Mentions(raw, QStringLiteral("--help"))) {
    std::fputs(CommandLine::Usage().toUtf8().constData(), stdout);
    return 0;
  }
  if (CommandLine::Mentions(raw, QStringLiteral("--version"))) {
    PrintLine(stdout, Version());
    return 0;
  }
  // A headless drop needs no display unless the window is to be seen.
  const bool drop = CommandLine::Mentions(raw, QStringLiteral("--drop"));
  if (drop && !CommandLine::Mentions(raw, QStringLiteral("--show")) && !CommandLine::ChoosesPlatform(raw) &&
      qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", "offscreen");

  FileTypes::Setup();
  QApplication application(argc, argv);
  QApplication::setApplicationName(QLatin1String(kProgram));
  QApplication::setApplicationVersion(QStringLiteral(THORNQUILL_VERSION));
  QApplication::setDesktopFileName(QLatin1String(kProgram));
  QApplication::setWindowIcon(QIcon::fromTheme(QLatin1String(kProgram)));
  // The program ends when the main window closes, not when the last window hides (the main
  // window hides while the settings are edited).
  QApplication::setQuitOnLastWindowClosed(false);

  const CommandLine options = CommandLine::Parse(QApplication::arguments().mid(1), QDir::currentPath());
  if (!options.Error.isEmpty()) return BadUsage(options.Error);

  AppStatus::Install();
  SetExceptionHook([](const QString& description) {
    PrintLine(stderr, QStringLiteral("%1: exception: %2").arg(QLatin1String(kProgram), description));
  });

  const int status = options.mode == CommandLine::Mode::Drop ? RunDrop(options) : RunWindows();
  ReleaseAll();
  return status;
}
