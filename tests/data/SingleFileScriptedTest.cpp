// Port helpers and single-file transfers against the scripted server: exact command
// sequences, both orders of "226" and the data connection's close, refusals and failures.
#include "data/FTPDataSocket.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPConnectionTimer.h"
#include "session/FTPSessionClass.h"
#include "support/LoggedOnFixture.h"
#include "support/OperationRow.h"
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

// Single transfers as rows: the exact script, the end reports, and the session taking the
// next operation afterwards.
using S = FTPSessionClass;
const QByteArray kFile = Pattern(300000);

auto Get(const QString& name, std::function<void(S&)> prepare = {}) {
  return [=](S& s, const QString&) {
    if (prepare) prepare(s);
    s.AddFileName(name);
    s.GetSingleFile();
  };
}
auto Put(const QString& name, const QByteArray& content, std::function<void(S&)> prepare = {}) {
  return [=](S& s, const QString& localDir) {
    if (!content.isNull()) WriteFile(localDir + name, content);
    if (prepare) prepare(s);
    s.AddFileName(name);
    s.PutSingleFile();
  };
}
auto LocalFileHolds(const QString& name, const QByteArray& content) {
  return [=](S&, const QString& localDir, const ScriptedFtpServer&) {
    EXPECT_TRUE(QFile::exists(localDir + name));
    EXPECT_TRUE(ReadFile(localDir + name) == content);
  };
}
void Active(S& s) {
  s.PassiveMode = false;
  s.SetDataPortRange(32100, 32300);  // clear of the servers' passive ranges
}
const QString kDone = "success\tFile Transfer Complete.";

const OperationRow kRows[] = {
    // The first 150 line has a hyphen: the download machine acts once, on the second.
    {"DownloadWhenTheCloseComesBeforeThe226", Get("file.bin"),
     {{"PASV", {OpenPassive()}}, {"TYPE I", {Line("200 Type set")}},
      {"RETR file.bin", {Line("150-Opening"), Line("150 Opening"), WaitDataConnected(), DataSend(kFile), DataClose(),
                         Delay(100), Line("226 Done")}}},
     {kDone}, {"status\tChange transfer type."}, LocalFileHolds("file.bin", kFile)},
    {"EmptyDownloadCreatesAnEmptyFile", Get("empty"),
     {{"PASV", {OpenPassive()}}, {"TYPE I", {Line("200 ok")}},
      {"RETR empty", {Line("150 Opening"), WaitDataConnected(), DataClose(), Line("226 Done")}}},
     {kDone}, {}, LocalFileHolds("empty", "")},
    {"ActiveDownloadListensBeforeThePortReply", Get("act.bin", Active),
     {{"PORT 127,0,0,1,*", {Line("200 PORT ok")}}, {"TYPE I", {Line("200 ok")}},
      {"RETR act.bin", {ConnectActive(), Line("150 Opening"), DataSend(kFile), DataClose(), Line("226 Done")}}},
     {kDone}, {}, LocalFileHolds("act.bin", kFile)},
    {"RefusedRetr", Get("missing"),
     {{"PASV", {OpenPassive()}}, {"TYPE I", {Line("200 ok")}}, {"RETR missing", {Line("550 No such file")}}},
     {"error\tError: 550 No such file\n"}},
    {"ResetOfTheDataConnectionIsAReceiveError", Get("cut"),
     {{"PASV", {OpenPassive()}}, {"TYPE I", {Line("200 ok")}},
      {"RETR cut", {Line("150 Opening"), WaitDataConnected(), DataSend(Pattern(10000)), Delay(50), DataReset()}}},
     {"error\tError while receiving the file: 106"}},
    {"UploadOfAMissingFileFailsAtConnectTime", Put("gone.txt", QByteArray()),
     {{"TYPE I", {Line("200 ok")}}, {"PASV", {OpenPassive()}}, {"STOR gone.txt", {}}},
     {"error\tCannot Find File: gone.txt"}},
    // PutSingleFile never listens: the announced port is only stored.
    {"ActiveUploadAnnouncesAPortThatNobodyListensOn", Put("a.txt", "abc", Active),
     {{"TYPE I", {Line("200 ok")}}, {"PORT *", {Line("200 ok")}},
      {"STOR a.txt", {Line("425 Can't open data connection")}}},
     {"error\tError: 425 Can't open data connection\n"}, {},
     [](S& s, const QString&, const ScriptedFtpServer&) {
       EXPECT_FALSE(s.DataSocket->IsListening());
       EXPECT_EQ(s.DataSocket->Port, s.DataPort);
     }},
    {"RefusedPasvEndsWithoutTryingPort", Put("x", "x"), {{"TYPE I", {Line("200 ok")}}, {"PASV", {Line("500 no passive")}}},
     {"error\tError: 500 no passive\n"}},
    // "226+" is final for the upload machine (its fourth character is neither blank nor hyphen).
    {"UploadFinalLineTestIsTheHyphenForm", Put("h.txt", "hyphen"),
     {{"TYPE I", {Line("200 ok")}}, {"PASV", {OpenPassive()}},
      {"STOR h.txt", {Line("150-wait"), Line("150 go"), DataReceiveAll(), Line("226+done")}}},
     {kDone}},
};

class SingleTransfer : public LoggedOnFixture, public ::testing::WithParamInterface<OperationRow> {};

TEST_P(SingleTransfer, RunsAndLeavesTheSessionUsable) { RunOperationRow(*this, GetParam()); }

INSTANTIATE_TEST_SUITE_P(Rows, SingleTransfer, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmar::test
