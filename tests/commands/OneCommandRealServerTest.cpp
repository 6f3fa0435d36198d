// One logged-on session doing a realistic job against real servers, with the server's file
// system checked after each step that changes it; restarted and aborted transfers.
#include "session/FTPSessionClass.h"
#include "support/RealFtpServer.h"
#include "support/RecordingStatus.h"
#include "support/TestEventLoop.h"
#include "support/TestFiles.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

using S = FTPSessionClass;
using Kind = RealFtpServer::Kind;

class RealOneCommand : public ::testing::TestWithParam<Kind> {
protected:
  void SetUp() override {
    server = std::make_unique<RealFtpServer>(GetParam());
    if (!server->Started()) GTEST_SKIP() << server->SkipReason().toStdString();
    ASSERT_TRUE(local.isValid());
    session->SetLoginInfo("127.0.0.1", server->User(), server->Password());
    session->CommandPort = server->Port();
    session->SetLocalDirectoryPathName(local.path() + "/");
    session->SetDataPortRange(32701, 32900);
    ASSERT_EQ(Run([](S& s) { s.Logon(); }), "success\tLogon Complete.");
  }

  // Runs one operation and returns its end report (or "" when none came in time).
  QString Run(const std::function<void(S&)>& operation, int timeoutMs = 20000) {
    const qsizetype before = RecordingStatus::Ends(*log).size();
    operation(*session);
    RunUntil([&] { return RecordingStatus::Ends(*log).size() > before; }, timeoutMs);
    const QStringList ends = RecordingStatus::Ends(*log);
    return ends.size() > before ? ends.at(before) : QString();
  }
  // Lets late replies of an interrupted operation arrive: until the log is quiet for
  // 300 ms, at most 5 s.
  void Settle() {
    for (int round = 0; round < 50; ++round) {
      const qsizetype size = log->size();
      RunFor(300);
      if (log->size() == size) return;
    }
  }
  QString OnServer(const QString& relative) const { return server->Root() + "/" + relative; }
  // The server has said that the transfer runs: an abort before that would take the 150 or
  // 125 still on its way for the answer to ABOR.
  bool TransferRunning() const {
    return !log->filter(QRegularExpression("^response\t1(25|50) ")).isEmpty();
  }

  std::unique_ptr<RealFtpServer> server;
  QTemporaryDir local;
  std::shared_ptr<S> session = std::make_shared<S>();
  std::shared_ptr<QStringList> log = RecordingStatus::Attach(*session);
};

std::string KindName(const ::testing::TestParamInfo<Kind>& info) {
  return info.param == Kind::Vsftpd ? "vsftpd" : "pyftpdlib";
}

TEST_P(RealOneCommand, ALoggedOnSessionDoesAWholeJob) {
  const QByteArray content = RandomBytes(70000, 3);
  WriteFile(local.filePath("a.txt"), content);
  auto inDir = [](const QString& path, void (S::*operation)()) {
    return [=](S& s) {
      s.SetServerDirectoryPathName(path);
      (s.*operation)();
    };
  };
  auto withNames = [](const QStringList& names, void (S::*operation)()) {
    return [=](S& s) {
      for (const QString& name : names) s.AddFileName(name);
      (s.*operation)();
    };
  };

  EXPECT_EQ(Run(inDir("job dir", &S::MakeDir)), "success\tDirectory Created.");
  EXPECT_TRUE(QFileInfo(OnServer("job dir")).isDir());
  EXPECT_EQ(Run(inDir("job dir", &S::ChangeDir)), "success\tDirectory Change Complete.");
  EXPECT_EQ(Run(inDir("", &S::GetWorkingDir)), "success\tThe working directory has been transferred.");
  EXPECT_TRUE(log->filter("response\t257 ").join('\n').contains("/job dir\"")) << log->join('\n').toStdString();

  EXPECT_EQ(Run(withNames({"a.txt"}, &S::PutSingleFile)), "success\tFile Transfer Complete.");
  EXPECT_TRUE(ReadFile(OnServer("job dir/a.txt")) == content);
  EXPECT_EQ(Run(withNames({"b.txt", "a.txt"}, &S::RenameSingleFile)), "success\tFile Rename Complete.");
  EXPECT_FALSE(QFileInfo::exists(OnServer("job dir/a.txt")));
  EXPECT_TRUE(ReadFile(OnServer("job dir/b.txt")) == content);
  session->ChmodMask = "600";
  EXPECT_EQ(Run(withNames({"b.txt"}, &S::ChmodSingleFile)), "success\tChmod Command Complete.");
  const auto groupAndOthers = QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther;
  EXPECT_FALSE(QFileInfo(OnServer("job dir/b.txt")).permissions() & groupAndOthers);

  EXPECT_EQ(Run(inDir("", &S::GetStatus)), "success\tSystem information received.");
  EXPECT_EQ(Run(inDir("", &S::GetSystemInfo)), "success\tSystem information received.");
  EXPECT_TRUE(log->contains("response\t215 UNIX Type: L8")) << log->join('\n').toStdString();
  EXPECT_EQ(Run([](S& s) { s.SITECommand("CHMOD 644 b.txt"); }), "success\tFTP SITE command complete");
  EXPECT_TRUE(QFileInfo(OnServer("job dir/b.txt")).permissions() & QFile::ReadOther);
  EXPECT_EQ(Run([](S& s) { s.DirectCommand("MDTM b.txt"); }), "success\tFTP Direct Command complete");
  // A refusal in the middle ends that operation only.
  EXPECT_TRUE(Run([](S& s) { s.DirectCommand("RNFR no-such-file"); }).startsWith("error\tError: 550"));

  EXPECT_EQ(Run(withNames({"b.txt"}, &S::DeleteSingleFile)), "success\tFile has been deleted.");
  EXPECT_FALSE(QFileInfo::exists(OnServer("job dir/b.txt")));
  EXPECT_EQ(Run(inDir("", &S::ParentDir)), "success\tDirectory Change Complete.");
  EXPECT_EQ(Run(inDir("job dir", &S::RemoveDir)), "success\tEmpty Directory Removed.");
  EXPECT_FALSE(QFileInfo::exists(OnServer("job dir")));
  EXPECT_EQ(Run([](S& s) { s.Logoff(); }), "success\tLogoff Complete.");
}

// A transfer broken off midway and restarted ends in a copy equal to the source, in both
// directions; the upload restarts in passive and in active mode. vsftpd only: pyftpdlib
// opens the data connection before RETR and answers 125, which the restarted download
// refuses; it drops a data connection that the client has finished with before STOR (the
// restarted upload sends from the offset as soon as it knows it); and it connects the moment
// it reads PORT, before the restarted upload listens.
using RealRestart = RealOneCommand;

TEST_P(RealRestart, RestartedTransfersCompleteTheCopy) {
  const QByteArray content = RandomBytes(300000, 4);
  WriteFile(OnServer("down.bin"), content);
  WriteFile(local.filePath("down.bin"), content.left(100000));
  session->AddFileName("down.bin");
  EXPECT_EQ(Run([](S& s) { s.RestartGetSingleFile(); }), "success\tFile Transfer Complete.");
  EXPECT_TRUE(ReadFile(local.filePath("down.bin")) == content);

  // The broken-off copy goes up first, from a folder of its own: the server's file then
  // belongs to the FTP user, as a real interrupted upload would leave it.
  QTemporaryDir partial;
  for (const bool passive : {true, false}) {
    const QString name = passive ? "resumed-pasv.bin" : "resumed-port.bin";
    WriteFile(partial.filePath(name), content.left(passive ? 123457 : 1));
    WriteFile(local.filePath(name), content);
    session->SetLocalDirectoryPathName(partial.path() + "/");
    session->AddFileName(name);
    ASSERT_EQ(Run([](S& s) { s.PutSingleFile(); }), "success\tFile Transfer Complete.");
    session->PassiveMode = passive;
    session->SetLocalDirectoryPathName(local.path() + "/");
    session->AddFileName(name);
    EXPECT_EQ(Run([](S& s) { s.RestartPutSingleFile(); }), "success\tFile Transfer Complete.");
    EXPECT_TRUE(ReadFile(OnServer(name)) == content) << name.toStdString();
    session->PassiveMode = true;  // PutSingleFile never listens in active mode
  }
}

INSTANTIATE_TEST_SUITE_P(Servers, RealRestart, ::testing::Values(Kind::Vsftpd), KindName);

// An abort stops a running upload at the next block: the server keeps a shorter file, and
// the session takes the next operation.
TEST_P(RealOneCommand, AbortStopsARunningUpload) {
  const QByteArray content = RandomBytes(16 * 1024 * 1024, 5);
  WriteFile(local.filePath("big.bin"), content);
  session->AddFileName("big.bin");
  session->PutSingleFile();
  ASSERT_TRUE(RunUntil([&] { return log->contains("progress\t1048576") && TransferRunning(); }, 20000));
  session->AbortTransfer();
  Settle();
  EXPECT_TRUE(log->contains("response\tABOR"));
  const QByteArray stored = ReadFile(OnServer("big.bin"));
  EXPECT_LT(stored.size(), content.size());
  EXPECT_TRUE(content.startsWith(stored));
  EXPECT_EQ(Run([](S& s) { s.GetWorkingDir(); }), "success\tThe working directory has been transferred.");
}

INSTANTIATE_TEST_SUITE_P(Servers, RealOneCommand, ::testing::Values(Kind::Pyftpdlib, Kind::Vsftpd), KindName);

// pyftpdlib reads the control connection during a transfer, so a plain ABOR line stops a
// running download. (vsftpd looks for ABOR during a transfer only after urgent data, which
// this client does not send.)
using RealAbortDownload = RealOneCommand;

TEST_P(RealAbortDownload, AbortStopsARunningDownload) {
  const qsizetype size = 64 * 1024 * 1024;
  WriteFile(OnServer("big.bin"), QByteArray(size, 'd'));
  session->AddFileName("big.bin");
  session->GetSingleFile();
  ASSERT_TRUE(RunUntil([&] { return QFileInfo(local.filePath("big.bin")).size() > 1048576 && TransferRunning(); }, 20000));
  session->AbortTransfer();
  Settle();
  // The server ends the transfer with 426 (an error); its 226 names no "Abort" and passes
  // quietly. The client reads no more, so the local file stays short.
  const QStringList ends = RecordingStatus::Ends(*log).mid(1);
  EXPECT_TRUE(log->contains("response\t226 ABOR command successful.")) << log->join('\n').toStdString();
  EXPECT_EQ(ends.filter(QRegularExpression("^error\tError: 426 ")).size(), 1) << ends.join('\n').toStdString();
  for (const QString& end : ends)
    EXPECT_TRUE(end.startsWith("error\tError: 426 ") || end.startsWith("error\tError while sending the file: "))
        << end.toStdString();
  EXPECT_LT(QFileInfo(local.filePath("big.bin")).size(), size);
  EXPECT_EQ(Run([](S& s) { s.GetWorkingDir(); }), "success\tThe working directory has been transferred.");
}

INSTANTIATE_TEST_SUITE_P(Servers, RealAbortDownload, ::testing::Values(Kind::Pyftpdlib), KindName);

}  // namespace
}  // namespace velmar::test
