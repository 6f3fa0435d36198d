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
  // Opens the window, which must show `shown` in its four fields, and types `typed` into them.
  PreferencesWindow* OpenAndType(const QStringList& shown, const QStringList& typed) {
    PreferencesWindow* w = PreferencesWindow::Instance();
    const QList<QLineEdit*> fields{w->ServerEditField, w->ServerPathEditField, w->LoginIDEditField, w->PasswordEditField};
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(fields[i]->text(), shown[i]);
      fields[i]->setText(typed[i]);
    }
    return w;
  }
};

TEST_F(PreferencesTest, LoadReadsFourLinesInOrder) {
  // CR LF ends lines too, missing lines are empty, surplus lines are ignored; without a file
  // the settings stay as they were, and a folder in its place is an error that names it.
  const std::pair<std::optional<QByteArray>, QStringList> rows[] = {
      {"ftp.example.org\n/incoming\nmärta\npa ss\n", {"ftp.example.org", "/incoming", "märta", "pa ss"}},
      {"host\r\n\r\nuser\r\n", {"host", "", "user", ""}},
      {"h\np\nu\npw\nsurplus\nmore\n", {"h", "p", "u", "pw"}},
      {"", {"", "", "", ""}},
      {std::nullopt, {"a", "b", "c", "d"}},
      {"folder", {"a", "b", "c", "d"}},
  };
  for (const auto& [file, expected] : rows) {
    SCOPED_TRACE(file ? file->toStdString() : "no file");
    const bool folder = file == "folder";
    WritePreferences(folder ? std::nullopt : file);
    ASSERT_TRUE(!folder || QDir().mkpath(PreferencesPath()));
    SetAll({"a", "b", "c", "d"});
    QString error;
    try {
      Globals::LoadPreferences();
    } catch (const NilObjectException& e) {
      error = e.Message();
    }
    EXPECT_EQ(error.contains(PreferencesPath()), folder) << error.toStdString();
    EXPECT_EQ(All(), expected);
    EXPECT_EQ(QFile::exists(PreferencesPath()), file.has_value());
  }
  EXPECT_TRUE(messages.isEmpty());
}

TEST_F(PreferencesTest, TheWindowShowsTheSettingsCancelKeepsThemAndSaveWritesWhatWasTypedOwnerOnly) {
  // Save stores as typed, in UTF-8: blanks are kept, nothing is checked, empty lines stay.
  // The first save makes the file, the second replaces it, readable by all before.
  const std::pair<QStringList, QByteArray> saves[] = {
      {{" new.example ", "", QString::fromUtf8("jürgen"), "p\u00e4ss\tword"},
       " new.example \n\njürgen\np\u00e4ss\tword\n"},
      {{"", "", "", ""}, "\n\n\n\n"},
  };
  SetAll({"old.example", "/old", "olduser", "oldpw"});
  for (const auto& [typed, bytes] : saves) {
    SCOPED_TRACE(bytes.toStdString());
    QFile::setPermissions(PreferencesPath(), QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther);
    const QStringList before = All();
    const QByteArray file = ReadPreferences();
    OpenAndType(before, typed)->CancelPushButton->click();
    EXPECT_EQ(All(), before);
    EXPECT_EQ(ReadPreferences(), file);
    EXPECT_EQ(PreferencesWindow::Existing(), nullptr);
    // Opened again it shows the values as they were.
    OpenAndType(before, typed)->SavePushButton->click();
    EXPECT_EQ(PreferencesWindow::Existing(), nullptr);
    EXPECT_EQ(All(), typed);
    EXPECT_EQ(ReadPreferences(), bytes);
    EXPECT_EQ(PreferencesMode(), 0600);
    // and reads back as typed.
    SetAll({"x", "x", "x", "x"});
    Globals::LoadPreferences();
    EXPECT_EQ(All(), typed);
  }
  EXPECT_TRUE(messages.isEmpty());
}

TEST_F(PreferencesTest, SaveOverAFolderSaysSoKeepsTheValuesAsTypedAndClosesTheWindow) {
  ASSERT_TRUE(QDir().mkpath(PreferencesPath()));
  OpenAndType({"", "", "", ""}, {"typed", "p", "u", "pw"})->SavePushButton->click();
  EXPECT_EQ(messages, QStringList{"Problems creating preferences file"});
  EXPECT_EQ(All(), (QStringList{"typed", "p", "u", "pw"}));
  EXPECT_EQ(PreferencesWindow::Existing(), nullptr);
}

TEST_F(PreferencesTest, StartAndServerSetupAskWithTheMainWindowHiddenThenShowItAndFinishQuits) {
  // The file at the start; whether the window asks (then a password is typed and Save or
  // Cancel pressed). Each empty setting but the server path counts as missing.
  const struct {
    std::optional<QByteArray> file;
    bool asks, save;
    std::optional<QByteArray> after;
  } cases[] = {
      {"h\n/p\nu\n", true, true, "h\n/p\nu\npw\n"},
      {std::nullopt, true, false, std::nullopt},
      {"\n/p\nu\npw\n", true, false, "\n/p\nu\npw\n"},
      {"h\n/p\n\npw\n", true, false, "h\n/p\n\npw\n"},
      {"h\n\nu\npw\n", false, false, "h\n\nu\npw\n"},
  };
  bool save = false, mainHiddenWhileAsking = false;
  QString server;  // as read from the file, before the window asks
  whileModal = [&](QDialog& dialog) {
    auto& window = dynamic_cast<PreferencesWindow&>(dialog);
    EXPECT_EQ(window.ServerEditField->text(), server);
    mainHiddenWhileAsking = !MainWindow::Existing() || !MainWindow::Existing()->isVisible();
    window.PasswordEditField->setText("pw");
    (save ? window.SavePushButton : window.CancelPushButton)->click();
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file ? c.file->toStdString() : "no file");
    WritePreferences(c.file);
    SetAll({"", "", "", ""});
    modals.clear();
    save = c.save;
    server = QString::fromUtf8(c.file.value_or("").split('\n')[0]);
    mainHiddenWhileAsking = false;
    App().Event_Open();
    EXPECT_EQ(modals.size(), c.asks ? 1 : 0);
    EXPECT_EQ(mainHiddenWhileAsking, c.asks);
    ASSERT_NE(MainWindow::Existing(), nullptr);
    EXPECT_TRUE(MainWindow::Existing()->isVisible());
    EXPECT_EQ(App::SettingsMissing(), c.asks && !c.save);
    EXPECT_EQ(ReadPreferences(), c.after.value_or("<missing>"));
    delete MainWindow::Existing();
  }
  // Server Setup asks the same way, and shows the main window again.
  MainWindow& window = *MainWindow::Instance();
  window.show();
  modals.clear();
  window.ServerPushButton->click();
  EXPECT_EQ(modals.size(), 1);
  EXPECT_TRUE(mainHiddenWhileAsking);
  EXPECT_TRUE(window.isVisible());
  EXPECT_TRUE(quits.isEmpty());
  // Finish closes the window and quits at once; a closed window is gone.
  window.CancelPushButton1->click();
  EXPECT_EQ(quits, QList<int>{0});
  EXPECT_FALSE(window.isVisible());
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
