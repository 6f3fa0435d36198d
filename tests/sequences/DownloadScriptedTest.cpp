// The download batch against the scripted server: each name on a data connection and a TYPE
// of its own, the last name added first, active ports advancing, and the first refusal
// ending the whole batch.
#include "data/FTPDataSocket.h"
#include "session/FTPCommandSocket.h"
#include "support/LoggedOnFixture.h"
#include "platform/MsgBox.h"
#include "support/TestFiles.h"

#include <QFileInfo>

namespace velmar::test {
namespace {

struct DownloadFixture : LoggedOnFixture {
  ScriptedFtpServer& ScriptLogon() {
    return server.OnConnect({Line("220 ready")}).Expect("USER u", {Line("331 ok")}).Expect("PASS p", {Line("230 in")});
  }
  static QList<ScriptAction> Served(const QByteArray& bytes) {
    return {Line("150 go"), WaitDataConnected(), DataSend(bytes), DataClose(), Line("226 done")};
  }
};

TEST_F(DownloadFixture, GetFileFetchesTheNamesLastAddedFirstAndQuits) {
  session->SetServerDirectoryPathName("/pub");
  for (const char* name : {"a", "b"}) session->AddFileName(name);
  WriteFile(local.filePath("b"), "an older b, replaced");
  ScriptLogon()
      .Expect("CWD /pub", {Line("250 ok")})
      .Expect("PASV", {OpenPassive()})
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("RETR b", Served("bee"))
      .Expect("PASV", {OpenPassive()})
      .Expect("TYPE I", {Line("200 ok")})
      // The 226 before the close: a real NOOP waits for it.
      .Expect("RETR a", {Line("150 go"), WaitDataConnected(), DataSend("ay"), Line("226 done"), Delay(100), DataClose()})
      .Expect("NOOP", {Delay(100), Line("200 ok")})
      .Expect("QUIT", {Line("221 bye")});
  session->StartGetFile();
  ASSERT_TRUE(WaitForEnds(1));
  EXPECT_EQ(RecordingStatus::Ends(*log), QStringList{"success\tFile Transfer Complete."});
  EXPECT_EQ(server.Mismatches(), QStringList());
  EXPECT_EQ(ReadFile(local.filePath("a")), "ay");
  EXPECT_EQ(ReadFile(local.filePath("b")), "bee");
  EXPECT_EQ(session->CommandSocket, nullptr);
  // The status line never names the file.
  for (const QString& status : RecordingStatus::Only(*log, {"status"}).filter("Get file"))
    EXPECT_EQ(status, "status\tGet file ");
}

TEST_F(DownloadFixture, ActiveBatchTakesTheNextPortForEachFile) {
  session->PassiveMode = false;
  session->SetDataPortRange(32601, 32700);
  const qint32 first = session->DataPort;
  for (const char* name : {"a", "b"}) session->AddFileName(name);
  ScriptLogon()
      .Expect(QString("PORT 127,0,0,1,%1,%2").arg(first / 256).arg(first % 256), {Line("200 ok")})
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("RETR b", {ConnectActive(), Line("150 go"), DataSend("b"), DataClose(), Line("226 ok")})
      .Expect(QString("PORT 127,0,0,1,%1,%2").arg((first + 1) / 256).arg((first + 1) % 256), {Line("200 ok")})
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("RETR a", {ConnectActive(), Line("150 go"), DataSend("a"), DataClose(), Line("226 ok")})
      .Expect("QUIT", {Line("221 bye")});
  session->StartGetFile();
  ASSERT_TRUE(WaitForEnds(1));
  EXPECT_EQ(RecordingStatus::Ends(*log), QStringList{"success\tFile Transfer Complete."});
  EXPECT_EQ(server.Mismatches(), QStringList());
  EXPECT_EQ(ReadFile(local.filePath("a")), "a");
}

TEST_F(DownloadFixture, TheFirstRefusalEndsTheBatch) {
  for (const char* name : {"a", "b", "c"}) session->AddFileName(name);
  ScriptLogon()
      .Expect("PASV", {OpenPassive()})
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("RETR c", {Line("550 no such file")});
  session->StartGetFile();
  ASSERT_TRUE(WaitForEnds(1));
  EXPECT_EQ(RecordingStatus::Ends(*log), QStringList{"error\tError: 550 no such file\n"});
  EXPECT_EQ(session->Files, (QStringList{"a", "b"}));
  EXPECT_EQ(session->CommandSocket, nullptr);
}

// The exact script of a walk: the root's files from the last listed, its subdirectories from
// the last listed (b before a), each left by CDUP; a data connection agreed on before each
// look, also when no file is due; the root's local folder made first. The root's listing comes
// in two reads: only the last is walked ("lost" is never fetched), and the line that the first
// read cut off reaches the parser whole.
TEST_F(DownloadFixture, GetDirWalksDepthFirstFromTheLastListed) {
  LogOn();
  const QByteArray root = "-rw-r--r-- 1 o g 1 Jan 1 10:00 lost\r\n-rw-r--r-- 1 o g 1 Ja|n 1 10:00 f\r\n"
                          "drwxr-xr-x 2 o g 1 Jan 1 10:00 a\r\ndrwxr-xr-x 2 o g 1 Jan 1 10:00 b\r\n";
  const auto listing = [](const QByteArray& text) {
    QList<ScriptAction> actions{Line("150 go"), WaitDataConnected()};
    for (const QByteArray& read : text.split('|')) actions << DataSend(read) << Delay(30);
    return actions << DataClose() << Delay(30) << Line("226 ok");
  };
  const auto enter = [&](const QString& path, const QByteArray& text) {
    server.Expect("PASV", {OpenPassive()})
        .Expect("CWD " + path, {Line("250 ok")})
        .Expect("PWD", {Line("257 \"" + path + "\"")})
        .Expect("LIST -a", listing(text))
        .Expect("TYPE I", {Line("200 ok")})
        .Expect("PASV", {OpenPassive()});
  };
  server.Expect("PASV", {OpenPassive()})
      .Expect("CWD /top", {Line("250 ok")})
      .Expect("PWD", {Line("257 \"/top\"")})
      .Expect("LIST -a", listing(root))
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("PASV", {OpenPassive()})
      .Expect("RETR /top/f", Served("F"));
  enter("/top/b", "");  // its file connection is agreed on, and not used
  server.Expect("CDUP", {Line("250 ok")}).Expect("PWD", {Line("257 \"/top\"")});
  enter("/top/a", "-rw-r--r-- 1 o g 1 Jan 1 10:00 g\r\n");
  server.Expect("RETR /top/a/g", Served("G"))
      .Expect("CDUP", {Line("250 ok")})
      .Expect("PWD", {Line("257 \"/top\"")})
      .Expect("CDUP", {Line("250 ok")});
  session->SetServerDirectoryPathName("/top");
  session->GetDir();
  ASSERT_TRUE(WaitForEnds(2)) << server.Mismatches().join("|").toStdString();
  EXPECT_EQ(RecordingStatus::Ends(*log).last(), "success\tDirectory Transfer Complete.");
  EXPECT_EQ(server.Mismatches(), QStringList());
  EXPECT_EQ(ReadFile(local.filePath("top/f")), "F");
  EXPECT_EQ(ReadFile(local.filePath("top/a/g")), "G");
  EXPECT_TRUE(QFileInfo(local.filePath("top/b")).isDir());
  EXPECT_TRUE(session->DirList.isEmpty());
  EXPECT_EQ(session->LocalDirectory, local.path() + "/top/");
}

// A root given otherwise than the server's PWD shows it: the walk cannot find its entries and
// tells the user in the connecting machine. Going on to the next subdirectory twice, it sends
// CDUP twice, and the second answer comes while the walk waits for PWD.
TEST_F(DownloadFixture, APathNotFoundIsToldAndTheWalkClimbs) {
  QStringList boxes;
  SetMsgBoxHook([&](const QString& text) { boxes.append(text); });
  ScriptLogon()
      .Expect("TYPE A", {Line("200 ok")})
      .Expect("PASV", {OpenPassive()})
      .Expect("CWD /top/", {Line("250 ok")})
      .Expect("PWD", {Line("257 \"/top\"")})
      .Expect("LIST -a", {Line("150 go"), WaitDataConnected(), DataClose(), Delay(30), Line("226 ok")})
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("PASV", {OpenPassive()})
      .Expect("CDUP", {Line("250 ok")})
      .Expect("CDUP", {Line("550 at the top")})
      .Expect("PWD", {Line("257 \"/\"")});
  session->SetServerDirectoryPathName("/top/");
  session->StartGetDir();
  ASSERT_TRUE(WaitForEnds(1)) << server.Mismatches().join("|").toStdString();
  SetMsgBoxHook({});
  EXPECT_EQ(RecordingStatus::Ends(*log), QStringList{"error\tError: 550 at the top\n"});
  EXPECT_EQ(server.Mismatches(), QStringList());
  EXPECT_EQ(boxes, (QStringList{"NEXTPORT oops /top", "NEXTSUBDIR oops /top", "NEXTSUBDIR oops /top",
                                "PARENT oops /top"}));
}

}  // namespace
}  // namespace velmar::test
