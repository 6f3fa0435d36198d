// The batch delete, the batch rename and the recursive delete against the scripted server:
// the exact commands per name, pair and directory, the order names are taken in, active
// ports, refusals at each stage, and the lookups that fail.
#include "data/FTPDataSocket.h"
#include "platform/MsgBox.h"
#include "session/FTPCommandSocket.h"
#include "support/OperationRow.h"

namespace velmar::test {
namespace {

using S = FTPSessionClass;

// Starts `start` after adding `names` in order and setting the server directory.
auto Batch(void (S::*start)(), QStringList names, const QString& directory = {},
           std::function<void(S&)> prepare = {}) {
  return [=](S& s, const QString&) {
    for (const QString& name : names) s.AddFileName(name);
    s.SetServerDirectoryPathName(directory);
    if (prepare) prepare(s);
    (s.*start)();
  };
}
auto FilesLeft(QStringList expected) {
  return [=](S& s, const QString&, const ScriptedFtpServer&) { EXPECT_EQ(s.Files, expected); };
}
// Active mode with the port at the end of a two-port range, so that the second round wraps.
// Each row has a range of its own, clear of the other tests' ranges, as rows run side by side.
std::function<void(S&)> ActiveAtRangeEnd(int first) {
  return [first](S& s) {
    s.PassiveMode = false;
    s.SetDataPortRange(first, first + 1);
    s.DataPort = first + 1;
  };
}
QString Port(int port) { return QString("PORT 127,0,0,1,%1,%2").arg(port / 256).arg(port % 256); }

const Exchange kPasv = {"PASV", {OpenPassive()}};
const Exchange kTypeI = {"TYPE I", {Line("200 ok")}};
const Exchange kQuit = {"QUIT", {Line("221 bye")}};
Exchange Ok(const QString& command, const char* reply = "250 ok") { return {command, {Line(reply)}}; }

const QString kDeleted = "success\tFile has been deleted.";
const QString kRenamed = "success\tFile Rename Complete.";

const OperationRow kBatchRows[] = {
    // Every name pays for a data connection and a TYPE; the last added goes first.
    {"DeleteTakesTheLastNameFirst", Batch(&S::StartDeleteFile, {"a", "b", "c"}, "/pub"),
     {Ok("CWD /pub"), kPasv, kTypeI, Ok("DELE c"), kPasv, kTypeI, Ok("DELE b"), kPasv, kTypeI, Ok("DELE a"), kQuit},
     {kDeleted},
     {"status\tDeleting c", "status\tChange transfer type.", "status\tFTP Session Complete."},
     FilesLeft({})},
    {"DeleteActiveAdvancesAndWraps", Batch(&S::StartDeleteFile, {"a", "b"}, {}, ActiveAtRangeEnd(32951)),
     {Ok(Port(32952), "200 ok"), kTypeI, Ok("DELE b"), Ok(Port(32951), "200 ok"), kTypeI, Ok("DELE a"), kQuit},
     {kDeleted},
     {"status\tSet data port to: 32952"},
     [](S& s, const QString&, const ScriptedFtpServer&) { EXPECT_EQ(s.DataPort, 32951); }},
    // The list is tested after a delete: an empty one still sends one bare DELE.
    {"DeleteOfNothingSendsABareDele", Batch(&S::StartDeleteFile, {}),
     {kPasv, kTypeI, Ok("DELE ", "550 what")}, {"error\tError: 550 what\n"}},
    {"DeleteRefusalEndsTheBatchWithoutQuit", Batch(&S::StartDeleteFile, {"a", "b", "c"}),
     {kPasv, kTypeI, Ok("DELE c", "550 no such file")}, {"error\tError: 550 no such file\n"}, {},
     FilesLeft({"a", "b"})},
    {"DeleteRefusedTypeKeepsTheName", Batch(&S::StartDeleteFile, {"a"}),
     {kPasv, Ok("TYPE I", "504 no"), }, {"error\tError: 504 no\n"}, {}, FilesLeft({"a"})},
    {"DeleteRefusedCwdDeletesNothing", Batch(&S::StartDeleteFile, {"a"}, "/nope"),
     {Ok("CWD /nope", "550 no")}, {"error\tError: 550 no\n"}, {}, FilesLeft({"a"})},
    // Blank form: only "250 " ends the reply; the answer to QUIT is not looked at.
    {"DeleteWaitsForTheFinalLineAndIgnoresQuitsCode", Batch(&S::StartDeleteFile, {"a"}),
     {kPasv, kTypeI, {"DELE a", {Line("250-first"), Line("250second"), Line("250 done")}}, Ok("QUIT", "500 what")},
     {kDeleted}},

    // Pairs from the end: the old name first, then the new one.
    {"RenameTakesPairsFromTheEnd", Batch(&S::StartRenameFile, {"new1", "old1", "new2", "old2"}, "/pub"),
     {Ok("CWD /pub"), kPasv, kTypeI, Ok("RNFR old2", "350 go"), Ok("RNTO new2"), kPasv, kTypeI,
      Ok("RNFR old1", "350 go"), Ok("RNTO new1"), kQuit},
     {kRenamed},
     {"status\tRenaming file.old2", "status\t to: new2"},
     FilesLeft({})},
    {"RenameRefusedRntoDoesNotStopTheBatch", Batch(&S::StartRenameFile, {"n1", "o1", "n2", "o2"}),
     {kPasv, kTypeI, Ok("RNFR o2", "350 go"), Ok("RNTO n2", "553 refused"), kPasv, kTypeI, Ok("RNFR o1", "350 go"),
      Ok("RNTO n1", "553 refused"), kQuit},
     {kRenamed}},
    {"RenameOfAnOddNameSendsABareRnto", Batch(&S::StartRenameFile, {"x"}),
     {kPasv, kTypeI, Ok("RNFR x", "350 go"), Ok("RNTO ", "501 what"), kQuit}, {kRenamed}},
    {"RenameRefusedRnfrLeavesTheNewName", Batch(&S::StartRenameFile, {"n1", "o1", "n2", "o2"}),
     {kPasv, kTypeI, Ok("RNFR o2", "550 no such file")}, {"error\tError: 550 no such file\n"}, {},
     FilesLeft({"n1", "o1", "n2"})},
    {"RenameActiveAdvancesAndWraps", Batch(&S::StartRenameFile, {"n1", "o1", "n2", "o2"}, {}, ActiveAtRangeEnd(32953)),
     {Ok(Port(32954), "200 ok"), kTypeI, Ok("RNFR o2", "350 go"), Ok("RNTO n2"), Ok(Port(32953), "200 ok"), kTypeI,
      Ok("RNFR o1", "350 go"), Ok("RNTO n1"), kQuit},
     {kRenamed}},
    // Hyphen form: a middle line without a hyphen counts as final. At "DONE" it moves the
    // machine on, and the real final line, read later, is taken as the answer to PASV.
    {"RenameMiddleLineCountsAsFinal", Batch(&S::StartRenameFile, {"n1", "o1", "n2", "o2"}),
     {kPasv, kTypeI, Ok("RNFR o2", "350 go"),
      {"RNTO n2", {Line("250-first"), Line("xx middle"), Delay(50), Line("250 end")}}, {"PASV", {}}},
     {"error\tError: 250 end\n"}},
};

struct BatchTest : LoggedOnFixture, ::testing::WithParamInterface<OperationRow> {};
TEST_P(BatchTest, Runs) { RunConnectingRow(*this, GetParam()); }
INSTANTIATE_TEST_SUITE_P(Rows, BatchTest, ::testing::ValuesIn(kBatchRows),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- The recursive delete ------------------------------------------------------------

QList<ScriptAction> Listing(const QByteArray& text) {
  return {Line("150 go"), WaitDataConnected(), DataSend(text), DataClose(), Delay(30), Line("226 ok")};
}
QByteArray File(const char* name) { return QByteArray("-rw-r--r-- 1 o g 1 Jan 1 10:00 ") + name + "\r\n"; }
QByteArray Folder(const char* name) { return QByteArray("drwxr-xr-x 2 o g 1 Jan 1 10:00 ") + name + "\r\n"; }
Exchange Pwd(const QString& path) { return {"PWD", {Line("257 \"" + path + "\" is cwd")}}; }

// Into a directory on a data connection of its own (CWD as sent, PWD as answered), and its
// listing.
QList<Exchange> Enter(const QString& cwd, const QByteArray& listing, const QString& pwd = {}) {
  return {kPasv, Ok("CWD " + cwd), Pwd(pwd.isEmpty() ? cwd : pwd), {"LIST -a", Listing(listing)}};
}
// Out of a finished directory and up to its parent.
QList<Exchange> Leave(const QString& path, const QString& parent) {
  return {Ok("CDUP"), Ok("RMD " + path), Pwd(parent)};
}

const QString kTreeDeleted = "success\tThe directory has been deleted.";

auto DeleteTree(const QString& directory, std::function<void(S&)> prepare = {}) {
  return [=](S& s, const QString&) {
    s.SetServerDirectoryPathName(directory);
    if (prepare) prepare(s);
    s.StartDeleteDir();
  };
}
auto Resident(const QString& directory) {
  return [=](S& s, const QString&) {
    s.SetServerDirectoryPathName(directory);
    s.DeleteDir();
  };
}
const Exchange kTypeA = Ok("TYPE A", "200 ok");

// A root named without its leading "/": CWD sends it as given, the walk names it "/top".
// Files go from the last listed to the first, subdirectories likewise (b before a), each
// removed from its parent after CDUP, the position read again by PWD; the root goes last.
const QList<Exchange> kWholeTree = QList<Exchange>{kTypeA} +
                                   Enter("top", File("f1") + Folder("a") + File("f2") + Folder("b"), "/top") +
                                   QList<Exchange>{Ok("DELE /top/f2"), Ok("DELE /top/f1")} +
                                   Enter("/top/b", File("g")) + QList<Exchange>{Ok("DELE /top/b/g")} +
                                   Leave("/top/b", "/top") + Enter("/top/a", "") + Leave("/top/a", "/top") +
                                   QList<Exchange>{Ok("CDUP"), Ok("RMD /top"), kQuit};

const OperationRow kTreeRows[] = {
    {"WholeTreeBottomUp", DeleteTree("top"), kWholeTree, {kTreeDeleted},
     {"status\tDelete: /top/f2", "status\tDeleting /top/b", "status\tHandle parent directory "},
     [](S& s, const QString&, const ScriptedFtpServer&) {
       EXPECT_TRUE(s.DirList.isEmpty());
       EXPECT_EQ(s.DeleteDirectory, "/top");
     }},
    // In active mode each subdirectory takes the next port.
    {"ActiveModeTakesTheNextPortPerDirectory",
     DeleteTree("/top", ActiveAtRangeEnd(32955)),
     {kTypeA, Ok(Port(32956), "200 ok"), Ok("CWD /top"), Pwd("/top"),
      {"LIST -a", {ConnectActive(), Line("150 go"), DataSend(Folder("s")), DataClose(), Delay(30), Line("226 ok")}},
      Ok(Port(32955), "200 ok"), Ok("CWD /top/s"), Pwd("/top/s"),
      {"LIST -a", {ConnectActive(), Line("150 go"), DataClose(), Delay(30), Line("226 ok")}},
      Ok("CDUP"), Ok("RMD /top/s"), Pwd("/top"), Ok("CDUP"), Ok("RMD /top"), kQuit},
     {kTreeDeleted}},
    {"RefusedDeleteEndsTheWalk", DeleteTree("/top"),
     QList<Exchange>{kTypeA} + Enter("/top", File("f")) + QList<Exchange>{Ok("DELE /top/f", "550 busy")},
     {"error\tError: 550 busy\n"}},
    {"RefusedRmdEndsTheWalk", DeleteTree("/top"),
     QList<Exchange>{kTypeA} + Enter("/top", "") + QList<Exchange>{Ok("CDUP"), Ok("RMD /top", "550 not empty")},
     {"error\tError: 550 not empty\n"}},
    {"ListingResetEndsTheWalk", DeleteTree("/top"),
     {kTypeA, kPasv, Ok("CWD /top"), Pwd("/top"),
      {"LIST -a", {Line("150 go"), WaitDataConnected(), DataSend(File("f")), DataReset(), Delay(50), Line("226 ok")}}},
     {"error\tError while receiving the directory list: 106"}},

    // On a logged-on session: no TYPE, no CWD into the root, and a quiet end.
    {"ResidentRemovesAFlatDirectory", Resident("/d"),
     {kPasv, Pwd("/d"), {"LIST -a", Listing(File("x") + File("y"))}, Ok("DELE /d/y"), Ok("DELE /d/x"), Ok("CDUP"),
      Ok("RMD /d")},
     {kTreeDeleted}},
    // The machine has no arm for CWD: the answer to the CWD into a subdirectory ends it.
    {"ResidentStopsAtTheFirstSubdirectory", Resident("/d"),
     {kPasv, Pwd("/d"), {"LIST -a", Listing(File("x") + Folder("s"))}, Ok("DELE /d/x"), kPasv, Ok("CWD /d/s")},
     {"error\tUnknown error during (CWD)."},
     {},
     [](S& s, const QString&, const ScriptedFtpServer&) { EXPECT_EQ(s.DirList.size(), 2); }},
};

struct TreeDeleteTest : LoggedOnFixture, ::testing::WithParamInterface<OperationRow> {};
TEST_P(TreeDeleteTest, Runs) {
  const OperationRow& row = GetParam();
  if (QString(row.name).startsWith("Resident"))
    RunOperationRow(*this, row);
  else
    RunConnectingRow(*this, row);
}
INSTANTIATE_TEST_SUITE_P(Rows, TreeDeleteTest, ::testing::ValuesIn(kTreeRows),
                         [](const auto& info) { return std::string(info.param.name); });

struct TreeDeleteWalk : LoggedOnFixture {};

// A root whose name the server's PWD writes otherwise is never found. The connecting walk
// tells the user and stands still, deleting nothing, until its timer ends it.
TEST_F(TreeDeleteWalk, ARootThatPwdNamesOtherwiseStopsTheConnectingWalk) {
  QStringList boxes;
  SetMsgBoxHook([&](const QString& text) { boxes.append(text); });
  session->SetTimeoutSeconds(1);
  RunConnectingRow(*this, {"", DeleteTree("/top/"),
                           {kTypeA, kPasv, Ok("CWD /top/"), Pwd("/top"), {"LIST -a", Listing(File("f"))}},
                           {"error\tError: The connection timed out. Ending session."}});
  SetMsgBoxHook({});
  EXPECT_EQ(boxes, QStringList{"oops /top"});
}

// The resident walk in a directory other than its root: nothing is deleted, it climbs, tells
// the user at PARENT, and the RMD of an empty name is refused.
TEST_F(TreeDeleteWalk, AResidentWalkElsewhereClimbsAndFails) {
  QStringList boxes;
  SetMsgBoxHook([&](const QString& text) { boxes.append(text); });
  RunOperationRow(*this, {"", Resident("/d"),
                          {kPasv, Pwd("/elsewhere"), {"LIST -a", Listing(File("x"))}, Ok("CDUP"),
                           Ok("RMD ", "550 what")},
                          {"error\tError: 550 what\n"}});
  SetMsgBoxHook({});
  EXPECT_EQ(boxes, QStringList{"oops /elsewhere"});
}

TEST(TreeDeleteEntry, DeleteDirWithoutAConnectionOnlyNamesTheRoot) {
  auto session = std::make_shared<FTPSessionClass>();
  session->SetServerDirectoryPathName("pub");
  session->DeleteDir();
  EXPECT_EQ(session->DeleteDirectory, "pub");
  EXPECT_NE(session->FTPSessionType, "DeleteDirImmediate");
}

}  // namespace
}  // namespace velmar::test
