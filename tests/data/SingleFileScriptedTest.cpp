// Port helpers and single-file transfers against the scripted server: exact command
// sequences, both orders of "226" and the data connection's close, refusals and failures.
#include "support/OperationRow.h"
#include "session/FTPConnectionTimer.h"

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

TEST(DataPorts, NextDataPortWrapsAndPassiveRepliesAreReadFromTheParentheses) {
  FTPSessionClass s;
  auto next = [&](qint32 port) {
    s.DataPort = port;
    s.NextDataPort();
    return s.DataPort;
  };
  EXPECT_EQ((QList<qint32>{next(30100), next(30099)}), (QList<qint32>{30003, 30100}));
  s.SetDataPortRange(5000, 5000);
  EXPECT_EQ((QList<qint32>{s.DataPort, next(5000)}), (QList<qint32>{5000, 5000}));
  s.SetDataPortRange(5000, 4000);  // reversed: accepted as it is
  EXPECT_TRUE(s.DataPort >= 4000 && s.DataPort <= 5000) << s.DataPort;
  EXPECT_EQ(next(s.DataPort), 5000);
  const std::pair<const char*, qint32> passive[] = {
      {"227 Entering Passive Mode (10,0,0,1,117,51).", 30003}, {"227 Entering Passive Mode 10,0,0,1,117,51.", 0},
      {"227 (1,2,3,4,0,255)", 255}, {"227 (1,2,3,4,1,x)", 256}, {"227 (1,2,3)", 0}};
  for (const auto& [line, port] : passive)
    EXPECT_EQ(s.CalculatePassivePort(line), port) << line;
}

const QByteArray kSmall = RandomBytes(5000, 1);
const QByteArray kFile = RandomBytes(300000, 2);
const QByteArray kUpload = RandomBytes(100000, 3);
auto Get(const QString& name, Prepare prepare = {}) { return Start(&S::GetSingleFile, {name}, {}, prepare); }
auto Put(const QString& name, const QByteArray& content, Prepare prepare = {}) {
  return WithLocalFile(name, content, &S::PutSingleFile, prepare);
}

const OperationRow kRows[] = {
    // The 226 comes before the close of the data connection: the download polls with real
    // NOOPs (reported as FORCENOOP) until the close.
    {"DownloadWhenThe226ComesFirstPollsWithRealNoops", Get("late.bin"),
     Pasv({kTypeI, {"RETR late.bin", {Line("150 Opening"), WaitDataConnected(), DataSend(kSmall), Line("226 Done")}},
           {"NOOP", {DataClose(), Delay(200), Line("200 NOOP ok")}}}),
     {kTransferred}, {"response\tFORCENOOP"}, LocalFiles({{"late.bin", kSmall}})},
    // The first 150 line has a hyphen: the download machine acts once, on the second.
    {"DownloadWhenTheCloseComesBeforeThe226", Get("file.bin"),
     Pasv({kTypeI, {"RETR file.bin", {Line("150-Opening"), Line("150 Opening"), WaitDataConnected(), DataSend(kFile),
                                     DataClose(), Delay(100), Line("226 Done")}}}),
     {kTransferred}, {"status\tChange transfer type."}, LocalFiles({{"file.bin", kFile}})},
    {"EmptyDownloadCreatesAnEmptyFile", Get("empty"),
     Pasv({kTypeI, {"RETR empty", {Line("150 Opening"), WaitDataConnected(), DataClose(), Line("226 Done")}}}),
     {kTransferred}, {}, LocalFiles({{"empty", ""}})},
    // The PORT string names the control connection's local address.
    {"ActiveDownloadListensBeforeThePortReply", Get("act.bin", ActiveAtRangeEnd(32100)),
     {kAnyPort, kTypeI, {"RETR act.bin", Served(kFile, true)}},
     {kTransferred}, {}, [](S& s, const QString& localDir, const ScriptedFtpServer& server) {
       LocalFiles({{"act.bin", kFile}})(s, localDir, server);
       auto port = [&](qint32 dataPort) {
         s.DataPort = dataPort;
         return s.BuildPortString();
       };
       EXPECT_EQ((QStringList{port(30003), port(256), port(255)}),
                 (QStringList{"127,0,0,1,117,51", "127,0,0,1,1,0", "127,0,0,1,0,255"}));
     }},
    {"RefusedRetr", Get("missing"), Pasv({kTypeI, Ok("RETR missing", "550 No such file")}),
     {Err("550 No such file")}},
    {"ResetOfTheDataConnectionIsAReceiveError", Get("cut"),
     Pasv({kTypeI, {"RETR cut", {Line("150 Opening"), WaitDataConnected(), DataSend(kSmall), Delay(50), DataReset()}}}),
     {"error\tError while receiving the file: 106"}},
    // Progress rises in blocks of SendBufferSize and ends at the file's length.
    {"PassiveUploadSendsTheFileAndEndsQuietly", Put("up load.bin", kUpload),
     {kTypeI, kPasv, {"STOR up load.bin", kStored}}, {kTransferred},
     {"status\tSend file up load.bin", "progress\t2048", "progress\t100000"},
     [](S& s, const QString& localDir, const ScriptedFtpServer& server) {
       ServerReceived({kUpload})(s, localDir, server);
       EXPECT_EQ(s.ConnectionTimer->Mode(), 0);
     }},
    {"UploadOfAMissingFileFailsAtConnectTime", Start(&S::PutSingleFile, {"gone.txt"}),
     {kTypeI, kPasv, {"STOR gone.txt", {}}}, {"error\tCannot Find File: gone.txt"}},
    // PutSingleFile never listens: the announced port is only stored.
    {"ActiveUploadAnnouncesAPortThatNobodyListensOn", Put("a.txt", "abc", ActiveAtRangeEnd(32200)),
     {kTypeI, Ok("PORT *", "200 ok"), Ok("STOR a.txt", "425 Can't open data connection")},
     {Err("425 Can't open data connection")}, {}, DataSocketOnDataPort(false)},
    {"RefusedPasvEndsWithoutTryingPort", Put("x", "x"), {kTypeI, Ok("PASV", "500 no passive")},
     {Err("500 no passive")}},
    // "226+" is final for the upload machine (its fourth character is neither blank nor hyphen).
    {"UploadFinalLineTestIsTheHyphenForm", Put("h.txt", "hyphen"),
     {kTypeI, kPasv, {"STOR h.txt", {Line("150-wait"), Line("150 go"), DataReceiveAll(), Line("226+ok")}}},
     {kTransferred}},
};

INSTANTIATE_TEST_SUITE_P(SingleTransfer, ResidentRows, ::testing::ValuesIn(kRows), RowName);

}  // namespace
}  // namespace velmar::test
