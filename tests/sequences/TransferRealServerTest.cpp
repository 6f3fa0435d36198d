// Uploads and downloads against real servers on loopback, compared byte for byte.
#include "data/FTPDataSocket.h"
#include "listing/FTPParsedDirListLineClass.h"
#include "platform/FolderItem.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPSessionClass.h"
#include "support/RealFtpServer.h"
#include "support/RecordingStatus.h"
#include "support/TestEventLoop.h"
#include "support/TestFiles.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

constexpr auto Ends = &RecordingStatus::Ends;



// Relative path -> content of every file below root, and "dir/" entries for folders.
QMap<QString, QByteArray> Snapshot(const QString& root) {
  QMap<QString, QByteArray> entries;
  QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden, QDirIterator::Subdirectories);
  while (it.hasNext()) {
    const QString path = it.next();
    const QString relative = QDir(root).relativeFilePath(path);
    if (it.fileInfo().isDir()) {
      entries.insert(relative + "/", QByteArray());
    } else {
      QFile file(path);
      entries.insert(relative, file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>"));
    }
  }
  return entries;
}

// Names of the entries that differ between two snapshots, for failure messages.
std::string Difference(const QMap<QString, QByteArray>& actual, const QMap<QString, QByteArray>& expected) {
  QStringList lines;
  for (auto it = expected.begin(); it != expected.end(); ++it) {
    if (!actual.contains(it.key()))
      lines << "missing: " + it.key();
    else if (actual.value(it.key()) != it.value())
      lines << QString("differs: %1 (%2 bytes, expected %3)").arg(it.key()).arg(actual.value(it.key()).size()).arg(it.value().size());
  }
  for (auto it = actual.begin(); it != actual.end(); ++it)
    if (!expected.contains(it.key())) lines << "unexpected: " + it.key();
  return lines.join('\n').toStdString();
}

enum class Mode { Passive, Active };

struct Case {
  RealFtpServer::Kind server;
  Mode mode;
};

std::string CaseName(const ::testing::TestParamInfo<Case>& info) {
  std::string name = info.param.server == RealFtpServer::Kind::Vsftpd ? "vsftpd" : "pyftpdlib";
  return name + (info.param.mode == Mode::Passive ? "_passive" : "_active");
}

class RealTransfer : public ::testing::TestWithParam<Case> {
protected:
  void SetUp() override {
    server = std::make_unique<RealFtpServer>(GetParam().server);
    if (!server->Started()) GTEST_SKIP() << server->SkipReason().toStdString();
    ASSERT_TRUE(local.isValid());
  }
  std::shared_ptr<FTPSessionClass> NewSession() {
    auto session = std::make_shared<FTPSessionClass>();
    log = RecordingStatus::Attach(*session);
    session->SetLoginInfo("127.0.0.1", server->User(), server->Password());
    session->CommandPort = server->Port();
    session->SetServerEncoding(TextEncoding::UTF8());  // names with non-ASCII letters
    session->PassiveMode = GetParam().mode == Mode::Passive;
    session->SetDataPortRange(32401, 32700);
    return session;
  }
  bool WaitForEnds(int count, int timeoutMs = 60000) {
    return RunUntil([&] { return Ends(*log).size() >= count; }, timeoutMs);
  }

  std::unique_ptr<RealFtpServer> server;
  QTemporaryDir local;
  std::shared_ptr<QStringList> log;
};

TEST_P(RealTransfer, TreeUploadRebuildsTheFolderOnTheServer) {
  const QString top = local.filePath("top dir");
  WriteFile(top + "/a file.txt", RandomBytes(1024 * 1024 + 7, 1));
  WriteFile(top + "/sub/\u00fcn\u00efcode \u00e9.bin", RandomBytes(300000, 2));
  WriteFile(top + "/sub/deeper/x", "x");
  WriteFile(top + "/sub/empty.txt", "");
  QDir().mkpath(top + "/empty folder");
  auto session = NewSession();
  session->SetLocalFolderItem(GetFolderItem(top + "/"));
  session->SetServerDirectoryPathName("/top dir");
  session->StartPutDir();
  ASSERT_TRUE(WaitForEnds(1));
  if (GetParam().mode == Mode::Active && GetParam().server != RealFtpServer::Kind::Vsftpd) {
    // The tree upload listens only once PORT is accepted; a server that connects before
    // it accepts PORT finds nobody listening, and the walk ends with its refusal.
    EXPECT_TRUE(Ends(*log).first().startsWith("error\tError: 425")) << Ends(*log).first().toStdString();
    return;
  }
  ASSERT_EQ(Ends(*log), QStringList{"success\tDirectory Transfer Complete."}) << log->join('\n').toStdString();

  QMap<QString, QByteArray> expected = Snapshot(top);
  expected.remove("sub/empty.txt");  // empty files never reach the server
  const auto onServer = Snapshot(server->Root() + "/top dir");
  EXPECT_TRUE(onServer == expected) << Difference(onServer, expected);
}

TEST_P(RealTransfer, FilesGoUpAndComeBackUnchanged) {
  const QByteArray first = RandomBytes(777777, 3);
  const QByteArray second = RandomBytes(2048 * 3, 4);  // a multiple of the block size
  WriteFile(local.filePath("first file.bin"), first);
  WriteFile(local.filePath("second.bin"), second);

  auto session = NewSession();
  session->SetLocalDirectoryPathName(local.path() + "/");
  session->AddFileName("first file.bin");
  session->AddFileName("second.bin");
  session->StartPutFile();
  ASSERT_TRUE(WaitForEnds(1));
  if (GetParam().mode == Mode::Active) {
    // In active mode the upload batch announces a port that nobody listens on: the
    // server cannot connect, and the batch ends with its refusal.
    EXPECT_TRUE(Ends(*log).first().startsWith("error\tError: 425")) << Ends(*log).first().toStdString();
    return;
  }
  ASSERT_EQ(Ends(*log), QStringList{"success\tFile Transfer Complete."}) << log->join('\n').toStdString();
  EXPECT_TRUE(Snapshot(server->Root()) == (QMap<QString, QByteArray>{{"first file.bin", first}, {"second.bin", second}}));

  // Down again into another folder, on one logged-on session.
  QTemporaryDir back;
  auto downloader = NewSession();
  downloader->SetLocalDirectoryPathName(back.path() + "/");
  downloader->Logon();
  ASSERT_TRUE(WaitForEnds(1));
  ASSERT_EQ(Ends(*log), QStringList{"success\tLogon Complete."});
  downloader->AddFileName("first file.bin");
  downloader->GetSingleFile();
  ASSERT_TRUE(WaitForEnds(2));
  downloader->AddFileName("second.bin");
  downloader->GetSingleFile();
  ASSERT_TRUE(WaitForEnds(3));
  EXPECT_EQ(Ends(*log).mid(1), (QStringList{"success\tFile Transfer Complete.", "success\tFile Transfer Complete."}));
  EXPECT_TRUE(Snapshot(back.path()) == Snapshot(server->Root()));
}

TEST_P(RealTransfer, SingleUploadOnALoggedOnSession) {
  const QByteArray content = RandomBytes(123457, 5);
  WriteFile(local.filePath("single.bin"), content);
  auto session = NewSession();
  session->SetLocalDirectoryPathName(local.path() + "/");
  session->Logon();
  ASSERT_TRUE(WaitForEnds(1));
  session->SendBufferSize = 65536;
  session->AddFileName("single.bin");
  session->PutSingleFile();
  ASSERT_TRUE(WaitForEnds(2));
  if (GetParam().mode == Mode::Active) {
    // PutSingleFile never listens in active mode: the server cannot connect.
    EXPECT_TRUE(Ends(*log).last().startsWith("error\tError: 425")) << Ends(*log).last().toStdString();
    return;
  }
  EXPECT_EQ(Ends(*log).last(), "success\tFile Transfer Complete.");
  EXPECT_TRUE(Snapshot(server->Root()) == (QMap<QString, QByteArray>{{"single.bin", content}}));
  // The session stays usable for the next operation.
  session->Logoff();
  ASSERT_TRUE(WaitForEnds(3));
  EXPECT_EQ(Ends(*log).last(), "success\tLogoff Complete.");
}

TEST_P(RealTransfer, DownloadOfAMissingFileIsRefused) {
  auto session = NewSession();
  session->SetLocalDirectoryPathName(local.path() + "/");
  session->Logon();
  ASSERT_TRUE(WaitForEnds(1));
  session->AddFileName("not-there.bin");
  session->GetSingleFile();
  ASSERT_TRUE(WaitForEnds(2));
  EXPECT_TRUE(Ends(*log).last().startsWith("error\tError: 550")) << Ends(*log).last().toStdString();
}

// A tree of nested folders, files and empty folders comes down whole, byte for byte: on a
// connection of its own, and on a logged-on session. The walk finds its way by comparing
// the server's PWD with the paths it built, so the root is given as the server reports it:
// both servers show the login directory as "/", and "/tree" is then the root's PWD. Each folder
// holds fewer than 20 entries, so that pyftpdlib writes its listing at once: the walk reads the
// last read of a listing only.
TEST_P(RealTransfer, TreeDownloadCopiesTheServersTree) {
  const QString tree = server->Root() + "/tree";
  WriteFile(tree + "/a file.txt", RandomBytes(300000, 5));
  WriteFile(tree + "/sub/one.bin", RandomBytes(5000, 6));
  WriteFile(tree + "/sub/deeper/two words.bin", RandomBytes(70000, 7));
  WriteFile(tree + "/sub/zero.txt", "");
  WriteFile(tree + "/b/c", "c");
  QDir().mkpath(tree + "/empty folder");
  QDir().mkpath(tree + "/sub/empty too");
  for (const bool resident : {false, true}) {
    QTemporaryDir into;
    auto session = NewSession();
    session->SetServerDirectoryPathName("/tree");
    session->SetLocalDirectoryPathName(into.path() + "/");
    if (resident) {
      session->Logon();
      ASSERT_TRUE(WaitForEnds(1));
      session->GetDir();
    } else {
      session->StartGetDir();
    }
    ASSERT_TRUE(WaitForEnds(resident ? 2 : 1));
    EXPECT_EQ(Ends(*log).last(), "success\tDirectory Transfer Complete.") << log->join('\n').toStdString();
    EXPECT_TRUE(session->DirList.isEmpty());
    const auto copied = Snapshot(into.path() + "/tree");
    EXPECT_TRUE(copied == Snapshot(tree)) << Difference(copied, Snapshot(tree));
  }
}

// The download batch, and a listing in each of its four command forms.
TEST_P(RealTransfer, BatchDownloadAndListings) {
  for (const char* name : {"one.bin", "two.bin", ".hidden"}) WriteFile(server->Root() + "/" + name, RandomBytes(9000, name[0]));
  auto session = NewSession();
  session->SetLocalDirectoryPathName(local.path() + "/");
  for (const char* name : {"one.bin", "two.bin"}) session->AddFileName(name);
  session->StartGetFile();
  ASSERT_TRUE(WaitForEnds(1));
  EXPECT_EQ(Ends(*log).last(), "success\tFile Transfer Complete.");
  for (const char* name : {"one.bin", "two.bin"})
    EXPECT_TRUE(ReadFile(local.filePath(name)) == ReadFile(server->Root() + "/" + name)) << name;

  session->Logon();
  ASSERT_TRUE(WaitForEnds(2));
  struct Form {
    bool nameList, hidden;
  };
  for (const Form form : {Form{false, false}, Form{false, true}, Form{true, false}, Form{true, true}}) {
    session->UseNameList = form.nameList;
    session->ShowInvisible = form.hidden;
    const qsizetype before = Ends(*log).size();
    session->GetDirList();
    ASSERT_TRUE(WaitForEnds(before + 1));
    const QString listing = session->DirectoryFileList;
    if (form.nameList && form.hidden && GetParam().server != RealFtpServer::Kind::Vsftpd) {
      // pyftpdlib takes "-a" after NLST for a path.
      EXPECT_TRUE(Ends(*log).last().startsWith("error\tError: 550")) << Ends(*log).last().toStdString();
      continue;
    }
    EXPECT_EQ(Ends(*log).last(), "success\tThe file list has been transferred.");
    EXPECT_TRUE(listing.contains("two.bin")) << listing.toStdString();
    // Full lines parse into files; hidden entries come only when asked for.
    if (!form.nameList) {
      const auto entry = session->ParseDirListLine(listing.split("\r\n").filter("two.bin").value(0));
      EXPECT_TRUE(entry->IsFile);
      EXPECT_EQ(entry->Name, "two.bin");
      EXPECT_EQ(entry->Size, 9000);
    }
    // vsftpd shows hidden entries only when asked for; pyftpdlib always does.
    if (GetParam().server == RealFtpServer::Kind::Vsftpd) {
      EXPECT_EQ(listing.contains(".hidden"), form.hidden);
    }
  }
}

// Deletes and renames by name, and the recursive delete of a tree three levels deep with
// files at every level, on a connection of their own; then DeleteDir on a logged-on session
// in a flat folder (it has no step for a CWD into a subdirectory). Roots are given as the
// server's PWD shows them. Every change is checked in the server's file system, and the
// neighbours of what went must still be there.
TEST_P(RealTransfer, DeletesAndRenamesOnTheServer) {
  const QString root = server->Root();
  for (const char* name : {"gone1", "gone2", "kept", "old1", "old2"}) WriteFile(root + "/" + name, name);
  WriteFile(root + "/tree/f", "f");
  WriteFile(root + "/tree/a/g", "g");
  WriteFile(root + "/tree/a/b/h", "h");
  WriteFile(root + "/tree/a/b/i j", "ij");
  QDir().mkpath(root + "/tree/empty");
  WriteFile(root + "/sibling/s", "s");
  WriteFile(root + "/flat/x", "x");
  WriteFile(root + "/flat/y", "y");
  ASSERT_TRUE(server->HandOverRoot());
  auto session = NewSession();
  const auto run = [&](const std::function<void()>& start, const char* success) {
    const qsizetype before = Ends(*log).size();
    start();
    ASSERT_TRUE(WaitForEnds(before + 1));
    EXPECT_EQ(Ends(*log).last(), QString("success\t") + success) << log->join('\n').toStdString();
  };

  for (const char* name : {"gone1", "gone2"}) session->AddFileName(name);
  run([&] { session->StartDeleteFile(); }, "File has been deleted.");
  for (const char* name : {"new1", "old1", "new2", "old2"}) session->AddFileName(name);
  run([&] { session->StartRenameFile(); }, "File Rename Complete.");
  session->SetServerDirectoryPathName("/tree");
  run([&] { session->StartDeleteDir(); }, "The directory has been deleted.");
  run([&] { session->Logon(); }, "Logon Complete.");
  session->SetServerDirectoryPathName("/flat");
  run([&] { session->ChangeDir(); }, "Directory Change Complete.");
  run([&] { session->DeleteDir(); }, "The directory has been deleted.");

  const QMap<QString, QByteArray> expected = {
      {"kept", "kept"}, {"new1", "old1"}, {"new2", "old2"}, {"sibling/", ""}, {"sibling/s", "s"}};
  const auto left = Snapshot(root);
  EXPECT_TRUE(left == expected) << Difference(left, expected);
}

INSTANTIATE_TEST_SUITE_P(Servers, RealTransfer,
                         ::testing::Values(Case{RealFtpServer::Kind::Pyftpdlib, Mode::Passive},
                                           Case{RealFtpServer::Kind::Pyftpdlib, Mode::Active},
                                           Case{RealFtpServer::Kind::Vsftpd, Mode::Passive},
                                           Case{RealFtpServer::Kind::Vsftpd, Mode::Active}),
                         CaseName);

}  // namespace
}  // namespace velmar::test
