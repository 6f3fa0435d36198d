// The download batch against the scripted server: each name on a data connection and a TYPE
// of its own, the last name added first, active ports advancing, and the first refusal
// ending the whole batch.
#include "data/FTPDataSocket.h"
#include "session/FTPCommandSocket.h"
#include "support/LoggedOnFixture.h"
#include "support/TestFiles.h"

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

}  // namespace
}  // namespace velmar::test
