// TLS on the data connections, against servers that refuse data in the clear: pyftpdlib, and
// vsftpd, which also demands that each data connection resume the control connection's TLS
// session. The server's certificate is verified (trusted through its own file) throughout.
#include "data/FTPDataSocket.h"
#include "platform/FolderItem.h"
#include "support/RealSession.h"

namespace velmar::test {
namespace {

class SecureData : public RealTransfer {
protected:
  void SetUp() override {
    RealTransfer::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    session->ServerAddress = "localhost";  // the certificate's name
    session->FTPS = session->SecureDataConnection = session->VerifyServerCertificate = true;
    session->TrustedCertificateFile = server->CertificateFile();
  }
  // pyftpdlib connects the moment it reads PORT, before an upload listens (as in the clear).
  bool UploadsRefused() const { return Active() && std::get<0>(GetParam()) == Kind::PyftpdlibTLSData; }
};

// Down and up, files, listings and trees, each byte checked; the tree deletes list over TLS.
TEST_P(SecureData, FilesListingsAndTreesMove) {
  const QString root = server->Root();
  WriteFile(root + "/tree/a file.bin", RandomBytes(300007, 1));
  WriteFile(root + "/tree/sub/b.bin", RandomBytes(70000, 2));
  QDir().mkpath(root + "/tree/sub/empty");
  ASSERT_TRUE(server->HandOverRoot());
  QTemporaryDir own;
  session->SetServerDirectoryPathName("/tree");
  session->SetLocalDirectoryPathName(own.path() + "/");
  EXPECT_EQ(Run(&S::StartGetDir), "success\tDirectory Transfer Complete.") << Log();
  EXPECT_EQ(Snapshot(own.path() + "/tree"), Snapshot(root + "/tree"));

  session->SetLocalFolderItem(GetFolderItem(own.path() + "/tree/"));
  session->SetServerDirectoryPathName("/copy");
  const QString treeUp = Run(&S::StartPutDir);
  if (!UploadsRefused()) {
    EXPECT_EQ(treeUp, "success\tDirectory Transfer Complete.") << Log();
    EXPECT_EQ(Snapshot(root + "/copy"), Snapshot(root + "/tree"));
    session->SetServerDirectoryPathName("/copy");
    EXPECT_EQ(Run(&S::StartDeleteDir), "success\tThe directory has been deleted.") << Log();
    EXPECT_FALSE(QFileInfo::exists(root + "/copy"));
  }

  session->SetServerDirectoryPathName("/tree");
  session->SetLocalDirectoryPathName(local.path() + "/");
  session->Files = {"a file.bin"};  // the tree upload leaves its script behind
  EXPECT_EQ(Run(&S::StartGetFile), kFilesDone) << Log();
  const QString sent = Entry("a file.bin", ReadFile(root + "/tree/a file.bin"));
  EXPECT_EQ(Snapshot(local.path()), QStringList{sent});
  if (!Active()) {  // the batch upload never listens in active mode, in the clear neither
    session->SetServerDirectoryPathName("/");
    session->AddFileName("a file.bin");
    EXPECT_EQ(Run(&S::StartPutFile), kFilesDone) << Log();
    EXPECT_EQ(Snapshot(root).filter("a file.bin").first(), sent);
  }

  ASSERT_EQ(Run(&S::Logon), kLoggedOn) << Log();
  session->SetServerDirectoryPathName("/tree/sub");
  EXPECT_EQ(Run(&S::ChangeDir), "success\tDirectory Change Complete.");
  EXPECT_EQ(Run(&S::GetDirList), "success\tThe file list has been transferred.") << Log();
  EXPECT_EQ(session->DirectoryFileList.split("\r\n").filter(" b.bin").size(), 1);
}

// Without the option the same server refuses the data in the clear, as before it existed.
TEST_P(SecureData, WithoutTheOptionTheDataIsRefused) {
  WriteFile(server->Root() + "/f", "f");
  session->SecureDataConnection = false;
  session->SetTimeoutSeconds(5);  // pyftpdlib waits for a handshake that never comes
  session->AddFileName("f");
  EXPECT_TRUE(Run(&S::StartGetFile).startsWith("error\tError: ")) << Log();
  EXPECT_FALSE(QFileInfo::exists(local.path() + "/f") && ReadFile(local.path() + "/f") == "f");
}

INSTANTIATE_TEST_SUITE_P(Servers, SecureData,
                         ::testing::Combine(::testing::Values(Kind::PyftpdlibTLSData, Kind::VsftpdTLSData),
                                            ::testing::Bool()),
                         TransferName);

}  // namespace
}  // namespace velmar::test
