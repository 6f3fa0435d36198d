#pragma once
// The state every app test starts from: a private, empty preferences folder, empty
// settings, no windows, and hooks that record what would beep, quit, show a modal window
// or a message box.
#include "app/AppHooks.h"
#include "app/AppStatus.h"
#include "app/Globals.h"
#include "app/MainWindow.h"
#include "app/PreferencesWindow.h"
#include "platform/MsgBox.h"
#include "session/FTPSessionClass.h"
#include "support/TestEventLoop.h"

#include <QCoreApplication>
#include <QDialog>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>
#include <tuple>

namespace velmar::test {

class AppFixture : public ::testing::Test {
protected:
  QTemporaryDir config;
  int beeps = 0;
  QList<int> quits;
  QStringList messages;
  QList<QDialog*> modals;
  // What a modal window does while "shown"; by default it stays open and returns at once.
  std::function<void(QDialog&)> whileModal;

  void SetUp() override {
    ASSERT_TRUE(config.isValid());
    qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
    SetAll({"", "", "", ""});
    Globals::Session.clear();
    AppHooks::SetBeepHook([this] { ++beeps; });
    AppHooks::SetQuitHook([this](int status) { quits.append(status); });
    AppHooks::SetModalHook([this](QDialog& dialog) {
      modals.append(&dialog);
      if (whileModal) whileModal(dialog);
    });
    SetMsgBoxHook([this](const QString& text) { messages.append(text); });
  }

  void TearDown() override {
    MainWindow::SetNewSessionHook(nullptr);
    MainWindow::SetRowObserver(nullptr);
    AppStatus::SetEndObserver(nullptr);
    // Sessions first: their last reports may still look for the window.
    for (const auto& session : Globals::Session) session->EndFTPSession(QString());
    Globals::Session.clear();
    delete PreferencesWindow::Existing();
    delete MainWindow::Existing();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    AppHooks::SetBeepHook(nullptr);
    AppHooks::SetQuitHook(nullptr);
    AppHooks::SetModalHook(nullptr);
    SetMsgBoxHook(nullptr);
    qunsetenv("XDG_CONFIG_HOME");
  }

  QString PreferencesPath() const { return config.filePath(QStringLiteral("Skelvane")); }
  // The four settings, in the order of the preferences file's lines.
  static void SetAll(const QStringList& v) {
    std::tie(Globals::Server, Globals::ServerPath, Globals::LoginID, Globals::Password) = std::tie(v[0], v[1], v[2], v[3]);
  }
  static QStringList All() { return {Globals::Server, Globals::ServerPath, Globals::LoginID, Globals::Password}; }
};

}  // namespace velmar::test
