// The settings: the preferences file read and written, the preferences window's Save and
// Cancel, and the start of the app, which asks for missing settings.
#include "AppFixture.h"

#include "app/App.h"
#include "app/FileTypes.h"
#include "platform/Exceptions.h"
#include "platform/FolderItem.h"

#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>

#include <sys/stat.h>

namespace velmar::test {
namespace {

class PreferencesTest : public AppFixture {
protected:
  void WritePreferences(const QByteArray& bytes) {
    QFile file(PreferencesPath());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_EQ(file.write(bytes), bytes.size());
  }
  QByteArray ReadPreferences() {
    QFile file(PreferencesPath());
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
  }
  int PreferencesMode() {
    struct stat info {};
    if (::stat(QFile::encodeName(PreferencesPath()).constData(), &info) != 0) return -1;
    return static_cast<int>(info.st_mode & 07777);
  }
  void SetAll(const QString& server, const QString& path, const QString& login, const QString& password) {
    Globals::Server = server;
    Globals::ServerPath = path;
    Globals::LoginID = login;
    Globals::Password = password;
  }
  QStringList All() { return {Globals::Server, Globals::ServerPath, Globals::LoginID, Globals::Password}; }
};

TEST_F(PreferencesTest, LoadReadsFourLinesInOrder) {
  WritePreferences("ftp.example.org\n/incoming\nmärta\npa ss\n");
  Globals::LoadPreferences();
  EXPECT_EQ(All(), (QStringList{"ftp.example.org", "/incoming", QString::fromUtf8("märta"), "pa ss"}));
}

TEST_F(PreferencesTest, LoadTakesCrLfMissingLinesAsEmptyAndIgnoresSurplus) {
  WritePreferences("host\r\n\r\nuser\r\n");
  SetAll("a", "b", "c", "d");
  Globals::LoadPreferences();
  EXPECT_EQ(All(), (QStringList{"host", "", "user", ""}));

  WritePreferences("h\np\nu\npw\nsurplus\nmore\n");
  Globals::LoadPreferences();
  EXPECT_EQ(All(), (QStringList{"h", "p", "u", "pw"}));

  WritePreferences("");
  Globals::LoadPreferences();
  EXPECT_EQ(All(), (QStringList{"", "", "", ""}));
  EXPECT_TRUE(messages.isEmpty());
}

TEST_F(PreferencesTest, LoadWithoutAFileLeavesTheSettingsAlone) {
  SetAll("a", "b", "c", "d");
  Globals::LoadPreferences();
  EXPECT_EQ(All(), (QStringList{"a", "b", "c", "d"}));
  EXPECT_TRUE(messages.isEmpty());
  EXPECT_FALSE(QFile::exists(PreferencesPath()));
}

TEST_F(PreferencesTest, LoadOfAnUnreadableFileRaisesWithItsPath) {
  ASSERT_TRUE(QDir().mkpath(PreferencesPath()));  // a folder where the file should be
  SetAll("a", "b", "c", "d");
  try {
    Globals::LoadPreferences();
    FAIL() << "no exception";
  } catch (const NilObjectException& e) {
    EXPECT_TRUE(e.Message().contains(PreferencesPath())) << e.Message().toStdString();
  }
  EXPECT_EQ(All(), (QStringList{"a", "b", "c", "d"}));
}

TEST_F(PreferencesTest, SaveWritesFourUtf8LinesOwnerOnlyAndReadsBack) {
  SetAll("ftp.example.org", "/up/", QString::fromUtf8("jürgen"), "p\u00e4ss word");
  Globals::SavePreferences();
  EXPECT_TRUE(messages.isEmpty());
  EXPECT_EQ(ReadPreferences(), QString::fromUtf8("ftp.example.org\n/up/\njürgen\np\u00e4ss word\n").toUtf8());
  EXPECT_EQ(PreferencesMode(), 0600);

  SetAll("", "", "", "");
  Globals::LoadPreferences();
  EXPECT_EQ(All(), (QStringList{"ftp.example.org", "/up/", QString::fromUtf8("jürgen"), "p\u00e4ss word"}));
}

TEST_F(PreferencesTest, SaveReplacesAnOpenFileAndTightensItsMode) {
  WritePreferences("old\nold\nold\nold\nold\n");
  ASSERT_TRUE(QFile::setPermissions(PreferencesPath(), QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup |
                                                           QFile::ReadOther));
  SetAll("", "", "", "");
  Globals::SavePreferences();
  EXPECT_EQ(ReadPreferences(), QByteArray("\n\n\n\n"));
  EXPECT_EQ(PreferencesMode(), 0600);
}

TEST_F(PreferencesTest, SaveFailureShowsTheMessageAndKeepsTheValues) {
  ASSERT_TRUE(QDir().mkpath(PreferencesPath()));
  SetAll("h", "p", "u", "pw");
  Globals::SavePreferences();
  EXPECT_EQ(messages, QStringList{"Problems creating preferences file"});
  EXPECT_EQ(All(), (QStringList{"h", "p", "u", "pw"}));
}

TEST_F(PreferencesTest, WindowOpensWithTheSettingsAndSaveStoresWhatWasTyped) {
  SetAll("old.example", "/old", "olduser", "oldpw");
  PreferencesWindow* window = PreferencesWindow::Instance();
  EXPECT_EQ(window->ServerEditField->text(), "old.example");
  EXPECT_EQ(window->ServerPathEditField->text(), "/old");
  EXPECT_EQ(window->LoginIDEditField->text(), "olduser");
  EXPECT_EQ(window->PasswordEditField->text(), "oldpw");
  // Stored as typed: blanks are kept, nothing is checked.
  window->ServerEditField->setText(" new.example ");
  window->ServerPathEditField->setText("");
  window->LoginIDEditField->setText("new user");
  window->PasswordEditField->setText("new\tpw");
  window->SavePushButton->click();
  EXPECT_EQ(All(), (QStringList{" new.example ", "", "new user", "new\tpw"}));
  EXPECT_EQ(ReadPreferences(), QByteArray(" new.example \n\nnew user\nnew\tpw\n"));
  EXPECT_EQ(PreferencesMode(), 0600);
  EXPECT_EQ(PreferencesWindow::Existing(), nullptr);
  EXPECT_TRUE(messages.isEmpty());
}

TEST_F(PreferencesTest, CancelStoresNothingAndTheNextOpeningShowsTheOldValues) {
  SetAll("keep.example", "/keep", "keeper", "kept");
  Globals::SavePreferences();
  const QByteArray before = ReadPreferences();
  PreferencesWindow* window = PreferencesWindow::Instance();
  window->ServerEditField->setText("edited");
  window->PasswordEditField->setText("edited");
  window->CancelPushButton->click();
  EXPECT_EQ(All(), (QStringList{"keep.example", "/keep", "keeper", "kept"}));
  EXPECT_EQ(ReadPreferences(), before);
  EXPECT_EQ(PreferencesWindow::Existing(), nullptr);
  window = PreferencesWindow::Instance();
  EXPECT_EQ(window->ServerEditField->text(), "keep.example");
  EXPECT_EQ(window->PasswordEditField->text(), "kept");
}

TEST_F(PreferencesTest, SaveThatFailsStillClosesTheWindow) {
  ASSERT_TRUE(QDir().mkpath(PreferencesPath()));
  PreferencesWindow* window = PreferencesWindow::Instance();
  window->ServerEditField->setText("typed");
  window->SavePushButton->click();
  EXPECT_EQ(messages, QStringList{"Problems creating preferences file"});
  EXPECT_EQ(Globals::Server, "typed");
  EXPECT_EQ(PreferencesWindow::Existing(), nullptr);
}

TEST_F(PreferencesTest, StartWithAMissingSettingAsksForItThenShowsTheMainWindow) {
  // Three lines: the password is missing.
  WritePreferences("h\n/p\nu\n");
  bool mainHiddenWhileAsking = false;
  whileModal = [&](QDialog& dialog) {
    auto* window = dynamic_cast<PreferencesWindow*>(&dialog);
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(window->ServerEditField->text(), "h");
    mainHiddenWhileAsking = !MainWindow::Existing() || !MainWindow::Existing()->isVisible();
    window->PasswordEditField->setText("pw");
    window->SavePushButton->click();
  };
  App().Event_Open();
  EXPECT_EQ(modals.size(), 1);
  EXPECT_TRUE(mainHiddenWhileAsking);
  ASSERT_NE(MainWindow::Existing(), nullptr);
  EXPECT_TRUE(MainWindow::Existing()->isVisible());
  EXPECT_EQ(ReadPreferences(), QByteArray("h\n/p\nu\npw\n"));
}

TEST_F(PreferencesTest, StartWithoutAFileAndCancelStillShowsTheMainWindow) {
  whileModal = [](QDialog& dialog) { dynamic_cast<PreferencesWindow&>(dialog).CancelPushButton->click(); };
  App().Event_Open();
  EXPECT_EQ(modals.size(), 1);
  ASSERT_NE(MainWindow::Existing(), nullptr);
  EXPECT_TRUE(MainWindow::Existing()->isVisible());
  EXPECT_TRUE(App::SettingsMissing());
  EXPECT_FALSE(QFile::exists(PreferencesPath()));
}

TEST_F(PreferencesTest, StartWithEverySettingButTheServerPathDoesNotAsk) {
  WritePreferences("h\n\nu\npw\n");
  App().Event_Open();
  EXPECT_TRUE(modals.isEmpty());
  ASSERT_NE(MainWindow::Existing(), nullptr);
  EXPECT_TRUE(MainWindow::Existing()->isVisible());
  EXPECT_EQ(Globals::ServerPath, "");
}

TEST_F(PreferencesTest, EachEmptySettingButTheServerPathCountsAsMissing) {
  for (int empty = 0; empty < 4; ++empty) {
    QStringList values{"h", "p", "u", "pw"};
    values[empty].clear();
    SetAll(values[0], values[1], values[2], values[3]);
    EXPECT_EQ(App::SettingsMissing(), empty != 1) << empty;
  }
}

TEST_F(PreferencesTest, ServerSetupHidesTheMainWindowWhileTheSettingsAreOpen) {
  MainWindow* window = MainWindow::Instance();
  window->show();
  bool hiddenMeanwhile = false;
  whileModal = [&](QDialog& dialog) {
    hiddenMeanwhile = !window->isVisible();
    EXPECT_NE(dynamic_cast<PreferencesWindow*>(&dialog), nullptr);
    dynamic_cast<PreferencesWindow&>(dialog).CancelPushButton->click();
  };
  window->ServerPushButton->click();
  EXPECT_EQ(modals.size(), 1);
  EXPECT_TRUE(hiddenMeanwhile);
  EXPECT_TRUE(window->isVisible());
}

TEST_F(PreferencesTest, FinishClosesTheWindowAndQuitsAtOnce) {
  MainWindow* window = MainWindow::Instance();
  window->show();
  window->CancelPushButton1->click();
  EXPECT_EQ(quits, QList<int>{0});
  EXPECT_FALSE(window->isVisible());
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  EXPECT_EQ(MainWindow::Existing(), nullptr);  // a closed window is gone
}

TEST(FileTypesTest, AnyTakesEveryFileAndFolder) {
  ASSERT_NE(FileTypes::pAny, nullptr);
  EXPECT_EQ(FileTypes::pAny->Name, "any");
  EXPECT_TRUE(FileTypes::pAny->Extensions.isEmpty());
  EXPECT_EQ(FileTypes::pAny->MacType, "????");
  EXPECT_EQ(FileTypes::pAny->MacCreator, "????");
  EXPECT_EQ(FileTypes::Find("ANY"), FileTypes::pAny);
  EXPECT_EQ(FileTypes::Find("text"), nullptr);
  EXPECT_TRUE(FileTypes::pAny->Accepts(FolderItem("/etc/hostname")));
  EXPECT_TRUE(FileTypes::pAny->Accepts(FolderItem("/etc")));
  FileType text{"text", {"txt"}, "????", "????"};
  EXPECT_TRUE(text.Accepts(FolderItem("/x/readme.TXT")));
  EXPECT_FALSE(text.Accepts(FolderItem("/x/readme.md")));
  FileType coded{"coded", {}, "TEXT", "????"};
  EXPECT_FALSE(coded.Accepts(FolderItem("/etc/hostname")));
}

}  // namespace
}  // namespace velmar::test
