// The settings: the preferences file read and written, the preferences window's Save and
// Cancel, and the start of the app, which asks for missing settings.
#include "AppFixture.h"

#include "app/App.h"
#include "app/FileTypes.h"
#include "platform/Exceptions.h"
#include "platform/FolderItem.h"
#include "support/TestFiles.h"

#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>

#include <sys/stat.h>

#include <optional>

namespace velmar::test {
namespace {

class PreferencesTest : public AppFixture {
protected:
  void WritePreferences(const std::optional<QByteArray>& bytes) {
    QFile::remove(PreferencesPath());
    if (bytes) WriteFile(PreferencesPath(), *bytes);
  }
  QByteArray ReadPreferences() { return ReadFile(PreferencesPath()); }
  int PreferencesMode() {
    struct stat info {};
    if (::stat(QFile::encodeName(PreferencesPath()).constData(), &info) != 0) return -1;
    return static_cast<int>(info.st_mode & 07777);
  }
  // The four settings, and the window's four fields, in the order of the file's lines.
  static QList<QString*> Settings() { return {&Globals::Server, &Globals::ServerPath, &Globals::LoginID, &Globals::Password}; }
  void SetAll(const QStringList& values) {
    for (int i = 0; i < 4; ++i) *Settings()[i] = values[i];
  }
  QStringList All() {
    QStringList values;
    for (const QString* setting : Settings()) values << *setting;
    return values;
  }
  static QList<QLineEdit*> Fields(PreferencesWindow& w) {
    return {w.ServerEditField, w.ServerPathEditField, w.LoginIDEditField, w.PasswordEditField};
  }
  // Opens the window, which must show `shown`, and types `typed` into it.
  PreferencesWindow* OpenAndType(const QStringList& shown, const QStringList& typed) {
    PreferencesWindow* window = PreferencesWindow::Instance();
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(Fields(*window)[i]->text(), shown[i]);
      Fields(*window)[i]->setText(typed[i]);
    }
    return window;
  }
};

TEST_F(PreferencesTest, LoadReadsFourLinesInOrder) {
  // CR LF ends lines too, missing lines are empty, surplus lines are ignored; without a file
  // the settings stay as they were.
  const std::pair<std::optional<QByteArray>, QStringList> rows[] = {
      {"ftp.example.org\n/incoming\nmärta\npa ss\n", {"ftp.example.org", "/incoming", "märta", "pa ss"}},
      {"host\r\n\r\nuser\r\n", {"host", "", "user", ""}},
      {"h\np\nu\npw\nsurplus\nmore\n", {"h", "p", "u", "pw"}},
      {"", {"", "", "", ""}},
      {std::nullopt, {"a", "b", "c", "d"}},
  };
  for (const auto& [file, expected] : rows) {
    SCOPED_TRACE(file ? file->toStdString() : "no file");
    WritePreferences(file);
    SetAll({"a", "b", "c", "d"});
    Globals::LoadPreferences();
    EXPECT_EQ(All(), expected);
    EXPECT_EQ(QFile::exists(PreferencesPath()), file.has_value());
  }
  EXPECT_TRUE(messages.isEmpty());
}

TEST_F(PreferencesTest, SaveWritesFourUtf8LinesOwnerOnlyReplacingAnOpenFileAndReadsBack) {
  WritePreferences("old\nold\nold\nold\nold\n");
  ASSERT_TRUE(QFile::setPermissions(PreferencesPath(), QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup |
                                                           QFile::ReadOther));
  const QStringList values{"ftp.example.org", "/up/", QString::fromUtf8("jürgen"), "p\u00e4ss word"};
  SetAll(values);
  Globals::SavePreferences();
  EXPECT_TRUE(messages.isEmpty());
  EXPECT_EQ(ReadPreferences(), QString::fromUtf8("ftp.example.org\n/up/\njürgen\np\u00e4ss word\n").toUtf8());
  EXPECT_EQ(PreferencesMode(), 0600);
  SetAll({"", "", "", ""});
  Globals::LoadPreferences();
  EXPECT_EQ(All(), values);
  SetAll({"", "", "", ""});
  Globals::SavePreferences();
  EXPECT_EQ(ReadPreferences(), QByteArray("\n\n\n\n"));
}

TEST_F(PreferencesTest, TheWindowShowsTheSettingsCancelStoresNothingAndSaveStoresWhatWasTyped) {
  const QStringList old{"old.example", "/old", "olduser", "oldpw"};
  const QStringList typed{" new.example ", "", "new user", "new\tpw"};
  SetAll(old);
  OpenAndType(old, typed)->CancelPushButton->click();
  EXPECT_EQ(All(), old);
  EXPECT_FALSE(QFile::exists(PreferencesPath()));
  EXPECT_EQ(PreferencesWindow::Existing(), nullptr);
  // Opened again it shows the old values; Save stores as typed: blanks are kept, nothing is checked.
  OpenAndType(old, typed)->SavePushButton->click();
  EXPECT_EQ(All(), typed);
  EXPECT_EQ(ReadPreferences(), QByteArray(" new.example \n\nnew user\nnew\tpw\n"));
  EXPECT_EQ(PreferencesMode(), 0600);
  EXPECT_EQ(PreferencesWindow::Existing(), nullptr);
  EXPECT_TRUE(messages.isEmpty());
}

TEST_F(PreferencesTest, AFolderInPlaceOfTheFileFailsLoadWithItsPathAndSaveWithAMessage) {
  ASSERT_TRUE(QDir().mkpath(PreferencesPath()));
  SetAll({"h", "p", "u", "pw"});
  try {
    Globals::LoadPreferences();
    FAIL() << "no exception";
  } catch (const NilObjectException& e) {
    EXPECT_TRUE(e.Message().contains(PreferencesPath())) << e.Message().toStdString();
  }
  EXPECT_EQ(All(), (QStringList{"h", "p", "u", "pw"}));
  // Save from the window: the values stay as typed, and the window closes all the same.
  OpenAndType({"h", "p", "u", "pw"}, {"typed", "p", "u", "pw"})->SavePushButton->click();
  EXPECT_EQ(messages, QStringList{"Problems creating preferences file"});
  EXPECT_EQ(All(), (QStringList{"typed", "p", "u", "pw"}));
  EXPECT_EQ(PreferencesWindow::Existing(), nullptr);
}

TEST_F(PreferencesTest, StartAsksForMissingSettingsWithTheMainWindowHiddenThenShowsIt) {
  // The file at the start; whether the window asks (then a password is typed and Save or
  // Cancel pressed); the file after. The server path may be empty.
  const struct {
    std::optional<QByteArray> file;
    bool asks, save;
    std::optional<QByteArray> after;
  } cases[] = {
      {"h\n/p\nu\n", true, true, "h\n/p\nu\npw\n"},
      {std::nullopt, true, false, std::nullopt},
      {"h\n\nu\npw\n", false, false, "h\n\nu\npw\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file ? c.file->toStdString() : "no file");
    WritePreferences(c.file);
    SetAll({"", "", "", ""});
    modals.clear();
    bool mainHiddenWhileAsking = false;
    whileModal = [&](QDialog& dialog) {
      auto* window = dynamic_cast<PreferencesWindow*>(&dialog);
      ASSERT_NE(window, nullptr);
      EXPECT_EQ(window->ServerEditField->text(), c.file ? "h" : "");
      mainHiddenWhileAsking = !MainWindow::Existing() || !MainWindow::Existing()->isVisible();
      window->PasswordEditField->setText("pw");
      (c.save ? window->SavePushButton : window->CancelPushButton)->click();
    };
    App().Event_Open();
    EXPECT_EQ(modals.size(), c.asks ? 1 : 0);
    EXPECT_EQ(mainHiddenWhileAsking, c.asks);
    ASSERT_NE(MainWindow::Existing(), nullptr);
    EXPECT_TRUE(MainWindow::Existing()->isVisible());
    EXPECT_EQ(App::SettingsMissing(), c.asks && !c.save);
    EXPECT_EQ(QFile::exists(PreferencesPath()), c.after.has_value());
    if (c.after) EXPECT_EQ(ReadPreferences(), *c.after);
    delete MainWindow::Existing();
  }
  // Each empty setting but the server path counts as missing.
  for (int empty = 0; empty < 4; ++empty) {
    QStringList values{"h", "p", "u", "pw"};
    values[empty].clear();
    SetAll(values);
    EXPECT_EQ(App::SettingsMissing(), empty != 1) << empty;
  }
}

TEST_F(PreferencesTest, ServerSetupHidesTheMainWindowWhileTheSettingsAreOpenAndFinishQuits) {
  MainWindow* window = MainWindow::Instance();
  window->show();
  bool hiddenMeanwhile = false;
  whileModal = [&](QDialog& dialog) {
    hiddenMeanwhile = !window->isVisible();
    dynamic_cast<PreferencesWindow&>(dialog).CancelPushButton->click();
  };
  window->ServerPushButton->click();
  EXPECT_EQ(modals.size(), 1);
  EXPECT_TRUE(hiddenMeanwhile);
  EXPECT_TRUE(window->isVisible());
  EXPECT_TRUE(quits.isEmpty());
  // Finish closes the window and quits at once; a closed window is gone.
  window->CancelPushButton1->click();
  EXPECT_EQ(quits, QList<int>{0});
  EXPECT_FALSE(window->isVisible());
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  EXPECT_EQ(MainWindow::Existing(), nullptr);
}

TEST(FileTypesTest, AnyTakesEveryFileAndFolder) {
  // Its other fields (no extensions, "????" codes) show in what it accepts.
  ASSERT_NE(FileTypes::pAny, nullptr);
  EXPECT_EQ(FileTypes::Find("ANY"), FileTypes::pAny);
  EXPECT_EQ(FileTypes::Find("text"), nullptr);
  EXPECT_TRUE(FileTypes::pAny->Accepts(FolderItem("/etc/hostname")));
  EXPECT_TRUE(FileTypes::pAny->Accepts(FolderItem("/etc")));
  FileType text{"text", {"txt"}, "????", "????"};
  EXPECT_TRUE(text.Accepts(FolderItem("/x/readme.TXT")));
  EXPECT_FALSE(text.Accepts(FolderItem("/x/readme.md")));
  EXPECT_FALSE(FileType({"coded", {}, "TEXT", "????"}).Accepts(FolderItem("/etc/hostname")));
}

}  // namespace
}  // namespace velmar::test
