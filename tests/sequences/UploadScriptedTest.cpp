// The upload batch and the recursive upload against the scripted server: the order names
// are sent in, the entries of a walked tree, directory creation, endings and failures.
#include "platform/FolderItem.h"
#include "support/OperationRow.h"

namespace velmar::test {
namespace {

const QString kTreeUploaded = "success\tDirectory Transfer Complete.";

// Writes every file named in Files, each holding "content of NAME".
void WriteTheFiles(S& s) {
  for (const QString& name : s.Files) WriteFile(s.GetLocalDirectoryPathName() + name, "content of " + name.toLatin1());
}
// The local folder `top` with `files` (path, content) and the empty `folders`, as the tree to upload.
std::function<void(S&)> Tree(const QString& top, QList<std::pair<QString, QByteArray>> files, QStringList folders = {}) {
  return [=](S& s) {
    const QString root = s.GetLocalDirectoryPathName() + top;
    for (const auto& [path, bytes] : files) WriteFile(root + path, bytes);
    for (const QString& path : folders) QDir().mkpath(root + path);
    s.SetLocalFolderItem(GetFolderItem(root));
  };
}

const OperationRow kRows[] = {
    // The last name added goes first, the type is set once, 250 counts as 226. A greeting of
    // 530 is taken, and one that names Microsoft marks the server as NT.
    {"PutFileSendsTheLastNameFirstAndQuits", Start(&S::StartPutFile, {"a", "b", "c"}, "/incoming", WriteTheFiles),
     {Ok("", "530 microsoft says log in"), Ok("USER u", "331 ok"), Ok("PASS p", "230 in"), Ok("CWD /incoming"),
      kTypeI, kPasv, {"STOR c", kStored}, kPasv, {"STOR b", {Line("150 go"), DataReceiveAll(), Line("250 done")}},
      kPasv, {"STOR a", kStored}, {"QUIT", {Line("221 bye"), CloseControl()}}},
     {kTransferred}, {"status\tFTP Session Complete."},
     [](S& s, const QString&, const ScriptedFtpServer& server) {
       EXPECT_EQ(server.ReceivedData(), (QList<QByteArray>{"content of c", "content of b", "content of a"}));
       EXPECT_TRUE(s.NT);
     }},
    {"PutFileWithoutDirectoryStopsAtTheFirstRefusal", Start(&S::StartPutFile, {"x", "y"}, {}, WriteTheFiles),
     {kTypeI, kPasv, Ok("STOR y", "553 not allowed")}, {Err("553 not allowed")}, {}, FilesLeft({"x"})},
    {"PutFileRefusedCwdIsNotCreated", Start(&S::StartPutFile, {"x"}, "missing"),
     {Ok("CWD missing", "550 no such directory")}, {Err("550 no such directory")}},
    // A reset of the data connection ends the batch before the server's reply, and closes
    // both connections.
    {"DataResetDuringAnUploadEndsTheBatch",
     Start(&S::StartPutFile, {"big"}, {},
           [](S& s) { WriteFile(s.GetLocalDirectoryPathName() + "big", QByteArray(32 << 20, 'z')); }),
     {kTypeI, kPasv,
      {"STOR big", {Line("150 go"), WaitDataConnected(), Delay(20), DataReset(), Delay(300), Line("426 aborted")}}},
     {"error\tError while sending the file: 106"}, {},
     [](S& s, const QString&, const ScriptedFtpServer&) { EXPECT_EQ(s.DataSocket, nullptr); }},

    // The tree is walked into its entries, children in name order, the empty file left out;
    // every entry pays for a data connection. The missing server folders are made, the
    // existing "bare" is entered. A 230 to USER is taken like 331: the password still goes.
    {"PutDirRunsTheScriptCreatingMissingFolders",
     Start(&S::StartPutDir, {}, "/up/top", Tree("top/", {{"f", "file f"}, {"sub/g", "file g"}, {"empty", ""}}, {"bare"})),
     {Ok("", "220 hi"), Ok("USER u", "230 in"), Ok("PASS p", "230 in"), Ok("CWD /up/top", "550 no"),
      Ok("MKD /up/top", "257 created"), Ok("CWD /up/top"), kTypeI, kPasv, Ok("CWD bare"),
      kPasv, Ok("CDUP"), kPasv, {"STOR f", kStored}, kPasv, Ok("CWD sub", "550 no"), Ok("MKD sub", "257 made"),
      Ok("CWD sub"), kPasv, {"STOR g", kStored}, kPasv, Ok("CDUP"), kPasv, Ok("CDUP"), kQuit},
     {kTreeUploaded}, {"status\tCreate directory: ", "status\tCreate directory: /up/top"},
     [](S& s, const QString& local, const ScriptedFtpServer& server) {
       EXPECT_EQ(server.ReceivedData(), (QList<QByteArray>{"file f", "file g"}));
       EXPECT_EQ(s.Files, (QStringList{"*top", "*bare", "*UP", "f", "*sub", "g", "*UP", "*UP"}));
       const QString f = local + "top/f", g = local + "top/sub/g";
       EXPECT_EQ(s.Paths, (QStringList{"Ignore", "Ignore", "Ignore", f, "Ignore", g, "Ignore", "Ignore"}));
       EXPECT_EQ(s.CurrentFileIndex, 8);
       EXPECT_FALSE(s.NT);
     }},
    {"PutDirEndsAtARefusedStor", Start(&S::StartPutDir, {}, "/up", Tree("top/", {{"f", "file f"}}, {})),
     {Ok("CWD /up"), kTypeI, kPasv, Ok("STOR f", "553 not allowed")}, {Err("553 not allowed")}},
    {"PutDirOfAMissingFolderEndsAtTheGreeting",
     Start(&S::StartPutDir, {}, {}, [](S& s) { s.SetLocalDirectoryPathName("/nonexistent-velmar-folder/"); }),
     {Ok("", "220 ready")}, {"error\tCannot find this path: /nonexistent-velmar-folder/"}},
};
INSTANTIATE_TEST_SUITE_P(Upload, ConnectingRows, ::testing::ValuesIn(kRows), RowName);

// On a logged-on session: the data port is listened on once PORT is accepted, and advances
// after a file only; the end is quiet.
const OperationRow kResidentRows[] = {
    {"PutDirActiveModeListensLateAndEndsQuietly",
     Start(&S::PutDir, {}, {}, [](S& s) { ActiveAtRangeEnd(32057)(s), Tree("t/", {{"one", "1"}})(s); }),
     {kTypeI, Port(32058), {"STOR one", {ConnectActive(), Line("150 go"), DataReceiveAll(), Line("226 ok")}}, Port(32057),
      Ok("CDUP", "250 up")},
     {kTreeUploaded}, {},
     [](S& s, const QString&, const ScriptedFtpServer& server) {
       EXPECT_EQ(server.ReceivedData(), QList<QByteArray>{"1"});
       EXPECT_EQ(s.DataPort, 32057);
     }},
};
INSTANTIATE_TEST_SUITE_P(Upload, ResidentRows, ::testing::ValuesIn(kResidentRows), RowName);

}  // namespace
}  // namespace velmar::test
