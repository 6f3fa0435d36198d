// The batch delete, the batch rename and the recursive delete against the scripted server:
// the exact commands per name, pair and directory, the order names are taken in, active
// ports, refusals at each stage, and the lookups that fail.
#include "support/OperationRow.h"

namespace velmar::test {
namespace {

const QString kDeleted = "success\tFile has been deleted.", kRenamed = "success\tFile Rename Complete.";

const OperationRow kBatchRows[] = {
    // Every name pays for a data connection and a TYPE; the last added goes first.
    {"DeleteTakesTheLastNameFirst", Start(&S::StartDeleteFile, {"a", "b", "c"}, "/pub"),
     {Ok("CWD /pub"), kPasv, kTypeI, Ok("DELE c"), kPasv, kTypeI, Ok("DELE b"), kPasv, kTypeI, Ok("DELE a"), kQuit},
     {kDeleted}, {"status\tDeleting c", "status\tChange transfer type.", "status\tFTP Session Complete."}, FilesLeft({})},
    // In active mode the port advances and wraps. Blank form: only "250 " ends the reply (read
    // later: a final line in the same read would be dropped); the answer to QUIT is not looked at.
    {"DeleteActiveAdvancesWrapsAndWaitsForTheFinalLine",
     Start(&S::StartDeleteFile, {"a", "b"}, {}, ActiveAtRangeEnd(32051)),
     {Port(32052), kTypeI, {"DELE b", {Line("250-first"), Line("250second"), Delay(50), Line("250 done")}}, Port(32051),
      kTypeI, Ok("DELE a"), Ok("QUIT", "500 what")},
     {kDeleted}, {"status\tSet data port to: 32052"},
     [](S& s, const QString&, const ScriptedFtpServer&) { EXPECT_EQ(s.DataPort, 32051); }},
    // The list is tested after a delete: an empty one still sends one bare DELE.
    {"DeleteOfNothingSendsABareDele", Start(&S::StartDeleteFile, {}),
     {kPasv, kTypeI, Ok("DELE ", "550 what")}, {Err("550 what")}},
    {"DeleteRefusalEndsTheBatchWithoutQuit", Start(&S::StartDeleteFile, {"a", "b", "c"}),
     {kPasv, kTypeI, Ok("DELE c", "550 no such file")}, {Err("550 no such file")}, {}, FilesLeft({"a", "b"})},
    {"DeleteRefusedTypeKeepsTheName", Start(&S::StartDeleteFile, {"a"}),
     {kPasv, Ok("TYPE I", "504 no")}, {Err("504 no")}, {}, FilesLeft({"a"})},
    {"DeleteRefusedCwdDeletesNothing", Start(&S::StartDeleteFile, {"a"}, "/nope"),
     {Ok("CWD /nope", "550 no")}, {Err("550 no")}, {}, FilesLeft({"a"})},

    // Pairs from the end: the old name first, then the new one.
    {"RenameTakesPairsFromTheEnd", Start(&S::StartRenameFile, {"new1", "old1", "new2", "old2"}, "/pub"),
     {Ok("CWD /pub"), kPasv, kTypeI, Ok("RNFR old2", "350 go"), Ok("RNTO new2"), kPasv, kTypeI,
      Ok("RNFR old1", "350 go"), Ok("RNTO new1"), kQuit},
     {kRenamed}, {"status\tRenaming file.old2", "status\t to: new2"}, FilesLeft({})},
    {"RenameOfAnOddNameSendsABareRnto", Start(&S::StartRenameFile, {"x"}),
     {kPasv, kTypeI, Ok("RNFR x", "350 go"), Ok("RNTO ", "501 what"), kQuit}, {kRenamed}},
    {"RenameRefusedRnfrLeavesTheNewName", Start(&S::StartRenameFile, {"n1", "o1", "n2", "o2"}),
     {kPasv, kTypeI, Ok("RNFR o2", "550 no such file")}, {Err("550 no such file")}, {},
     FilesLeft({"n1", "o1", "n2"})},
    // In active mode the port advances and wraps; a refused RNTO does not stop the batch.
    {"RenameActiveAdvancesAndWrapsPastRefusedRntos",
     Start(&S::StartRenameFile, {"n1", "o1", "n2", "o2"}, {}, ActiveAtRangeEnd(32053)),
     {Port(32054), kTypeI, Ok("RNFR o2", "350 go"), Ok("RNTO n2", "553 refused"), Port(32053), kTypeI,
      Ok("RNFR o1", "350 go"), Ok("RNTO n1", "553 refused"), kQuit}, {kRenamed}},
    // Hyphen form: a middle line without a hyphen counts as final. At "DONE" it moves the
    // machine on, and the real final line, read later, is taken as the answer to PASV.
    {"RenameMiddleLineCountsAsFinal", Start(&S::StartRenameFile, {"n1", "o1", "n2", "o2"}),
     {kPasv, kTypeI, Ok("RNFR o2", "350 go"),
      {"RNTO n2", {Line("250-first"), Line("xx middle"), Delay(50), Line("250 end")}}, {"PASV", {}}},
     {Err("250 end")}},
};
INSTANTIATE_TEST_SUITE_P(Batch, ConnectingRows, ::testing::ValuesIn(kBatchRows), RowName);

// The recursive delete. Into a directory on a data connection of its own (CWD as sent, PWD as
// answered), and its listing; out of a finished directory and up to its parent.
QList<Exchange> Enter(const QString& cwd, const QByteArray& listing, const QString& pwd = {}) {
  return {kPasv, Ok("CWD " + cwd), Pwd(pwd.isEmpty() ? cwd : pwd), {"LIST -a", Listing(listing)}};
}
QList<Exchange> Leave(const QString& path, const QString& parent) { return {Ok("CDUP"), Ok("RMD " + path), Pwd(parent)}; }

const QString kTreeDeleted = "success\tThe directory has been deleted.";

// DeleteDir on a logged-on session in "/d", its message boxes collected.
const auto kResident = Start(&S::DeleteDir, {}, "/d", [](S&) { CollectBoxes(); });

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
    {"WholeTreeBottomUp", Start(&S::StartDeleteDir, {}, "top"), kWholeTree, {kTreeDeleted},
     {"status\tDelete: /top/f2", "status\tDeleting /top/b", "status\tHandle parent directory "},
     [](S& s, const QString&, const ScriptedFtpServer&) {
       EXPECT_TRUE(s.DirList.isEmpty());
       EXPECT_EQ(s.DeleteDirectory, "/top");
     }},
    // In active mode each subdirectory takes the next port.
    {"ActiveModeTakesTheNextPortPerDirectory", Start(&S::StartDeleteDir, {}, "/top", ActiveAtRangeEnd(32055)),
     {kTypeA, Port(32056), Ok("CWD /top"), Pwd("/top"), {"LIST -a", QList{ConnectActive()} + Listing(Folder("s"))},
      Port(32055), Ok("CWD /top/s"), Pwd("/top/s"), {"LIST -a", QList{ConnectActive()} + Listing("")}, Ok("CDUP"),
      Ok("RMD /top/s"), Pwd("/top"), Ok("CDUP"), Ok("RMD /top"), kQuit},
     {kTreeDeleted}},
    {"RefusedDeleteEndsTheWalk", Start(&S::StartDeleteDir, {}, "/top"),
     QList<Exchange>{kTypeA} + Enter("/top", File("f")) + QList<Exchange>{Ok("DELE /top/f", "550 busy")},
     {Err("550 busy")}},
    {"RefusedRmdEndsTheWalk", Start(&S::StartDeleteDir, {}, "/top"),
     QList<Exchange>{kTypeA} + Enter("/top", "") + QList<Exchange>{Ok("CDUP"), Ok("RMD /top", "550 not empty")},
     {Err("550 not empty")}},
    {"ListingResetEndsTheWalk", Start(&S::StartDeleteDir, {}, "/top"),
     {kTypeA, kPasv, Ok("CWD /top"), Pwd("/top"),
      {"LIST -a", {Line("150 go"), WaitDataConnected(), DataSend(File("f")), DataReset(), Delay(50), Line("226 ok")}}},
     {"error\tError while receiving the directory list: 106"}},
    // A root whose name the server's PWD writes otherwise is never found. The connecting walk
    // tells the user and stands still, deleting nothing, until its timer ends it.
    {"ARootThatPwdNamesOtherwiseStopsTheWalk",
     Start(&S::StartDeleteDir, {}, "/top/", [](S& s) { CollectBoxes(), s.SetTimeoutSeconds(1); }),
     {kTypeA, kPasv, Ok("CWD /top/"), Pwd("/top"), {"LIST -a", Listing(File("f"))}},
     {"error\tError: The connection timed out. Ending session."}, {}, BoxesWere({"oops /top"})},
};
INSTANTIATE_TEST_SUITE_P(Tree, ConnectingRows, ::testing::ValuesIn(kTreeRows), RowName);

// On a logged-on session: no TYPE, no CWD into the root, and a quiet end.
const OperationRow kResidentTreeRows[] = {
    {"RemovesAFlatDirectory", kResident,
     {kPasv, Pwd("/d"), {"LIST -a", Listing(File("x") + File("y"))}, Ok("DELE /d/y"), Ok("DELE /d/x"), Ok("CDUP"),
      Ok("RMD /d")},
     {kTreeDeleted}, {}, BoxesWere({})},
    // A 226 before the listing's close: the walk goes on from the close, with the files listed.
    {"ListingClosedAfterItsReply", kResident,
     {kPasv, Pwd("/d"),
      {"LIST -a", {Line("150 go"), WaitDataConnected(), DataSend(File("x") + File("y")), Line("226 ok"), Delay(50),
                   DataClose()}},
      Ok("DELE /d/y"), Ok("DELE /d/x"), Ok("CDUP"), Ok("RMD /d")},
     {kTreeDeleted}},
    // The machine has no arm for CWD: the answer to the CWD into a subdirectory ends it.
    {"StopsAtTheFirstSubdirectory", kResident,
     {kPasv, Pwd("/d"), {"LIST -a", Listing(File("x") + Folder("s"))}, Ok("DELE /d/x"), kPasv, Ok("CWD /d/s")},
     {"error\tUnknown error during (CWD)."}, {},
     [](S& s, const QString& l, const ScriptedFtpServer& f) { BoxesWere({})(s, l, f); EXPECT_EQ(s.DirList.size(), 2); }},
    // In a directory other than its root: nothing is deleted, it climbs, tells the user at
    // PARENT, and the RMD of an empty name is refused.
    {"ElsewhereClimbsAndFails", kResident,
     {kPasv, Pwd("/elsewhere"), {"LIST -a", Listing(File("x"))}, Ok("CDUP"), Ok("RMD ", "550 what")},
     {Err("550 what")}, {}, BoxesWere({"oops /elsewhere"})},
};
INSTANTIATE_TEST_SUITE_P(ResidentTree, ResidentRows, ::testing::ValuesIn(kResidentTreeRows), RowName);

TEST(TreeDeleteEntry, DeleteDirWithoutAConnectionOnlyNamesTheRoot) {
  auto session = std::make_shared<FTPSessionClass>();
  session->SetServerDirectoryPathName("pub");
  session->DeleteDir();
  EXPECT_EQ(session->DeleteDirectory, "pub");
  EXPECT_NE(session->FTPSessionType, "DeleteDirImmediate");
}

}  // namespace
}  // namespace velmar::test
