// The operations of a logged-on session that take one short exchange, and the restart and
// abort of a transfer, against the scripted server. One row per behaviour: what the caller
// sets up, the exact commands the server expects with its answers, and the end reports.
// After every row the same session must take the next operation.
#include "data/FTPDataSocket.h"
#include "session/FTPConnectionTimer.h"
#include "support/LoggedOnFixture.h"
#include "support/OperationRow.h"
#include "support/TestFiles.h"

#include <functional>

namespace velmar::test {
namespace {

using S = FTPSessionClass;

// Starts an operation after storing a server path, or after adding names to Files.
auto InDir(const QString& path, void (S::*operation)()) {
  return [=](S& s, const QString&) {
    s.SetServerDirectoryPathName(path);
    (s.*operation)();
  };
}
auto WithNames(const QStringList& names, void (S::*operation)(), std::function<void(S&)> prepare = {}) {
  return [=](S& s, const QString&) {
    for (const QString& name : names) s.AddFileName(name);
    if (prepare) prepare(s);
    (s.*operation)();
  };
}
auto Text(void (S::*operation)(const QString&), const QString& text) {
  return [=](S& s, const QString&) { (s.*operation)(text); };
}
auto Active(S& s) {
  s.PassiveMode = false;
  s.SetDataPortRange(32301, 32400);  // clear of the servers' passive ranges
}

const QByteArray kContent = RandomBytes(5000, 7);

// Writes the first `length` bytes of kContent as a local file, then starts the operation.
auto WithLocalFile(const QString& name, qsizetype length, void (S::*operation)(), std::function<void(S&)> prepare = {}) {
  return [=](S& s, const QString& localDir) {
    WriteFile(localDir + name, kContent.left(length));
    s.AddFileName(name);
    if (prepare) prepare(s);
    (s.*operation)();
  };
}
auto LocalFileIsWhole(const QString& name) {
  return [=](S&, const QString& localDir, const ScriptedFtpServer&) {
    EXPECT_TRUE(ReadFile(localDir + name) == kContent);
  };
}
auto ServerReceivedFrom(qsizetype offset) {
  return [=](S&, const QString&, const ScriptedFtpServer& server) {
    ASSERT_EQ(server.ReceivedData().size(), 1);
    EXPECT_TRUE(server.ReceivedData().first() == kContent.mid(offset));
  };
}
auto FilesLeft(const QStringList& names) {
  return [=](S& s, const QString&, const ScriptedFtpServer&) { EXPECT_EQ(s.Files, names); };
}
auto DataSocketListens(S& s, const QString&, const ScriptedFtpServer&) {
  EXPECT_TRUE(s.DataSocket->IsListening());
  EXPECT_EQ(s.DataSocket->Port, s.DataPort);
}
auto Download(qsizetype from) {
  return QList<ScriptAction>{Line("150 go"), WaitDataConnected(), DataSend(kContent.mid(from)), DataClose(),
                             Line("226 done")};
}
const QList<ScriptAction> kUpload = {Line("150 go"), DataReceiveAll(), Line("226 stored")};

const QString kChanged = "success\tDirectory Change Complete.";
const QString kQueried = "success\tSystem information received.";
const QString kTransferred = "success\tFile Transfer Complete.";

const OperationRow kRows[] = {
    // Directory commands: the stored path as it stands, one accepted code each.
    {"ChangeDirSendsTheStoredPath", InDir("pub dir", &S::ChangeDir), {{"CWD pub dir", {Line("250 ok")}}},
     {kChanged}, {"status\tChange directory to: pub dir"},
     [](S& s, const QString&, const ScriptedFtpServer&) {
       EXPECT_EQ(s.ServerDirectory, "pub dir");
       EXPECT_EQ(s.CurrentWorkingDirectory, "");
       EXPECT_EQ(s.ConnectionTimer->Mode(), 0);
     }},
    {"ChangeDirActsOnceOnAMultiLineAnswer", InDir("x", &S::ChangeDir),
     {{"CWD x", {Raw("250-first\r\n continued\r\n25\r\n250 last\r\n")}}}, {kChanged}},
    {"ChangeDirRefuses257", InDir("x", &S::ChangeDir), {{"CWD x", {Line("257 made")}}}, {"error\tError: 257 made\n"}},
    {"ChangeDirWithoutAPathSendsTheBareCommand", InDir("", &S::ChangeDir), {{"CWD ", {Line("550 No such")}}},
     {"error\tError: 550 No such\n"}},
    {"ParentDirTakesOnly250", InDir("", &S::ParentDir), {{"CDUP", {Line("200 ok")}}}, {"error\tError: 200 ok\n"},
     {"status\tChanging to parent directory."}},
    {"ParentDirEndsQuietly", InDir("", &S::ParentDir), {{"CDUP", {Line("250 ok")}}}, {kChanged}},
    {"MakeDirTakes257", InDir("new", &S::MakeDir), {{"MKD new", {Line("257 \"/new\" created")}}},
     {"success\tDirectory Created."}, {"status\tCreate directory: new"}},
    {"MakeDirRefuses250", InDir("new", &S::MakeDir), {{"MKD new", {Line("250 ok")}}}, {"error\tError: 250 ok\n"}},
    {"RemoveDirTakes250", InDir("old", &S::RemoveDir), {{"RMD old", {Line("250 gone")}}},
     {"success\tEmpty Directory Removed."}, {"status\tDelete: old"}},
    {"RemoveDirOfAFullDirectoryIsAnError", InDir("old", &S::RemoveDir), {{"RMD old", {Line("550 Not empty")}}},
     {"error\tError: 550 Not empty\n"}},
    {"GetWorkingDirReportsTheRawLineOnly", InDir("", &S::GetWorkingDir), {{"PWD", {Line("257 \"/x\" is cwd")}}},
     {kPwd}, {"status\tGet working directory for ", "response\t257 \"/x\" is cwd"},
     [](S& s, const QString&, const ScriptedFtpServer&) { EXPECT_EQ(s.CurrentWorkingDirectory, ""); }},
    // The hyphen form takes a middle line without a leading blank, and a short line, for
    // final; the rest of the answer then runs through the same step once more.
    {"GetWorkingDirTakesAStrayMiddleLineForFinal", InDir("", &S::GetWorkingDir),
     {{"PWD", {Raw("257-first\r\nmiddle\r\n257 \"/\"\r\n")}}}, {"error\tError: middle\n257 \"/\"\r\n", kPwd}},
    {"GetWorkingDirTakesAShortLineForFinal", InDir("", &S::GetWorkingDir), {{"PWD", {Raw("25\r\n257 \"/\"\r\n")}}},
     {"error\tError: 25\n257 \"/\"\r\n", kPwd}},

    // File commands: names from the end of Files.
    {"DeleteAgreesOnADataConnectionFirst", WithNames({"keep", "gone.txt"}, &S::DeleteSingleFile),
     {{"PASV", {OpenPassive()}}, {"TYPE I", {Line("200 ok")}}, {"DELE gone.txt", {Line("250 deleted")}}},
     {"success\tFile has been deleted."}, {"status\tDeleting gone.txt", "status\tChange transfer type."},
     FilesLeft({"keep"})},
    {"DeleteInActiveModeLeavesTheDataSocketListening", WithNames({"f"}, &S::DeleteSingleFile, Active),
     {{"PORT 127,0,0,1,*", {Line("200 ok")}}, {"TYPE I", {Line("200 ok")}}, {"DELE f", {Line("250 deleted")}}},
     {"success\tFile has been deleted."}, {}, DataSocketListens},
    {"DeleteRefusedAtTypeKeepsTheName", WithNames({"f"}, &S::DeleteSingleFile),
     {{"PASV", {OpenPassive()}}, {"TYPE I", {Line("504 no")}}}, {"error\tError: 504 no\n"}, {}, FilesLeft({"f"})},
    {"DeleteRefused", WithNames({"f"}, &S::DeleteSingleFile),
     {{"PASV", {OpenPassive()}}, {"TYPE I", {Line("200 ok")}}, {"DELE f", {Line("450 busy")}}},
     {"error\tError: 450 busy\n"}, {}, FilesLeft({})},
    {"RenameTakesTheOldNameLast", WithNames({"keep", "new name", "old name"}, &S::RenameSingleFile),
     {{"RNFR old name", {Line("350 ready")}}, {"RNTO new name", {Line("250 renamed")}}},
     {"success\tFile Rename Complete."}, {"status\tRenaming file.old name", "status\t to: new name"},
     FilesLeft({"keep"})},
    {"RenameRefusedAtRnfrLeavesTheNewName", WithNames({"new", "old"}, &S::RenameSingleFile),
     {{"RNFR old", {Line("550 no such")}}}, {"error\tError: 550 no such\n"}, {}, FilesLeft({"new"})},
    {"RenameWithOneNameSendsAnEmptyRnto", WithNames({"x"}, &S::RenameSingleFile),
     {{"RNFR x", {Line("350 ready")}}, {"RNTO ", {Line("553 bad name")}}}, {"error\tError: 553 bad name\n"}},
    {"ChmodSendsTheMaskAsItStands", WithNames({"f"}, &S::ChmodSingleFile, [](S& s) { s.ChmodMask = "600"; }),
     {{"SITE CHMOD 600 f", {Line("200 ok")}}}, {"success\tChmod Command Complete."},
     {"status\tChange Mode of: f to: 600"}},
    {"ChmodWithoutAMaskSendsTwoBlanks", WithNames({"f"}, &S::ChmodSingleFile),
     {{"SITE CHMOD  f", {Line("501 bad mode")}}}, {"error\tError: 501 bad mode\n"}},
    {"ChmodTakesOnly200", WithNames({"f"}, &S::ChmodSingleFile), {{"SITE CHMOD  f", {Line("250 ok")}}},
     {"error\tError: 250 ok\n"}},

    // Server queries: a data connection first, never read.
    {"StatusDropsContinuationLines", InDir("", &S::GetStatus),
     {{"PASV", {OpenPassive()}}, {"STAT", {Raw("211-status\r\n line one\r\n211 End\r\n")}}}, {kQueried},
     {"status\tGet System Status", "response\t line one"}},
    {"StatusTakesAStrayMiddleLineForFinal", InDir("", &S::GetStatus),
     {{"PASV", {OpenPassive()}}, {"STAT", {Raw("211-status\r\nline two\r\n211 End\r\n")}}},
     {"error\tError: line two\n211 End\r\n", kQueried}},
    {"StatusWaitsThroughA150", InDir("", &S::GetStatus),
     {{"PASV", {OpenPassive()}}, {"STAT", {Line("150 here"), Line("211 done")}}}, {kQueried}},
    {"StatusInActiveModeListens", [](S& s, const QString&) {
       Active(s);
       s.GetStatus();
     },
     {{"PORT 127,0,0,1,*", {Line("200 ok")}}, {"STAT", {Line("211 done")}}}, {kQueried}, {}, DataSocketListens},
    {"SystemInfoTakes215", InDir("", &S::GetSystemInfo), {{"PASV", {OpenPassive()}}, {"SYST", {Line("215 UNIX")}}},
     {kQueried}, {"status\tGet system information."}},
    {"SystemInfoRefuses211", InDir("", &S::GetSystemInfo), {{"PASV", {OpenPassive()}}, {"SYST", {Line("211 x")}}},
     {"error\tError: 211 x\n"}},
    {"SystemInfoFailsWhenPasvIsRefused", InDir("", &S::GetSystemInfo), {{"PASV", {Line("500 no passive")}}},
     {"error\tError: 500 no passive\n"}},
    {"SiteSendsTheCallersText", Text(&S::SITECommand, "CHMOD 600 x"), {{"SITE CHMOD 600 x", {Line("200 ok")}}},
     {"success\tFTP SITE command complete"}, {"status\tCHMOD 600 x"},
     [](S& s, const QString&, const ScriptedFtpServer&) { EXPECT_EQ(s.DirectCommandText, "CHMOD 600 x"); }},
    {"SiteTakesOnly200", Text(&S::SITECommand, "HELP"), {{"SITE HELP", {Line("214 help")}}},
     {"error\tError: 214 help\n"}},
    {"SiteWithNoTextSendsTheBareWord", Text(&S::SITECommand, ""), {{"SITE ", {Line("500 what")}}},
     {"error\tError: 500 what\n"}},
    {"DirectCommandTakesAny2xx", Text(&S::DirectCommand, "MDTM f"), {{"MDTM f", {Line("213 20260101")}}},
     {"success\tFTP Direct Command complete"}, {"status\tMDTM f"}},
    {"DirectCommandEndsAtAnIntermediateReply", Text(&S::DirectCommand, "RNFR a"), {{"RNFR a", {Line("350 ready")}}},
     {"error\tError: 350 ready\n"}},
    {"DirectCommandEndsAtAnUnreadableCode", Text(&S::DirectCommand, "XYZ"), {{"XYZ", {Line("abc def")}}},
     {"error\tError: abc def\n"}},
    {"DirectNoopIsAnsweredLocally", Text(&S::DirectCommand, "NOOP"), {}, {"success\tFTP Direct Command complete"}},
    {"DirectForcenoopSendsARealNoop", Text(&S::DirectCommand, "FORCENOOP"), {{"NOOP", {Line("200 ok")}}},
     {"success\tFTP Direct Command complete"}},

    // Restart: a download goes on from the local length, an upload from the server's size.
    {"RestartGetAppendsFromTheLocalLength", WithLocalFile("r.bin", 1000, &S::RestartGetSingleFile),
     {{"PASV", {OpenPassive()}}, {"TYPE I", {Line("200 ok")}}, {"REST 1000", {Line("350 ok")}},
      {"RETR r.bin", Download(1000)}},
     {kTransferred}, {}, LocalFileIsWhole("r.bin")},
    {"RestartGetFromAnEmptyFile", WithLocalFile("r.bin", 0, &S::RestartGetSingleFile, Active),
     {{"PORT 127,0,0,1,*", {Line("200 ok")}}, {"TYPE I", {Line("200 ok")}}, {"REST 0", {Line("350 ok")}},
      {"RETR r.bin", {ConnectActive(), Line("150 go"), DataSend(kContent), DataClose(), Line("226 done")}}},
     {kTransferred}, {}, LocalFileIsWhole("r.bin")},
    {"RestartGetRefuses125", WithLocalFile("r.bin", 10, &S::RestartGetSingleFile),
     {{"PASV", {OpenPassive()}}, {"TYPE I", {Line("200 ok")}}, {"REST 10", {Line("350 ok")}},
      {"RETR r.bin", {Line("125 go")}}},
     {"error\tError: 125 go\n"}},
    {"RestartGetOfAMissingFileStillSendsRest",
     WithNames({"nope"}, &S::RestartGetSingleFile, [](S& s) { s.RestartByteCount = 7; }),
     {{"PASV", {OpenPassive()}}, {"TYPE I", {Line("200 ok")}}, {"REST 7", {Line("350 ok")}},
      {"RETR nope", {Line("550 no")}}},
     {"error\tError writing local file: nope", "error\tError: 550 no\n"}},
    {"RestartPutSendsFromTheServersSize", WithLocalFile("u.bin", 5000, &S::RestartPutSingleFile),
     {{"TYPE I", {Line("200 ok")}}, {"PASV", {OpenPassive()}}, {"SIZE u.bin", {Line("213 1000")}},
      {"REST 1000", {Line("350 ok")}}, {"STOR u.bin", kUpload}},
     {kTransferred}, {"status\tSend file u.bin"}, ServerReceivedFrom(1000)},
    // The server connects only after STOR: the offset waits for the connection.
    {"RestartPutInActiveMode", WithLocalFile("u.bin", 5000, &S::RestartPutSingleFile, Active),
     {{"TYPE I", {Line("200 ok")}}, {"PORT 127,0,0,1,*", {Line("200 ok")}}, {"SIZE u.bin", {Line("213 4999")}},
      {"REST 4999", {Line("350 ok")}}, {"STOR u.bin", {ConnectActive(), Line("150 go"), DataReceiveAll(), Line("226 ok")}}},
     {kTransferred}, {}, ServerReceivedFrom(4999)},
    // Another shape of 213 line keeps the old offset and moves nothing, so no block starts
    // the upload: the connection timer ends it.
    {"RestartPutStallsOnAnOddSizeLine",
     WithLocalFile("u.bin", 5000, &S::RestartPutSingleFile, [](S& s) { s.SetTimeoutSeconds(1); }),
     {{"TYPE I", {Line("200 ok")}}, {"PASV", {OpenPassive()}}, {"SIZE u.bin", {Line("213 1 000")}},
      {"REST 0", {Line("350 ok")}}, {"STOR u.bin", {Line("150 go")}}},
     {"error\tError: The connection timed out. Ending session."}},
    {"RestartPutOfAFileTheServerLacks", WithLocalFile("u.bin", 10, &S::RestartPutSingleFile),
     {{"TYPE I", {Line("200 ok")}}, {"PASV", {OpenPassive()}}, {"SIZE u.bin", {Line("550 no such")}}},
     {"error\tError: 550 no such\n"}},

    // Abort: the words of the 226 tell the answer to ABOR from the late end of a transfer.
    {"AbortAnsweredWithAbort", InDir("", &S::AbortTransfer), {{"ABOR", {Line("226 Abort successful")}}},
     {"success\tTransfer Aborted"}, {"status\tAborting File Transfer"}},
    {"AbortSearchIgnoresCase", InDir("", &S::AbortTransfer), {{"ABOR", {Line("226 ABORT done")}}},
     {"success\tTransfer Aborted"}},
    {"AbortTakesALate226Quietly", InDir("", &S::AbortTransfer), {{"ABOR", {Line("226 Transfer complete")}}}, {}},
    {"AbortAnswered426", InDir("", &S::AbortTransfer), {{"ABOR", {Line("426 aborted")}}},
     {"error\tError: 426 aborted\n"}},
};

class OneCommand : public LoggedOnFixture, public ::testing::WithParamInterface<OperationRow> {};

TEST_P(OneCommand, RunsAndLeavesTheSessionUsable) { RunOperationRow(*this, GetParam()); }

INSTANTIATE_TEST_SUITE_P(Rows, OneCommand, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.name); });

// The data connection that a status query agreed on and never used is dropped by the server
// when the next PASV comes: that close is no event of the upload that sent the PASV.
TEST_F(LoggedOnFixture, AnUnusedDataConnectionClosingLaterIsNotAnError) {
  LogOn();
  WriteFile(local.filePath("f"), kContent);
  server.Expect("PASV", {OpenPassive()})
      .Expect("STAT", {WaitDataConnected(), Line("211 ok")})
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("PASV", {DataClose(), Delay(100), OpenPassive()})
      .Expect("STOR f", kUpload);
  session->GetStatus();
  ASSERT_TRUE(WaitForEnds(2));
  session->AddFileName("f");
  session->PutSingleFile();
  ASSERT_TRUE(WaitForEnds(3));
  RunFor(50);
  EXPECT_EQ(RecordingStatus::Ends(*log).mid(1), (QStringList{kQueried, kTransferred}));
}

// An abort redirects the data socket by the session type alone: the running download reads
// no more, and the server's close of its connection reports with the sending words.
TEST_F(LoggedOnFixture, AbortOfARunningDownload) {
  LogOn();
  server.Expect("PASV", {OpenPassive()})
      .Expect("TYPE I", {Line("200 ok")})
      .Expect("RETR big", {Line("150 go"), WaitDataConnected(), DataSend(kContent)})
      .Expect("ABOR", {DataClose(), Delay(50), Raw("426 Connection closed.\r\n226 Abort successful\r\n")})
      .Expect("PWD", {Line("257 \"/\"")});
  session->AddFileName("big");
  session->GetSingleFile();
  // The abort comes once the transfer runs: a 150 still on its way would be taken for the
  // answer to ABOR.
  ASSERT_TRUE(RunUntil([&] { return log->contains("progress\t5000") && log->contains("response\t150 go"); }));
  session->AbortTransfer();
  ASSERT_TRUE(WaitForEnds(4));
  EXPECT_EQ(RecordingStatus::Ends(*log).mid(1),
            (QStringList{"error\tError while sending the file: 102",
                         "error\tError: 426 Connection closed.\n226 Abort successful\r\n", "success\tTransfer Aborted"}));
  session->GetWorkingDir();
  ASSERT_TRUE(WaitForEnds(5));
  EXPECT_EQ(RecordingStatus::Ends(*log).last(), kPwd);
}

// The running upload stops at the next completed block: the server sees the end of a
// shorter file, and its 226 for that transfer passes quietly before the answer to ABOR.
TEST_F(LoggedOnFixture, AbortOfARunningUpload) {
  LogOn();
  const QByteArray content = RandomBytes(8 * 1024 * 1024, 8);
  WriteFile(local.filePath("big"), content);
  server.Expect("TYPE I", {Line("200 ok")})
      .Expect("PASV", {OpenPassive()})
      .Expect("STOR big", {Line("150 go"), DataReceiveAll(), Line("226 Transfer complete")})
      .Expect("ABOR", {Line("226 Abort successful")})
      .Expect("PWD", {Line("257 \"/\"")});
  session->AddFileName("big");
  session->PutSingleFile();
  ASSERT_TRUE(RunUntil([&] { return log->contains("progress\t20480") && log->contains("response\t150 go"); }));
  session->AbortTransfer();
  ASSERT_TRUE(WaitForEnds(2));
  EXPECT_EQ(RecordingStatus::Ends(*log).mid(1), QStringList{"success\tTransfer Aborted"});
  ASSERT_EQ(server.ReceivedData().size(), 1);
  EXPECT_LT(server.ReceivedData().first().size(), content.size());
  EXPECT_TRUE(content.startsWith(server.ReceivedData().first()));
  session->GetWorkingDir();
  ASSERT_TRUE(WaitForEnds(3));
  EXPECT_EQ(RecordingStatus::Ends(*log).last(), kPwd);
}

}  // namespace
}  // namespace velmar::test
