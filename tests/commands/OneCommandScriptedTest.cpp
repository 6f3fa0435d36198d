// The operations of a logged-on session that take one short exchange, and the restart and
// abort of a transfer, against the scripted server: the exact commands with the server's
// answers, and the end reports. After every row the session must take the next operation.
#include "support/OperationRow.h"
#include "session/FTPConnectionTimer.h"

namespace velmar::test {
namespace {

auto Text(void (S::*op)(const QString&), const QString& text) { return [=](S& s, const QString&) { (s.*op)(text); }; }
const QByteArray kContent = RandomBytes(5000, 7);

const QByteArray& Big() {
  static const QByteArray big = RandomBytes(8 * 1024 * 1024, 8);
  return big;
}

const QString kChanged = "success\tDirectory Change Complete.";
const QString kQueried = "success\tSystem information received.";
const QString kDeleted = "success\tFile has been deleted.";
const QString kDirect = "success\tFTP Direct Command complete";

const OperationRow kRows[] = {
    // Directory commands: the stored path as it stands, one accepted code each. None reads or
    // writes the current working directory.
    {"ChangeDirSendsTheStoredPath", Start(&S::ChangeDir, {}, "pub dir"), {Ok("CWD pub dir", "250 ok")}, {kChanged},
     {"status\tChange directory to: pub dir"},
     OnSession([](S& s) { EXPECT_TRUE(s.CurrentWorkingDirectory.isEmpty() && s.ConnectionTimer->Mode() == 0); })},
    {"ChangeDirActsOnceOnAMultiLineAnswer", Start(&S::ChangeDir, {}, "x"),
     {{"CWD x", {Raw("250-first\r\n continued\r\n25\r\n250 last\r\n")}}}, {kChanged}},
    {"ChangeDirBareAndRefusing257", Start(&S::ChangeDir), {Ok("CWD ", "257 made")}, {Err("257 made")}},
    {"ParentDirTakesOnly250", Start(&S::ParentDir), {Ok("CDUP", "200 ok")}, {Err("200 ok")},
     {"status\tChanging to parent directory."}},
    {"ParentDirEndsQuietly", Start(&S::ParentDir), {Ok("CDUP", "250 ok")}, {kChanged}},
    {"MakeDirTakes257", Start(&S::MakeDir, {}, "new"), {Ok("MKD new", "257 \"/new\" made")},
     {"success\tDirectory Created."}, {"status\tCreate directory: new"}},
    {"MakeDirRefuses250", Start(&S::MakeDir, {}, "new"), {Ok("MKD new", "250 ok")}, {Err("250 ok")}},
    {"RemoveDirTakes250", Start(&S::RemoveDir, {}, "old"), {Ok("RMD old", "250 ok")},
     {"success\tEmpty Directory Removed."}, {"status\tDelete: old"}},
    {"RemoveDirRefused", Start(&S::RemoveDir, {}, "old"), {Ok("RMD old", "550 Not empty")}, {Err("550 Not empty")}},
    // The 257 line reaches the caller as the raw response only. The hyphen form takes a stray
    // middle line for final; the rest of the answer then runs through the step once more.
    {"GetWorkingDirTakesAStrayMiddleLineForFinal", Start(&S::GetWorkingDir),
     {{"PWD", {Raw("257-first\r\nmiddle\r\n257 \"/x\" is cwd\r\n")}}},
     {"error\tError: middle\n257 \"/x\" is cwd\r\n", kPwd},
     {"status\tGet working directory for ", "response\t257 \"/x\" is cwd"},
     OnSession([](S& s) { EXPECT_EQ(s.CurrentWorkingDirectory, ""); })},

    // File commands: names from the end of Files.
    {"DeleteAgreesOnADataConnectionFirst", Start(&S::DeleteSingleFile, {"keep", "gone.txt"}),
     Pasv({kTypeI, Ok("DELE gone.txt", "250 deleted")}), {kDeleted},
     {"status\tDeleting gone.txt", "status\tChange transfer type."}, FilesLeft({"keep"})},
    {"DeleteInActiveModeLeavesTheDataSocketListening", Start(&S::DeleteSingleFile, {"f"}, {}, ActiveAtRangeEnd(32301)),
     {kAnyPort, kTypeI, Ok("DELE f", "250 deleted")}, {kDeleted}, {}, DataSocketOnDataPort(true)},
    {"DeleteRefusedAtTypeKeepsTheName", Start(&S::DeleteSingleFile, {"f"}), Pasv({Ok("TYPE I", "504 no")}),
     {Err("504 no")}, {}, FilesLeft({"f"})},
    {"DeleteRefused", Start(&S::DeleteSingleFile, {"f"}), Pasv({kTypeI, Ok("DELE f", "450 busy")}),
     {Err("450 busy")}, {}, FilesLeft({})},
    {"RenameTakesTheOldNameLast", Start(&S::RenameSingleFile, {"keep", "new name", "old name"}),
     {Ok("RNFR old name", "350 ready"), Ok("RNTO new name", "250 ok")}, {"success\tFile Rename Complete."},
     {"status\tRenaming file.old name", "status\t to: new name"}, FilesLeft({"keep"})},
    {"RenameRefusedAtRnfrLeavesTheNewName", Start(&S::RenameSingleFile, {"new", "old"}), {Ok("RNFR old", "550 no")},
     {Err("550 no")}, {}, FilesLeft({"new"})},
    {"RenameWithOneNameSendsAnEmptyRnto", Start(&S::RenameSingleFile, {"x"}),
     {Ok("RNFR x", "350 ready"), Ok("RNTO ", "553 bad name")}, {Err("553 bad name")}},
    {"ChmodSendsTheMaskAsItStands", Start(&S::ChmodSingleFile, {"f"}, {}, [](S& s) { s.ChmodMask = "600"; }),
     {Ok("SITE CHMOD 600 f", "200 ok")}, {"success\tChmod Command Complete."}, {"status\tChange Mode of: f to: 600"}},
    {"ChmodNoMaskTakesOnly200", Start(&S::ChmodSingleFile, {"f"}), {Ok("SITE CHMOD  f", "250 ok")}, {Err("250 ok")}},

    // Server queries: a data connection first, never read.
    // A 150 is waited through; hyphen form, as for PWD, where a leading blank is not final.
    {"StatusWaitsThroughA150AndTakesAStrayMiddleLine", Start(&S::GetStatus),
     Pasv({{"STAT", {Line("150 here"), Raw("211-status\r\n line one\r\nline two\r\n211 End\r\n")}}}),
     {"error\tError: line two\n211 End\r\n", kQueried}, {"status\tGet System Status", "response\t line one"}},
    {"StatusInActiveModeListens", Start(&S::GetStatus, {}, {}, ActiveAtRangeEnd(32303)),
     {kAnyPort, Ok("STAT", "211 done")}, {kQueried}, {}, DataSocketOnDataPort(true)},
    {"SystemInfoTakes215", Start(&S::GetSystemInfo), Pasv({Ok("SYST", "215 UNIX")}), {kQueried},
     {"status\tGet system information."}},
    {"SystemInfoRefuses211", Start(&S::GetSystemInfo), Pasv({Ok("SYST", "211 x")}), {Err("211 x")}},
    {"SystemInfoRefusedPasv", Start(&S::GetSystemInfo), {Ok("PASV", "500 no passive")}, {Err("500 no passive")}},
    {"SiteSendsTheCallersText", Text(&S::SITECommand, "CHMOD 600 x"), {Ok("SITE CHMOD 600 x", "200 ok")},
     {"success\tFTP SITE command complete"}, {"status\tCHMOD 600 x"},
     OnSession([](S& s) { EXPECT_EQ(s.DirectCommandText, "CHMOD 600 x"); })},
    {"SiteBareAndTakingOnly200", Text(&S::SITECommand, ""), {{"SITE ", {Raw("214-help\r\n214 end\r\n")}}},
     {Err("214 end")}},
    {"DirectTakesAny2xx", Text(&S::DirectCommand, "MDTM f"), {Ok("MDTM f", "213 1")}, {kDirect}, {"status\tMDTM f"}},
    {"DirectCommandEndsAtA3xx", Text(&S::DirectCommand, "RNFR a"), {Ok("RNFR a", "350 ready")}, {Err("350 ready")}},
    {"DirectNoopIsAnsweredLocally", Text(&S::DirectCommand, "NOOP"), {}, {kDirect}},
    {"DirectForcenoopSendsARealNoop", Text(&S::DirectCommand, "FORCENOOP"), {Ok("NOOP", "200 ok")}, {kDirect}},
    // The data connection that a status query agreed on and never used is dropped by the
    // server at the next PASV: that close is no event of the upload that sent the PASV.
    {"AnUnusedDataConnectionClosingLaterIsNotAnError",
     [](S& s, const QString& localDir) {
       s.GetStatus();
       RunUntil([&] { return s.ConnectionTimer->Mode() == 0; });  // the query has ended
       WithLocalFile("f", kContent, &S::PutSingleFile)(s, localDir);
     },
     {kPasv, {"STAT", {WaitDataConnected(), Line("211 ok")}}, kTypeI,
      {"PASV", {DataClose(), Delay(100), OpenPassive()}}, {"STOR f", kStored}},
     {kQueried, kTransferred}},

    // Restart: a download goes on from the local length, an upload from the server's size.
    {"RestartGetAppendsFromTheLocalLength", WithLocalFile("r.bin", kContent.left(1000), &S::RestartGetSingleFile),
     Pasv({kTypeI, Ok("REST 1000", "350 ok"), {"RETR r.bin", Served(kContent.mid(1000))}}),
     {kTransferred}, {}, LocalFiles({{"r.bin", kContent}})},
    {"RestartGetFromAnEmptyFile", WithLocalFile("r.bin", "", &S::RestartGetSingleFile, ActiveAtRangeEnd(32305)),
     {kAnyPort, kTypeI, Ok("REST 0", "350 ok"), {"RETR r.bin", Served(kContent, true)}},
     {kTransferred}, {}, LocalFiles({{"r.bin", kContent}})},
    // A local file that cannot be opened still lets REST go with the offset as it was; only
    // 150 waits, a 125 is an error.
    {"RestartGetOfAMissingFileStillSendsRestAndRefuses125",
     Start(&S::RestartGetSingleFile, {"nope"}, {}, [](S& s) { s.RestartByteCount = 7; }),
     Pasv({kTypeI, Ok("REST 7", "350 ok"), Ok("RETR nope", "125 go")}),
     {"error\tError writing local file: nope", Err("125 go")}},
    {"RestartPutSendsFromTheServersSize", WithLocalFile("u.bin", kContent, &S::RestartPutSingleFile),
     {{"TYPE I", {Raw("200-binary\r\n200 ok\r\n")}}, kPasv, Ok("SIZE u.bin", "213 1000"), Ok("REST 1000", "350 ok"),
      {"STOR u.bin", kStored}},
     {kTransferred}, {"status\tSend file u.bin"}, ServerReceived({kContent.mid(1000)})},
    // The server connects only after STOR: the offset waits for the connection.
    {"RestartPutInActiveMode", WithLocalFile("u.bin", kContent, &S::RestartPutSingleFile, ActiveAtRangeEnd(32307)),
     {kTypeI, kAnyPort, Ok("SIZE u.bin", "213 4999"), Ok("REST 4999", "350 ok"),
      {"STOR u.bin", {ConnectActive(), Line("150 go"), DataReceiveAll(), Line("226 ok")}}},
     {kTransferred}, {}, ServerReceived({kContent.mid(4999)})},
    // Another shape of 213 line keeps the old offset and moves nothing, so no block starts
    // the upload: the connection timer ends it.
    {"RestartPutStallsOnAnOddSizeLine",
     WithLocalFile("u.bin", kContent, &S::RestartPutSingleFile, [](S& s) { s.SetTimeoutSeconds(1); }),
     {kTypeI, kPasv, Ok("SIZE u.bin", "213 1 000"), Ok("REST 0", "350 ok"),
      Ok("STOR u.bin", "150 go")},
     {"error\tError: The connection timed out. Ending session."}},
    {"RestartPutOfAFileTheServerLacks", WithLocalFile("u.bin", "u", &S::RestartPutSingleFile),
     {kTypeI, kPasv, Ok("SIZE u.bin", "550 no such")}, {Err("550 no such")}},

    // Aborts of a running transfer, once the server's 150 has been read (one still on its way
    // would be taken for the answer to ABOR). The download reads no more: the data socket follows
    // the session type alone, and the server's close of its connection reports with the sending words.
    {"AbortOfARunningDownload",
     [](S& s, const QString& localDir) {
       Start(&S::GetSingleFile, {"big"})(s, localDir);
       RunUntil([&] { return s.DataSocket->ByteCount == 5000; });
       RunFor(50);  // the 150 came before the data
       s.AbortTransfer();
     },
     Pasv({kTypeI, {"RETR big", {Line("150 go"), WaitDataConnected(), DataSend(kContent)}},
           {"ABOR", {DataClose(), Delay(50), Raw("426 Connection closed.\r\n226 Abort successful\r\n")}}}),
     {"error\tError while sending the file: 102", Err("426 Connection closed.") + "226 Abort successful\r\n",
      "success\tTransfer Aborted"}},
    // The running upload stops at the next completed block: the server sees the end of a
    // shorter file, and its 226 for that transfer passes quietly before the answer to ABOR.
    {"AbortOfARunningUpload",
     [](S& s, const QString& localDir) {
       WithLocalFile("big", Big(), &S::PutSingleFile)(s, localDir);
       RunUntil([&] { return s.DataSocket->ByteCount >= 1048576; });  // 512 blocks: the 150 has been read
       s.AbortTransfer();
     },
     {kTypeI, kPasv, {"STOR big", {Line("150 go"), DataReceiveAll(), Line("226 Transfer complete")}},
      Ok("ABOR", "226 Abort successful")},
     {"success\tTransfer Aborted"}, {}, [](S&, const QString&, const ScriptedFtpServer& server) {
       ASSERT_EQ(server.ReceivedData().size(), 1);
       EXPECT_TRUE(server.ReceivedData()[0].size() < Big().size() && Big().startsWith(server.ReceivedData()[0]));
     }},
    // Abort: the word "Abort" in the 226, in any case, tells the answer to ABOR from the late
    // end of a transfer, which passes quietly.
    {"AbortAnsweredWithAbortInAnyCase", Start(&S::AbortTransfer), {Ok("ABOR", "226 ABORT done")},
     {"success\tTransfer Aborted"}, {"status\tAborting File Transfer"}},
    {"AbortTakesALate226Quietly", Start(&S::AbortTransfer), {Ok("ABOR", "226 Transfer complete")}, {}},
    {"AbortAnswered426", Start(&S::AbortTransfer), {Ok("ABOR", "426 aborted")}, {Err("426 aborted")}},
};

INSTANTIATE_TEST_SUITE_P(OneCommand, ResidentRows, ::testing::ValuesIn(kRows), RowName);

}  // namespace
}  // namespace velmar::test
