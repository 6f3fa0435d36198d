// The download batch and the recursive download against the scripted server: each name on a
// data connection and a TYPE of its own, the last name added first, active ports advancing,
// the first refusal ending the whole batch, and the exact script of a walk.
#include "support/OperationRow.h"

#include <QFileInfo>

namespace velmar::test {
namespace {

const QString kTreeDownloaded = "success\tDirectory Transfer Complete.";
// Into a directory of the walk: a data connection agreed on before the look, its listing,
// the type, and the connection for its next file, agreed on also when no file is due.
QList<Exchange> Enter(const QString& path, const QByteArray& listing) {
  return {kPasv, Ok("CWD " + path), Pwd(path), {"LIST -a", Listing(listing)}, kTypeI, kPasv};
}

const OperationRow kConnectingRows[] = {
    // Blank form: only "250 " ends a reply. An older local file is replaced. The 226 of "a"
    // comes before the close: a real NOOP waits for it.
    {"GetFileFetchesTheLastNameFirstAndQuits",
     Start(&S::StartGetFile, {"a", "b"}, "/pub",
           [](S& s) { WriteFile(s.GetLocalDirectoryPathName() + "b", "an older b, replaced"); }),
     {{"CWD /pub", {Line("250-first"), Line("250second"), Delay(50), Line("250 ok")}}, kPasv, kTypeI,
      {"RETR b", Served("bee")}, kPasv, kTypeI,
      {"RETR a", {Line("150 go"), WaitDataConnected(), DataSend("ay"), Line("226 done"), Delay(100), DataClose()}},
      {"NOOP", {Delay(100), Line("200 ok")}}, kQuit},
     {kTransferred}, {"status\tGet file "}, LocalFiles({{"a", "ay"}, {"b", "bee"}})},
    // The port advances after each file, and wraps at the end of the range.
    {"ActiveBatchTakesTheNextPortForEachFile", Start(&S::StartGetFile, {"a", "b", "c"}, {}, ActiveAtRangeEnd(32059)),
     {Port(32060), kTypeI, {"RETR c", Served("c", true)}, Port(32059), kTypeI, {"RETR b", Served("b", true)}, Port(32060),
      kTypeI, {"RETR a", Served("a", true)}, kQuit},
     {kTransferred}, {}, LocalFiles({{"a", "a"}, {"b", "b"}, {"c", "c"}})},
    {"TheFirstRefusalEndsTheBatch", Start(&S::StartGetFile, {"a", "b", "c"}),
     {kPasv, kTypeI, Ok("RETR c", "550 no such file")}, {Err("550 no such file")}, {}, FilesLeft({"a", "b"})},

    // A root given otherwise than the server's PWD shows it: the walk cannot find its entries
    // and tells the user in the connecting machine. Going on to the next subdirectory twice,
    // it sends CDUP twice, and the second answer comes while the walk waits for PWD.
    {"APathNotFoundIsToldAndTheWalkClimbs", Start(&S::StartGetDir, {}, "/top/", [](S&) { CollectBoxes(); }),
     {kTypeA, kPasv, Ok("CWD /top/"), Pwd("/top"), {"LIST -a", Listing("")}, kTypeI, kPasv, Ok("CDUP"),
      Ok("CDUP", "550 at the top"), Pwd("/")},
     {Err("550 at the top")}, {},
     BoxesWere({"NEXTPORT oops /top", "NEXTSUBDIR oops /top", "NEXTSUBDIR oops /top", "PARENT oops /top"})},
    {"ARefusedListingEndsTheWalk", Start(&S::StartGetDir, {}, "/top"),
     {kTypeA, kPasv, Ok("CWD /top"), Pwd("/top"), Ok("LIST -a", "550 no listing")}, {Err("550 no listing")}},
};

struct Download : ConnectingRows {};
TEST_P(Download, Run) {
  RunConnecting(*this, GetParam());
  // The batch's status line never names the file (the walk above fetches none).
  for (const QString& status : RecordingStatus::Only(*log, {"status"}).filter("Get file"))
    EXPECT_EQ(status, "status\tGet file ");
}
INSTANTIATE_TEST_SUITE_P(Rows, Download, ::testing::ValuesIn(kConnectingRows), RowName);

// Files and subdirectories from the last listed (b before a), each left by CDUP; the root's
// local folder made first. The root's listing comes in two reads: only the last is walked
// ("lost" is never fetched), and the line that the first read cut off reaches the parser whole.
// The listing of "a" closes after its 226: the walk goes on from the close.
const OperationRow kResidentRows[] = {
    {"GetDirWalksDepthFirstFromTheLastListed", Start(&S::GetDir, {}, "/top"),
     Enter("/top", File("lost") + "-rw-r--r-- 1 o g 1 Ja|n 1 10:00 f\r\n" + Folder("a") + Folder("b")) +
         QList<Exchange>{{"RETR /top/f", Served("F")}} + Enter("/top/b", "") + QList<Exchange>{Ok("CDUP"), Pwd("/top")} +
         QList<Exchange>{kPasv, Ok("CWD /top/a"), Pwd("/top/a"),
                         {"LIST -a", {Line("150 go"), WaitDataConnected(), DataSend(File("g")), Line("226 ok"),
                                      Delay(50), DataClose()}},
                         kTypeI, kPasv} +
         QList<Exchange>{{"RETR /top/a/g", Served("G")}, Ok("CDUP"), Pwd("/top"), Ok("CDUP")},
     {kTreeDownloaded}, {},
     [](S& s, const QString& local, const ScriptedFtpServer& server) {
       LocalFiles({{"top/f", "F"}, {"top/a/g", "G"}})(s, local, server);
       EXPECT_TRUE(QFileInfo(local + "top/b").isDir());
       EXPECT_TRUE(s.DirList.isEmpty());
       EXPECT_EQ(s.LocalDirectory, local + "top/");
     }},
    // A file of no bytes is done at its 226, before its data connection has ended; the look
    // into the next directory must not write that directory's listing into it.
    {"AnEmptyFileTakesNoBytesOfTheNextListing", Start(&S::GetDir, {}, "/top"),
     Enter("/top", File("z") + Folder("s")) + QList<Exchange>{{"RETR /top/z", {Line("150 go"), Line("226 done")}}} +
         Enter("/top/s", File("g")) + QList<Exchange>{{"RETR /top/s/g", Served("G")}, Ok("CDUP"), Pwd("/top"), Ok("CDUP")},
     {kTreeDownloaded}, {}, LocalFiles({{"top/z", ""}, {"top/s/g", "G"}})},
};
INSTANTIATE_TEST_SUITE_P(Tree, ResidentRows, ::testing::ValuesIn(kResidentRows), RowName);

}  // namespace
}  // namespace velmar::test
