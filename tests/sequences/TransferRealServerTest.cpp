// Against real servers on loopback, checked byte for byte: what the scripted server cannot
// show (real listings, a server that connects the moment it reads PORT, one that resets a data
// connection nobody used). Also with TLS on every data connection, against servers that refuse
// data in the clear: pyftpdlib, and vsftpd, which also demands that each data connection resume
// the control connection's TLS session.
#include "listing/FTPParsedDirListLineClass.h"
#include "platform/FolderItem.h"
#include "support/RealSession.h"

namespace velmar::test {
namespace {

const QString kTreeDone = "success\tDirectory Transfer Complete.";

// A tree comes down whole, on a connection of its own and logged on; with a non-ASCII name
// added, it goes up again but for its empty file. The root is given as the server's PWD shows
// it; each folder holds fewer than 20 entries (pyftpdlib writes more in several reads, and the
// walk reads the last). The tree upload listens once PORT is accepted: pyftpdlib connects
// before, finds nobody, and refuses with 425.
TEST_P(RealTransfer, TreesGoDownAndUp) {
  const QString tree = server->Root() + "/tree";
  WriteFile(tree + "/a file.txt", RandomBytes(1024 * 1024 + 7, 1));
  WriteFile(tree + "/sub/deeper/two words.bin", RandomBytes(70000, 3));
  WriteFile(tree + "/sub/zero.txt", "");
  WriteFile(tree + "/b/c", "c");
  QDir().mkpath(tree + "/empty folder");
  QDir().mkpath(tree + "/sub/empty too");
  QTemporaryDir own, resident;
  session->SetServerDirectoryPathName("/tree");
  session->SetLocalDirectoryPathName(own.path() + "/");
  EXPECT_EQ(Run(&S::StartGetDir), kTreeDone) << Log();
  EXPECT_TRUE(session->DirList.isEmpty());
  EXPECT_EQ(Snapshot(own.path() + "/tree"), Snapshot(tree));

  WriteFile(own.path() + "/tree/sub/\u00fcn\u00efcode \u00e9.bin", RandomBytes(300000, 2));
  session->SetLocalFolderItem(GetFolderItem(own.path() + "/tree/"));
  session->SetServerDirectoryPathName("/tree copy");
  const QString end = Run(&S::StartPutDir);
  EXPECT_EQ(end.startsWith("error\tError: 425"), Active() && !Vsftpd()) << end.toStdString();
  if (!(Active() && !Vsftpd())) {
    QStringList expected = Snapshot(own.path() + "/tree");
    expected.removeOne(Entry("sub/zero.txt", ""));
    EXPECT_EQ(end, kTreeDone) << Log();
    EXPECT_EQ(Snapshot(server->Root() + "/tree copy"), expected);
  }
  ASSERT_EQ(Run(&S::Logon), kLoggedOn);
  session->SetServerDirectoryPathName("/tree");
  session->SetLocalDirectoryPathName(resident.path() + "/");
  EXPECT_EQ(Run(&S::GetDir), kTreeDone) << Log();
  EXPECT_TRUE(session->DirList.isEmpty());
  EXPECT_EQ(Snapshot(resident.path() + "/tree"), Snapshot(tree));
}

// Files (one a multiple of the block size) come down in a batch and go up in one (in active
// mode to a port nobody listens on); then, logged on, a listing of hidden entries parses, and
// single downloads bring the files down again.
TEST_P(RealTransfer, FilesGoDownAndUp) {
  const QString root = server->Root();
  WriteFile(root + "/first file.bin", RandomBytes(777777, 4));
  WriteFile(root + "/two.bin", RandomBytes(2048 * 3, 5));
  for (const char* name : {"first file.bin", "two.bin"}) session->AddFileName(name);
  EXPECT_EQ(Run(&S::StartGetFile), kFilesDone);
  const QStringList files = Snapshot(root);
  EXPECT_EQ(Snapshot(local.path()), files);
  QDir().mkpath(root + "/up");
  ASSERT_TRUE(server->HandOverRoot());
  for (const char* name : {"first file.bin", "two.bin"}) session->AddFileName(name);
  session->SetServerDirectoryPathName("/up");
  const QString end = Run(&S::StartPutFile);
  EXPECT_EQ(end.startsWith("error\tError: 425"), Active()) << end.toStdString();
  if (!Active()) {
    EXPECT_EQ(end, kFilesDone) << Log();
    EXPECT_EQ(Snapshot(root + "/up"), files);
  }

  WriteFile(root + "/.hidden", "h");
  ASSERT_EQ(Run(&S::Logon), kLoggedOn);
  session->ShowInvisible = true;
  EXPECT_EQ(Run(&S::GetDirList), "success\tThe file list has been transferred.");
  const QStringList lines = session->DirectoryFileList.split("\r\n");
  const auto entry = session->ParseDirListLine(lines.filter("two.bin").value(0));
  EXPECT_EQ(QString("%1 %2 %3").arg(entry->IsFile).arg(entry->Name).arg(entry->Size), "1 two.bin 6144");
  EXPECT_EQ(lines.filter(" .hidden").size(), 1) << lines.join('\n').toStdString();
  QTemporaryDir back;
  session->SetLocalDirectoryPathName(back.path() + "/");
  for (const char* name : {"first file.bin", "two.bin"}) {
    session->AddFileName(name);
    EXPECT_EQ(Run(&S::GetSingleFile), kFilesDone);
  }
  EXPECT_EQ(Snapshot(back.path()), files);
}

// A tree three levels deep deleted on a connection of its own, then a flat folder logged on
// (DeleteDir has no step for a CWD into a subdirectory): RMD only of what is empty, and the
// neighbours of what went still there.
TEST_P(RealTransfer, TreesAreDeleted) {
  const QString root = server->Root();
  for (const char* name : {"tree/f", "tree/a/g", "tree/a/b/h", "tree/a/b/i j", "sibling/s", "flat/x", "flat/y"})
    WriteFile(root + "/" + name, name);
  QDir().mkpath(root + "/tree/empty");
  ASSERT_TRUE(server->HandOverRoot());
  session->SetServerDirectoryPathName("/tree");
  EXPECT_EQ(Run(&S::StartDeleteDir), "success\tThe directory has been deleted.") << Log();
  ASSERT_EQ(Run(&S::Logon), kLoggedOn);
  session->SetServerDirectoryPathName("/flat");
  EXPECT_EQ(Run(&S::ChangeDir), "success\tDirectory Change Complete.");
  EXPECT_EQ(Run(&S::DeleteDir), "success\tThe directory has been deleted.") << Log();
  EXPECT_EQ(Snapshot(root), (QStringList{"sibling/", Entry("sibling/s", "sibling/s")}));
}

const auto kTlsData = ::testing::Values(Kind::PyftpdlibTLSData, Kind::VsftpdTLSData);
INSTANTIATE_TEST_SUITE_P(Servers, RealTransfer,
                         ::testing::Combine(::testing::Values(Kind::Pyftpdlib, Kind::Vsftpd), ::testing::Bool()),
                         TransferName);
INSTANTIATE_TEST_SUITE_P(SecureData, RealTransfer, ::testing::Combine(kTlsData, ::testing::Bool()), TransferName);

// Without the option a server that demands TLS refuses the data in the clear.
using SecureData = RealTransfer;
TEST_P(SecureData, WithoutTheOptionTheDataIsRefused) {
  WriteFile(server->Root() + "/f", "f");
  session->SecureDataConnection = false;
  session->SetTimeoutSeconds(5);  // pyftpdlib waits for a handshake that never comes
  session->AddFileName("f");
  EXPECT_TRUE(Run(&S::StartGetFile).startsWith("error\tError: ")) << Log();
  EXPECT_FALSE(QFileInfo::exists(local.path() + "/f") && ReadFile(local.path() + "/f") == "f");
}
INSTANTIATE_TEST_SUITE_P(Servers, SecureData, ::testing::Combine(kTlsData, ::testing::Bool()), TransferName);

}  // namespace
}  // namespace velmar::test
