// The upload batch and the recursive upload against the scripted server: the work list,
// the exact command script of a tree, directory creation, endings and failures.
#include "data/FTPDataSocket.h"
#include "platform/FolderItem.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPSessionClass.h"
#include "support/RecordingStatus.h"
#include "support/ScriptedFtpServer.h"
#include "support/TestEventLoop.h"
#include "support/TestFiles.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

constexpr auto Ends = &RecordingStatus::Ends;


struct UploadFixture : ::testing::Test {
  ScriptedFtpServer server;
  QTemporaryDir local;
  std::shared_ptr<FTPSessionClass> session = std::make_shared<FTPSessionClass>("0");
  std::shared_ptr<QStringList> log = RecordingStatus::Attach(*session);

  void SetUp() override {
    ASSERT_TRUE(local.isValid());
    session->SetLoginInfo("127.0.0.1", "u", "p");
    session->CommandPort = server.Port();
  }
  ScriptedFtpServer& ScriptLogon(const char* greeting = "220 ready") {
    return server.OnConnect({Line(greeting)}).Expect("USER u", {Line("331 ok")}).Expect("PASS p", {Line("230 in")});
  }
  bool WaitForEnd(int timeoutMs = 10000) {
    return RunUntil([&] { return !Ends(*log).isEmpty(); }, timeoutMs);
  }
  // Steps of one passive STOR that stores the file.
  static QList<ScriptAction> Stored() { return {Line("150 go"), DataReceiveAll(), Line("226 done")}; }
};

TEST_F(UploadFixture, PutFileSendsTheNamesLastAddedFirstAndQuits) {
  for (const char* name : {"a", "b", "c"}) WriteFile(local.filePath(name), QByteArray("content of ") + name);
  session->SetLocalDirectoryPathName(local.path() + "/");
  session->SetServerDirectoryPathName("/incoming");
  for (const char* name : {"a", "b", "c"}) session->AddFileName(name);
  ScriptLogon("530 microsoft says log in")
      .Expect("CWD /incoming", {Line("250 ok")})
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("PASV", {OpenPassive()})
      .Expect("STOR c", Stored())
      .Expect("PASV", {OpenPassive()})
      .Expect("STOR b", {Line("150 go"), DataReceiveAll(), Line("250 done")})  // 250 counts as 226
      .Expect("PASV", {OpenPassive()})
      .Expect("STOR a", Stored())
      .Expect("QUIT", {Line("221 bye"), CloseControl()});
  session->StartPutFile();
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(Ends(*log), QStringList{"success\tFile Transfer Complete."});
  EXPECT_EQ(server.Mismatches(), QStringList());
  ASSERT_EQ(server.ReceivedData().size(), 3);
  EXPECT_EQ(server.ReceivedData()[0], QByteArray("content of c"));
  EXPECT_EQ(server.ReceivedData()[2], QByteArray("content of a"));
  EXPECT_TRUE(session->NT);
  EXPECT_TRUE(log->contains("status\tFTP Session Complete."));
  EXPECT_EQ(session->CommandSocket, nullptr);  // a connecting operation closes its connection
}

TEST_F(UploadFixture, PutFileWithoutServerDirectorySkipsCwdAndStopsAtTheFirstRefusal) {
  WriteFile(local.filePath("x"), "x");
  WriteFile(local.filePath("y"), "y");
  session->SetLocalDirectoryPathName(local.path() + "/");
  session->AddFileName("x");
  session->AddFileName("y");
  ScriptLogon()
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("PASV", {OpenPassive()})
      .Expect("STOR y", {Line("553 not allowed")});
  session->StartPutFile();
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(Ends(*log), QStringList{"error\tError: 553 not allowed\n"});
  EXPECT_EQ(session->Files, QStringList{"x"});  // the rest stays in the list
  EXPECT_EQ(session->CommandSocket, nullptr);
}

TEST_F(UploadFixture, DataResetDuringAnUploadEndsTheBatchAndClosesEverything) {
  QByteArray big(32 * 1024 * 1024, 'z');
  WriteFile(local.filePath("big"), big);
  session->SetLocalDirectoryPathName(local.path() + "/");
  session->AddFileName("big");
  ScriptLogon()
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("PASV", {OpenPassive()})
      .Expect("STOR big", {Line("150 go"), WaitDataConnected(), Delay(20), DataReset(), Line("426 aborted")});
  session->StartPutFile();
  ASSERT_TRUE(WaitForEnd());
  // Whichever the session notices first: the reset on its data connection, or the reply.
  const QString end = Ends(*log).first();
  EXPECT_TRUE(end == "error\tError while sending the file: 106" || end == "error\tError: 426 aborted\n")
      << end.toStdString();
  EXPECT_EQ(session->CommandSocket, nullptr);
  EXPECT_EQ(session->DataSocket, nullptr);
  RunFor(100);
  EXPECT_EQ(Ends(*log).size(), 1);  // nothing reports after the end
}

TEST_F(UploadFixture, PutFileCwdRefusedIsNotCreated) {
  session->SetServerDirectoryPathName("missing");
  session->AddFileName("x");
  ScriptLogon().Expect("CWD missing", {Line("550 no such directory")});
  session->StartPutFile();
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(Ends(*log), QStringList{"error\tError: 550 no such directory\n"});
}

TEST_F(UploadFixture, GetFilesWalksTheTreeIntoTheScript) {
  const QString top = local.filePath("top");
  WriteFile(top + "/f", "f");
  WriteFile(top + "/sub/g", "g");
  WriteFile(top + "/sub/empty", "");
  QDir().mkpath(top + "/bare");
  session->GetFiles(QString(), top + "/");
  // Children come in name order: bare, f, sub.
  EXPECT_EQ(session->Files, (QStringList{"*top", "*bare", "*UP", "f", "*sub", "g", "*UP", "*UP"}));
  EXPECT_EQ(session->Paths, (QStringList{"Ignore", "Ignore", "Ignore", top + "/f", "Ignore", top + "/sub/g",
                                         "Ignore", "Ignore"}));
  session->Files.clear();
  session->GetFiles(QString(), local.filePath("nowhere"));
  EXPECT_EQ(Ends(*log), QStringList{"error\tCannot find this path: " + local.filePath("nowhere")});
}

TEST_F(UploadFixture, PutDirRunsTheScriptCreatingMissingFolders) {
  const QString top = local.filePath("top");
  WriteFile(top + "/f", "file f");
  WriteFile(top + "/sub/g", "file g");
  session->SetLocalFolderItem(GetFolderItem(top + "/"));
  session->SetServerDirectoryPathName("/up/top");
  ScriptLogon()
      .Expect("CWD /up/top", {Line("550 no")})
      .Expect("MKD /up/top", {Line("257 created")})
      .Expect("CWD /up/top", {Line("250 ok")})
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("PASV", {OpenPassive()})  // entry 1: f
      .Expect("STOR f", Stored())
      .Expect("PASV", {OpenPassive()})  // entry 2: *sub
      .Expect("CWD sub", {Line("550 no")})
      .Expect("MKD sub", {Line("257 made")})
      .Expect("CWD sub", {Line("250 ok")})
      .Expect("PASV", {OpenPassive()})  // entry 3: g
      .Expect("STOR g", Stored())
      .Expect("PASV", {OpenPassive()})  // entry 4: *UP
      .Expect("CDUP", {Line("250 ok")})
      .Expect("PASV", {OpenPassive()})  // entry 5: *UP
      .Expect("CDUP", {Line("250 ok")})
      .Expect("QUIT", {Line("221 bye")});
  session->StartPutDir();
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(Ends(*log), QStringList{"success\tDirectory Transfer Complete."});
  EXPECT_EQ(server.Mismatches(), QStringList());
  ASSERT_EQ(server.ReceivedData().size(), 2);
  EXPECT_EQ(server.ReceivedData()[0], QByteArray("file f"));
  EXPECT_EQ(server.ReceivedData()[1], QByteArray("file g"));
  EXPECT_EQ(session->CurrentFileIndex, 6);
  EXPECT_TRUE(log->contains("status\tCreate directory: "));
  EXPECT_TRUE(log->contains("status\tCreate directory: /up/top"));
  EXPECT_FALSE(session->NT);
}

TEST_F(UploadFixture, PutDirOfAMissingFolderEndsAtTheGreeting) {
  session->SetLocalDirectoryPathName(local.filePath("gone") + "/");
  session->SetServerDirectoryPathName("/x");
  server.OnConnect({Line("220 ready")});
  session->StartPutDir();
  ASSERT_TRUE(WaitForEnd());
  EXPECT_EQ(Ends(*log).first(), "error\tCannot find this path: " + local.filePath("gone") + "/");
}

TEST_F(UploadFixture, ResidentPutDirActiveModeListensLateAndEndsQuietly) {
  const QString top = local.filePath("t");
  WriteFile(top + "/one", "1");
  session->PassiveMode = false;
  session->SetDataPortRange(32301, 32400);
  ScriptLogon();
  session->Logon();
  ASSERT_TRUE(WaitForEnd());
  session->SetLocalFolderItem(GetFolderItem(top + "/"));
  const qint32 firstPort = session->DataPort;
  server.Expect("TYPE I", {Line("200 ok")})
      .ExpectPrefix("PORT ", {Line("200 ok")})
      .Expect("STOR one", {ConnectActive(), Line("150 go"), DataReceiveAll(), Line("226 ok")})
      .ExpectPrefix("PORT ", {Line("200 ok")})
      .Expect("CDUP", {Line("250 up")});
  session->PutDir();
  ASSERT_TRUE(RunUntil([&] { return Ends(*log).size() == 2; }));
  EXPECT_EQ(Ends(*log).last(), "success\tDirectory Transfer Complete.");
  EXPECT_EQ(server.ReceivedData(), QList<QByteArray>{"1"});
  EXPECT_EQ(session->DataPort, firstPort + 1);  // advanced once, after the file
  EXPECT_TRUE(session->CommandSocket->IsConnected());
}

}  // namespace
}  // namespace velmar::test
