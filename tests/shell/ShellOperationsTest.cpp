// The shell's tables against a real session object: every field prints, objects and
// lists print as JSON of their own fields, bytes and texts convert both ways, and the
// table of operations finds overloads and rejects bad words.
#include "data/FTPDataSocket.h"
#include "listing/FTPDirectoryClass.h"
#include "platform/FolderItem.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPSessionClass.h"
#include "shell/ScriptError.h"
#include "shell/ShellOperations.h"
#include "support/QtPrinters.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace velmar::test {
namespace {

using Ops = ShellOperations;

struct ShellTables : ::testing::Test {
  std::shared_ptr<FTPSessionClass> session = std::make_shared<FTPSessionClass>(QStringLiteral("s1"));

  QString Print(const QString& path) { return JsonText(Ops::Get(*session, path)); }
  void Set(const QString& path, const QString& word) { Ops::Set(*session, path, word); }
  void GiveSockets() {
    session->DataSocket = MakeEventSource<FTPDataSocket>(session.get());
    session->CommandSocket = MakeEventSource<FTPCommandSocket>(session.get());
  }
  // The message of the script error of a print ('g'), a set ('s') or a call ('c').
  QString ErrorOf(char op, const QString& name, const QStringList& words = {}) {
    try {
      if (op == 'g') Ops::Get(*session, name);
      else if (op == 's') Set(name, words.value(0));
      else Ops::Call(*session, name, words);
    } catch (const ScriptError& e) {
      return e.Message();
    }
    return QStringLiteral("<no error>");
  }
};

TEST_F(ShellTables, EveryFieldPrintsWithAndWithoutItsObjects) {
  for (const QString& name : Ops::FieldNames()) EXPECT_NO_THROW(Ops::Get(*session, name)) << name.toStdString();
  GiveSockets();
  for (const QString& name : Ops::FieldNames())
    if (name.startsWith("DataSocket.") || name.startsWith("CommandSocket.")) {
      EXPECT_NE(Print(name), "null") << name.toStdString();
    }
}

TEST_F(ShellTables, BadWordsAreScriptErrorsAndThePasswordIsHiddenButAssigned) {
  EXPECT_EQ(ErrorOf('c', "squeeze", {"a", "b"}), "unknown method squeeze (did you mean Squeeze?)");
  for (const char* bad : {"", " 5", "5 ", "0x10", "2147483648", "1e3", "--1"})
    EXPECT_EQ(ErrorOf('s', "Timeout", {bad}), QString("Timeout: '%1' is not a decimal integer of 32 bits").arg(bad));
  EXPECT_EQ(session->Timeout, 20000);
  Set("Timeout", "500");  // the member the connection timer reads
  EXPECT_EQ(session->Timeout, 500);
  for (const char* bad : {"TRUE", "1", ""})
    EXPECT_EQ(ErrorOf('s', "FTPS", {bad}), QString("FTPS: '%1' is not a boolean (true or false)").arg(bad));
  EXPECT_FALSE(Ops::HasOperation("Construct"));
  for (const QString& name : Ops::OperationNames()) EXPECT_TRUE(Ops::HasOperation(name));
  Set("ServerPassword", "p4ss word");
  EXPECT_EQ(session->ServerPassword, "p4ss word");
  EXPECT_EQ(Print("ServerPassword"), "\"********\"");
}

TEST_F(ShellTables, DirListPrintsItsDirectoriesAsObjects) {
  auto root = std::make_shared<FTPDirectoryClass>("/pub", "");
  root->Files = QStringList{"a.txt", "b c.txt"};
  root->SubDirectories = QStringList{"/pub/x"};
  root->CurrentSubDirectory = 0;
  session->DirList = {root, nullptr, std::make_shared<FTPDirectoryClass>("/pub/x", "/pub")};
  EXPECT_EQ(Print("DirList"),
            R"([{"Files":["a.txt","b c.txt"],"Name":"/pub","SubDirectories":["/pub/x"],"CurrentSubDirectory":0,)"
            R"("ParentDirectory":""},null,{"Files":[],"Name":"/pub/x","SubDirectories":[],"CurrentSubDirectory":-1,)"
            R"("ParentDirectory":"/pub"}])");
}

TEST_F(ShellTables, FileDataIsBytesOneCharacterPerByteAndBufferIsTextOfTheServerEncoding) {
  GiveSockets();
  QByteArray all;
  for (int b = 0; b < 256; ++b) all.append(static_cast<char>(b));
  session->DataSocket->FileData = all;
  const Json json = Ops::Get(*session, "DataSocket.FileData");
  ASSERT_TRUE(json.is_string());
  EXPECT_EQ(JsonToQString(json), QString::fromLatin1(all));
  // Assigning the printed text back gives the same bytes.
  Set("DataSocket.FileData", JsonToQString(json));
  EXPECT_EQ(session->DataSocket->FileData, all);
  // A character that is no byte is refused and the bytes stay.
  EXPECT_TRUE(ErrorOf('s', "DataSocket.FileData", {QString::fromUtf8("a€")})
                  .startsWith("DataSocket.FileData: character U+20ac is not a byte"));
  EXPECT_EQ(session->DataSocket->FileData, all);

  Set("Buffer", QString::fromUtf8("é\r\n"));
  EXPECT_EQ(session->Buffer, QByteArray("\xE9\r\n"));
  Set("ServerTextEncoding", "UTF-8");
  // The same bytes read as UTF-8: 0xE9 alone is no character there.
  EXPECT_EQ(Print("Buffer"), QString::fromUtf8("\"\uFFFD\\r\\n\""));
  Set("Buffer", QString::fromUtf8("é"));
  EXPECT_EQ(session->Buffer, QByteArray("\xC3\xA9"));
  EXPECT_EQ(Print("Buffer"), QString::fromUtf8("\"é\""));
}

TEST_F(ShellTables, FolderItemsPrintTheirPaths) {
  QTemporaryDir dir;
  ASSERT_TRUE(dir.isValid());
  session->FileFolderItems = {GetFolderItem(dir.path()), nullptr};
  EXPECT_EQ(Print("FileFolderItems"), QStringLiteral("[\"%1/\",null]").arg(dir.path()));
  Ops::Call(*session, "SetLocalFolderItem", {dir.path()});
  EXPECT_EQ(session->LocalDirectory, dir.path() + "/");
}

}  // namespace
}  // namespace velmar::test
