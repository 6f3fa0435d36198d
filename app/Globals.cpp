#include "app/Globals.h"

#include "platform/Exceptions.h"
#include "platform/FolderItem.h"
#include "platform/MsgBox.h"
#include "platform/TextInputStream.h"
#include "platform/TextOutputStream.h"
#include "session/FTPSessionClass.h"

namespace velmar {

QString Globals::Server;
QString Globals::ServerPath;
QString Globals::LoginID;
QString Globals::Password;
QList<std::shared_ptr<FTPSessionClass>> Globals::Session;

namespace {

const QString kPreferencesName = QStringLiteral("Skelvane");
const QString kSaveFailed = QStringLiteral("Problems creating preferences file");

std::shared_ptr<FolderItem> PreferencesFile() {
  const std::shared_ptr<FolderItem> folder = PreferencesFolder();
  return folder ? folder->Child(kPreferencesName) : nullptr;
}

}  // namespace

QString Globals::PreferencesFilePath() {
  const std::shared_ptr<FolderItem> file = PreferencesFile();
  return file ? file->AbsolutePath() : kPreferencesName;
}

void Globals::LoadPreferences() {
  const std::shared_ptr<FolderItem> file = PreferencesFile();
  if (!file || !file->Exists()) return;
  const std::shared_ptr<TextInputStream> stream = file->OpenAsTextFile();
  if (!stream)
    throw NilObjectException(QStringLiteral("NilObjectException: the preferences file %1 cannot be read: %2")
                                 .arg(file->AbsolutePath(), file->LastError()));
  // Lines missing at the end read as empty; surplus lines are ignored.
  Server = stream->ReadLine();
  ServerPath = stream->ReadLine();
  LoginID = stream->ReadLine();
  Password = stream->ReadLine();
  stream->Close();
}

void Globals::SavePreferences() {
  const std::shared_ptr<FolderItem> file = PreferencesFile();
  if (!file) {
    MsgBox(kSaveFailed);
    return;
  }
  // Only the owner may read the file: it holds the password in the clear.
  const std::shared_ptr<TextOutputStream> stream = file->CreateTextFile(0600);
  if (!stream) {
    MsgBox(kSaveFailed);
    return;
  }
  bool written = stream->WriteLine(Server);
  written = stream->WriteLine(ServerPath) && written;
  written = stream->WriteLine(LoginID) && written;
  written = stream->WriteLine(Password) && written;
  written = stream->Close() && written;
  // A file cut short (disk full) would lose settings at the next start: say so.
  if (!written) MsgBox(kSaveFailed);
}

}  // namespace velmar
