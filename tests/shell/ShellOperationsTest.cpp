// The shell's tables against a real session object: every field prints, objects and
// lists print as JSON of their own fields, bytes and texts convert both ways, and the
// table of operations finds overloads and rejects bad words.
#include "data/FTPDataSocket.h"
#include "listing/FTPDirectoryClass.h"
#include "platform/FolderItem.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPConnectionTimer.h"
#include "session/FTPSessionClass.h"
#include "shell/ScriptError.h"
#include "shell/ShellOperations.h"
#include "support/QtPrinters.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace velmar::test {
namespace {

QString Print(FTPSessionClass& session, const QString& path) { return ShellOperations::Get(session, path).Serialize(); }

QString ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const ScriptError& e) {
    return e.Message();
  }
  return QStringLiteral("<no error>");
}

struct ShellTables : ::testing::Test {
  std::shared_ptr<FTPSessionClass> session = std::make_shared<FTPSessionClass>(QStringLiteral("s1"));

  void GiveSockets() {
    session->DataSocket = MakeEventSource<FTPDataSocket>(session.get());
    session->CommandSocket = MakeEventSource<FTPCommandSocket>(session.get());
  }
};

TEST_F(ShellTables, EveryFieldPrintsWithAndWithoutItsObjects) {
  for (const QString& name : ShellOperations::FieldNames()) {
    EXPECT_NO_THROW(ShellOperations::Get(*session, name)) << name.toStdString();
  }
  GiveSockets();
  for (const QString& name : ShellOperations::FieldNames()) {
    const QString json = Print(*session, name);
    EXPECT_FALSE(json.isEmpty()) << name.toStdString();
    if (name.startsWith("DataSocket.") || name.startsWith("CommandSocket.")) {
      EXPECT_NE(json, "null") << name.toStdString();
    }
  }
}

TEST_F(ShellTables, NilObjectsPrintNullAndRefuseAssignments) {
  EXPECT_EQ(Print(*session, "DataSocket"), "null");
  EXPECT_EQ(Print(*session, "DataSocket.FileData"), "null");
  EXPECT_EQ(Print(*session, "CommandSocket.Secure"), "null");
  EXPECT_EQ(ErrorOf([&] { ShellOperations::Set(*session, "CommandSocket.Port", "21"); }),
            "cannot set CommandSocket.Port: CommandSocket is nil");
  // Names are checked even where the object is nil.
  EXPECT_EQ(ErrorOf([&] { ShellOperations::Get(*session, "DataSocket.Nonsense"); }), "unknown field DataSocket.Nonsense");
  EXPECT_EQ(ErrorOf([&] { ShellOperations::Get(*session, "DataSocket."); }), "unknown field DataSocket.");
  EXPECT_EQ(ErrorOf([&] { ShellOperations::Get(*session, "ID.Length"); }), "ID has no fields to reach with '.'");
}

TEST_F(ShellTables, PasswordIsHiddenButAssigned) {
  ShellOperations::Set(*session, "ServerPassword", "p4ss word");
  EXPECT_EQ(session->ServerPassword, "p4ss word");
  EXPECT_EQ(Print(*session, "ServerPassword"), "\"********\"");
  session->ServerPassword.clear();
  EXPECT_EQ(Print(*session, "ServerPassword"), "\"********\"");
}

TEST_F(ShellTables, DirListPrintsItsDirectoriesAsObjects) {
  auto root = std::make_shared<FTPDirectoryClass>("/pub", "");
  root->Files = QStringList{"a.txt", "b c.txt"};
  root->SubDirectories = QStringList{"/pub/x"};
  root->CurrentSubDirectory = 0;
  session->DirList = {root, nullptr, std::make_shared<FTPDirectoryClass>("/pub/x", "/pub")};
  EXPECT_EQ(Print(*session, "DirList"),
            R"([{"Files":["a.txt","b c.txt"],"Name":"/pub","SubDirectories":["/pub/x"],"CurrentSubDirectory":0,)"
            R"("ParentDirectory":""},null,{"Files":[],"Name":"/pub/x","SubDirectories":[],"CurrentSubDirectory":-1,)"
            R"("ParentDirectory":"/pub"}])");
  EXPECT_EQ(ErrorOf([&] { ShellOperations::Set(*session, "DirList", "[]"); }), "DirList is read-only");
}

TEST_F(ShellTables, FileDataIsBytesWrittenOneCharacterPerByte) {
  GiveSockets();
  QByteArray all;
  for (int b = 0; b < 256; ++b) all.append(static_cast<char>(b));
  session->DataSocket->FileData = all;
  const Json json = ShellOperations::Get(*session, "DataSocket.FileData");
  ASSERT_EQ(json.GetKind(), Json::Kind::String);
  EXPECT_EQ(json.AsString(), QString::fromLatin1(all));
  // Assigning the printed text back gives the same bytes.
  ShellOperations::Set(*session, "DataSocket.FileData", json.AsString());
  EXPECT_EQ(session->DataSocket->FileData, all);
  // A character that is no byte is refused and the bytes stay.
  EXPECT_TRUE(ErrorOf([&] { ShellOperations::Set(*session, "DataSocket.FileData", QString::fromUtf8("a€")); })
                  .startsWith("DataSocket.FileData: character U+20ac is not a byte"));
  EXPECT_EQ(session->DataSocket->FileData, all);
}

TEST_F(ShellTables, BufferIsTextOfTheServerEncoding) {
  ShellOperations::Set(*session, "Buffer", QString::fromUtf8("é\r\n"));
  EXPECT_EQ(session->Buffer, QByteArray("\xE9\r\n"));
  ShellOperations::Set(*session, "ServerTextEncoding", "UTF-8");
  // The same bytes read as UTF-8: 0xE9 alone is no character there.
  EXPECT_EQ(Print(*session, "Buffer"), QString::fromUtf8("\"\uFFFD\\r\\n\""));
  ShellOperations::Set(*session, "Buffer", QString::fromUtf8("é"));
  EXPECT_EQ(session->Buffer, QByteArray("\xC3\xA9"));
  EXPECT_EQ(Print(*session, "Buffer"), QString::fromUtf8("\"é\""));
}

TEST_F(ShellTables, AssignmentsConvertWordsByType) {
  ShellOperations::Set(*session, "Files", R"(["x", "y z", ""])");
  EXPECT_EQ(session->Files, (QStringList{"x", "y z", ""}));
  ShellOperations::Set(*session, "Paths", "[]");
  EXPECT_TRUE(session->Paths.isEmpty());
  ShellOperations::Set(*session, "SessionStartTime", "1.5");
  EXPECT_EQ(session->SessionStartTime, 1.5);
  EXPECT_EQ(Print(*session, "SessionStartTime"), "1.5");
  ShellOperations::Set(*session, "DataPort", "-2147483648");
  EXPECT_EQ(session->DataPort, -2147483648LL);
  ShellOperations::Set(*session, "ServerTextEncoding", "utf8");
  EXPECT_EQ(Print(*session, "ServerTextEncoding"), "\"UTF-8\"");

  ShellOperations::Set(*session, "ConnectionTimer.Period", "750");
  EXPECT_EQ(session->ConnectionTimer->Period(), 750);
  EXPECT_EQ(Print(*session, "ConnectionTimer"), R"({"Mode":0,"Period":750})");

  for (const char* bad : {"", " 5", "5 ", "0x10", "2147483648", "1e3", "--1"})
    EXPECT_FALSE(ErrorOf([&] { ShellOperations::Set(*session, "Timeout", bad); }) == "<no error>") << bad;
  EXPECT_EQ(session->Timeout, 20000);
  for (const char* bad : {"TRUE", "1", ""})
    EXPECT_FALSE(ErrorOf([&] { ShellOperations::Set(*session, "FTPS", bad); }) == "<no error>") << bad;
  EXPECT_EQ(ErrorOf([&] { ShellOperations::Set(*session, "Files", R"(["a",)"); }),
            "Files: not a JSON array of strings: unexpected end of text at column 6");
}

TEST_F(ShellTables, ObjectFieldsLetGoWhenSetToNull) {
  GiveSockets();
  EXPECT_EQ(ErrorOf([&] { ShellOperations::Set(*session, "DataSocket", "{}"); }),
            "DataSocket: an object field can only be set to null");
  ShellOperations::Set(*session, "DataSocket", "null");
  EXPECT_EQ(session->DataSocket, nullptr);
  ShellOperations::Set(*session, "FTPStatusInstance", "null");
  EXPECT_EQ(session->FTPStatusInstance, nullptr);
  EXPECT_EQ(Print(*session, "FTPStatusInstance"), "null");
  session->SetStatusReporting(true);
  EXPECT_EQ(Print(*session, "FTPStatusInstance"), R"({"Session":"s1"})");
}

TEST_F(ShellTables, FolderItemsPrintTheirPaths) {
  QTemporaryDir dir;
  ASSERT_TRUE(dir.isValid());
  session->FileFolderItems = {GetFolderItem(dir.path()), nullptr};
  EXPECT_EQ(Print(*session, "FileFolderItems"), QStringLiteral("[\"%1/\",null]").arg(dir.path()));

  ShellOperations::Call(*session, "SetLocalFolderItem", {dir.path()});
  EXPECT_EQ(session->LocalDirectory, dir.path() + "/");
}

TEST_F(ShellTables, OperationsConvertArgumentsAndResults) {
  EXPECT_EQ(ShellOperations::Call(*session, "Squeeze", {"a  b", " "})->Serialize(), "\"a b\"");
  EXPECT_FALSE(ShellOperations::Call(*session, "AddFileName", {"n"}).has_value());
  EXPECT_EQ(ShellOperations::Call(*session, "GetFileCount", {})->Serialize(), "0");
  EXPECT_EQ(ShellOperations::Call(*session, "SocketsActive", {})->Serialize(), "false");
  ShellOperations::Call(*session, "SetTimeoutSeconds", {"7"});
  EXPECT_EQ(session->Timeout, 7000);
  ShellOperations::Call(*session, "SetServerEncoding", {"UTF-8"});
  EXPECT_EQ(session->ServerTextEncoding, TextEncoding::UTF8());

  // The first bad argument is named.
  EXPECT_EQ(ErrorOf([&] { ShellOperations::Call(*session, "SetTimeoutSeconds", {"x"}); }),
            "SetTimeoutSeconds: argument 1: 'x' is not a decimal integer of 32 bits");
  EXPECT_EQ(ErrorOf([&] { ShellOperations::Call(*session, "Squeeze", {}); }), "Squeeze takes 2 arguments, got 0");
  EXPECT_EQ(ErrorOf([&] { ShellOperations::Call(*session, "GetFileCount", {"1"}); }),
            "GetFileCount takes 0 arguments, got 1");
  EXPECT_EQ(ErrorOf([&] { ShellOperations::Call(*session, "ParseCommandBuffer", {"a", "b"}); }),
            "ParseCommandBuffer takes 0 or 1 arguments, got 2");
  EXPECT_EQ(ErrorOf([&] { ShellOperations::Call(*session, "ParseCommandBuffer", {"abc"}); }),
            "ParseCommandBuffer: argument 1: 'abc' is not a decimal integer of 32 bits");
  EXPECT_EQ(ErrorOf([&] { ShellOperations::Call(*session, "squeeze", {"a", "b"}); }),
            "unknown method squeeze (did you mean Squeeze?)");
  EXPECT_FALSE(ShellOperations::HasOperation("Construct"));
  for (const QString& name : ShellOperations::OperationNames()) EXPECT_TRUE(ShellOperations::HasOperation(name));
}

}  // namespace
}  // namespace velmar::test
