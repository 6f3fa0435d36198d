// Port helpers and single-file transfers against the scripted server: exact command
// sequences, both orders of "226" and the data connection's close, refusals and failures.
#include "data/FTPDataSocket.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPConnectionTimer.h"
#include "session/FTPSessionClass.h"
#include "support/LoggedOnFixture.h"
#include "support/TestFiles.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

constexpr auto Ends = &RecordingStatus::Ends;

QByteArray Pattern(qsizetype size) {
  QByteArray bytes(size, '\0');
  for (qsizetype i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 131 + i / 251) & 0xff);
  return bytes;
}

TEST(DataPorts, NextDataPortWrapsToTheStartOfTheRange) {
  FTPSessionClass session;
  session.DataPort = session.DataPortEnd;
  session.NextDataPort();
  EXPECT_EQ(session.DataPort, session.DataPortStart);
  session.DataPort = session.DataPortEnd - 1;
  session.NextDataPort();
  EXPECT_EQ(session.DataPort, session.DataPortEnd);
  session.SetDataPortRange(5000, 5000);
  EXPECT_EQ(session.DataPort, 5000);
  session.NextDataPort();
  EXPECT_EQ(session.DataPort, 5000);
  session.SetDataPortRange(5000, 4000);  // reversed: accepted as it is
  EXPECT_GE(session.DataPort, 4000);
  EXPECT_LE(session.DataPort, 5000);
  session.NextDataPort();
  EXPECT_EQ(session.DataPort, 5000);
}

TEST(DataPorts, PassiveRepliesAreParsedFromTheParentheses) {
  FTPSessionClass session;
  EXPECT_EQ(session.CalculatePassivePort("227 Entering Passive Mode (10,0,0,1,117,51)."), 30003);
  EXPECT_EQ(session.CalculatePassivePort("227 Entering Passive Mode 10,0,0,1,117,51."), 0);
  EXPECT_EQ(session.CalculatePassivePort("227 (1,2,3,4,0,255)"), 255);
  EXPECT_EQ(session.CalculatePassivePort("227 (1,2,3,4,1,x)"), 256);
  EXPECT_EQ(session.CalculatePassivePort("227 (1,2,3)"), 0);
}

using TransferFixture = LoggedOnFixture;

TEST_F(TransferFixture, PortStringNamesTheControlConnectionsLocalAddress) {
  LogOn();
  session->DataPort = 30003;
  EXPECT_EQ(session->BuildPortString(), "127,0,0,1,117,51");
  session->DataPort = 256;
  EXPECT_TRUE(session->BuildPortString().endsWith(",1,0"));
  session->DataPort = 255;
  EXPECT_TRUE(session->BuildPortString().endsWith(",0,255"));
}

TEST_F(TransferFixture, DownloadWhenTheCloseComesBeforeThe226) {
  LogOn();
  const QByteArray content = Pattern(300000);
  server.Expect("PASV", {OpenPassive()})
      .Expect("TYPE I", {Line("200 Type set")})
      .Expect("RETR file.bin", {Line("150-Opening"), Line("150 Opening"), WaitDataConnected(), DataSend(content),
                                DataClose(), Delay(100), Line("226 Done")});
  session->AddFileName("file.bin");
  session->GetSingleFile();
  ASSERT_TRUE(WaitForEnds(2));
  EXPECT_EQ(Ends(*log).last(), "success\tFile Transfer Complete.");
  EXPECT_EQ(server.Commands().mid(2), (QStringList{"PASV", "TYPE I", "RETR file.bin"}));
  EXPECT_TRUE(ReadFile(local.filePath("file.bin")) == content);
  EXPECT_TRUE(log->contains("status\tChange transfer type."));
}

TEST_F(TransferFixture, DownloadWhenThe226ComesFirstPollsWithRealNoops) {
  LogOn();
  const QByteArray content = Pattern(5000);
  server.Expect("PASV", {OpenPassive()})
      .Expect("TYPE I", {Line("200 Type set")})
      .Expect("RETR late.bin", {Line("150 Opening"), WaitDataConnected(), DataSend(content), Line("226 Done"),
                                Delay(300), DataClose()})
      .ExpectPrefix("NOOP", {Line("200 NOOP ok")});
  // Any further NOOPs are answered too: the number of rounds depends on timing.
  for (int i = 0; i < 50; ++i) server.ExpectPrefix("NOOP", {Delay(20), Line("200 NOOP ok")});
  session->AddFileName("late.bin");
  session->GetSingleFile();
  ASSERT_TRUE(WaitForEnds(2));
  EXPECT_EQ(Ends(*log).last(), "success\tFile Transfer Complete.");
  EXPECT_TRUE(ReadFile(local.filePath("late.bin")) == content);
  EXPECT_GE(server.Commands().count("NOOP"), 1);
  EXPECT_TRUE(log->contains("response\tFORCENOOP"));
  EXPECT_EQ(server.Mismatches(), QStringList());
}

TEST_F(TransferFixture, EmptyDownloadCreatesAnEmptyFile) {
  LogOn();
  server.Expect("PASV", {OpenPassive()})
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("RETR empty", {Line("150 Opening"), WaitDataConnected(), DataClose(), Line("226 Done")});
  session->AddFileName("empty");
  session->GetSingleFile();
  ASSERT_TRUE(WaitForEnds(2));
  EXPECT_EQ(Ends(*log).last(), "success\tFile Transfer Complete.");
  EXPECT_TRUE(QFile::exists(local.filePath("empty")));
  EXPECT_EQ(QFile(local.filePath("empty")).size(), 0);
}

TEST_F(TransferFixture, ActiveDownloadListensBeforeThePortReply) {
  LogOn();
  session->PassiveMode = false;
  session->SetDataPortRange(32100, 32200);  // clear of the servers' passive ranges
  const QByteArray content = Pattern(70000);
  server.ExpectPrefix("PORT 127,0,0,1,", {Line("200 PORT ok")})
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("RETR act.bin", {ConnectActive(), Line("150 Opening"), DataSend(content), DataClose(), Line("226 Done")});
  session->AddFileName("act.bin");
  const qint32 port = session->DataPort;
  session->GetSingleFile();
  ASSERT_TRUE(WaitForEnds(2));
  EXPECT_EQ(Ends(*log).last(), "success\tFile Transfer Complete.");
  EXPECT_TRUE(ReadFile(local.filePath("act.bin")) == content);
  EXPECT_EQ(session->DataPort, port);  // single transfers never advance the port
  EXPECT_TRUE(log->contains(QString("status\tSet data port to: %1").arg(port)));
}

TEST_F(TransferFixture, RefusedRetrEndsTheOperationButKeepsTheLogin) {
  LogOn();
  server.Expect("PASV", {OpenPassive()})
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("RETR missing", {Line("550 No such file")});
  session->AddFileName("missing");
  session->GetSingleFile();
  ASSERT_TRUE(WaitForEnds(2));
  EXPECT_EQ(Ends(*log).last(), "error\tError: 550 No such file\n");
  EXPECT_TRUE(session->CommandSocket->IsConnected());
}

TEST_F(TransferFixture, ResetOfTheDataConnectionIsAReceiveError) {
  LogOn();
  server.Expect("PASV", {OpenPassive()})
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("RETR cut", {Line("150 Opening"), WaitDataConnected(), DataSend(Pattern(10000)), Delay(50), DataReset()});
  session->AddFileName("cut");
  session->GetSingleFile();
  ASSERT_TRUE(WaitForEnds(2));
  EXPECT_EQ(Ends(*log).last(), "error\tError while receiving the file: 106");
}

TEST_F(TransferFixture, PassiveUploadSendsTheFileAndEndsQuietly) {
  LogOn();
  const QByteArray content = Pattern(100000);
  WriteFile(local.filePath("up load.bin"), content);
  server.Expect("TYPE I", {Line("200 ok")})
      .Expect("PASV", {OpenPassive()})
      .Expect("STOR up load.bin", {Line("150 Go"), DataReceiveAll(), Line("226 Stored")});
  session->AddFileName("up load.bin");
  session->PutSingleFile();
  ASSERT_TRUE(WaitForEnds(2));
  EXPECT_EQ(Ends(*log).last(), "success\tFile Transfer Complete.");
  ASSERT_EQ(server.ReceivedData().size(), 1);
  EXPECT_TRUE(server.ReceivedData().first() == content);
  EXPECT_EQ(session->ConnectionTimer->Mode(), 0);
  EXPECT_TRUE(log->contains("status\tSend file up load.bin"));
  // Progress rises in blocks of SendBufferSize and ends at the file's length.
  const QStringList progress = RecordingStatus::Only(*log, {"progress"});
  ASSERT_FALSE(progress.isEmpty());
  EXPECT_EQ(progress.first(), "progress\t2048");
  EXPECT_EQ(progress.last(), "progress\t100000");
}

TEST_F(TransferFixture, UploadOfAMissingFileFailsAtConnectTime) {
  LogOn();
  server.Expect("TYPE I", {Line("200 ok")}).Expect("PASV", {OpenPassive()}).Expect("STOR gone.txt", {});
  session->AddFileName("gone.txt");
  session->PutSingleFile();
  ASSERT_TRUE(WaitForEnds(2));
  EXPECT_EQ(Ends(*log).last(), "error\tCannot Find File: gone.txt");
}

TEST_F(TransferFixture, ActiveUploadAnnouncesAPortThatNobodyListensOn) {
  LogOn();
  session->PassiveMode = false;
  session->SetDataPortRange(32201, 32300);
  WriteFile(local.filePath("a.txt"), "abc");
  server.Expect("TYPE I", {Line("200 ok")})
      .ExpectPrefix("PORT ", {Line("200 ok")})
      .Expect("STOR a.txt", {Line("425 Can't open data connection")});
  session->AddFileName("a.txt");
  session->PutSingleFile();
  ASSERT_TRUE(WaitForEnds(2));
  EXPECT_EQ(Ends(*log).last(), "error\tError: 425 Can't open data connection\n");
  EXPECT_FALSE(session->DataSocket->IsListening());
  EXPECT_EQ(session->DataSocket->Port, session->DataPort);
}

TEST_F(TransferFixture, RefusedPasvEndsWithoutTryingPort) {
  LogOn();
  server.Expect("TYPE I", {Line("200 ok")}).Expect("PASV", {Line("500 no passive")});
  session->AddFileName("x");
  session->PutSingleFile();
  ASSERT_TRUE(WaitForEnds(2));
  EXPECT_EQ(Ends(*log).last(), "error\tError: 500 no passive\n");
  RunFor(50);
  EXPECT_EQ(server.Commands().last(), "PASV");
}

TEST_F(TransferFixture, UploadFinalLineTestIsTheHyphenForm) {
  LogOn();
  WriteFile(local.filePath("h.txt"), "hyphen");
  // "226+" is final for the upload machine (fourth character neither blank nor hyphen).
  server.Expect("TYPE I", {Line("200 ok")})
      .Expect("PASV", {OpenPassive()})
      .Expect("STOR h.txt", {Line("150-wait"), Line("150 go"), DataReceiveAll(), Line("226+done")});
  session->AddFileName("h.txt");
  session->PutSingleFile();
  ASSERT_TRUE(WaitForEnds(2));
  EXPECT_EQ(Ends(*log).last(), "success\tFile Transfer Complete.");
}

}  // namespace
}  // namespace velmar::test
