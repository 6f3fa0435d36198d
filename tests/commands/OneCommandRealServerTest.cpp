// What a scripted server cannot show: the servers' own replies, timing and files. A short job
// on one logged-on session, with the server's files checked after each step that changes them;
// restarted and aborted transfers as the servers really answer them.
#include "support/RealSession.h"
#include "support/TestFiles.h"

#include <QFileInfo>

namespace velmar::test {
namespace {

using RealOneCommand = RealSession;
const QString kPwd = "success\tThe working directory has been transferred.";

TEST_P(RealOneCommand, ALoggedOnSessionDoesAWholeJob) {
  const QByteArray content = RandomBytes(70000, 3);
  WriteFile(local.filePath("a.txt"), content);

  EXPECT_EQ(Run(&S::MakeDir, "job dir"), "success\tDirectory Created.");
  EXPECT_TRUE(QFileInfo(OnServer("job dir")).isDir());
  EXPECT_EQ(Run(&S::ChangeDir, "job dir"), "success\tDirectory Change Complete.");
  EXPECT_EQ(Run(&S::GetWorkingDir), kPwd);
  EXPECT_TRUE(log->filter("response\t257 ").join('\n').contains("/job dir\"")) << Log();

  // A status query's unused data connection is dropped by pyftpdlib at the next PASV.
  EXPECT_EQ(Run(&S::GetStatus), "success\tSystem information received.");
  EXPECT_EQ(Run(&S::PutSingleFile, {}, {"a.txt"}), kFilesDone);
  EXPECT_TRUE(ReadFile(OnServer("job dir/a.txt")) == content);
  EXPECT_EQ(Run(&S::RenameSingleFile, {}, {"b.txt", "a.txt"}), "success\tFile Rename Complete.");
  EXPECT_FALSE(QFileInfo::exists(OnServer("job dir/a.txt")));
  EXPECT_TRUE(ReadFile(OnServer("job dir/b.txt")) == content);
  EXPECT_EQ(Run(&S::DeleteSingleFile, {}, {"b.txt"}), "success\tFile has been deleted.");
  EXPECT_FALSE(QFileInfo::exists(OnServer("job dir/b.txt")));
  EXPECT_EQ(Run(&S::Logoff), "success\tLogoff Complete.");
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
  EXPECT_EQ(Run(&S::RestartGetSingleFile, {}, {"down.bin"}), kFilesDone);
  EXPECT_TRUE(ReadFile(local.filePath("down.bin")) == content);

  // The broken-off copy goes up first, from a folder of its own: the server's file then
  // belongs to the FTP user, as a real interrupted upload would leave it.
  QTemporaryDir partial;
  for (const bool passive : {true, false}) {
    const QString name = passive ? "resumed-pasv.bin" : "resumed-port.bin";
    WriteFile(partial.filePath(name), content.left(passive ? 123457 : 1));
    WriteFile(local.filePath(name), content);
    session->SetLocalDirectoryPathName(partial.path() + "/");
    ASSERT_EQ(Run(&S::PutSingleFile, {}, {name}), kFilesDone);
    session->PassiveMode = passive;
    session->SetLocalDirectoryPathName(local.path() + "/");
    EXPECT_EQ(Run(&S::RestartPutSingleFile, {}, {name}), kFilesDone);
    EXPECT_TRUE(ReadFile(OnServer(name)) == content) << name.toStdString();
    session->PassiveMode = true;  // PutSingleFile never listens in active mode
  }
}

INSTANTIATE_TEST_SUITE_P(Servers, RealRestart, ::testing::Values(Kind::Vsftpd), ServerName);

// An abort stops a running transfer once the server has said that it runs (a 150 or 125
// still on its way would be taken for the answer to ABOR): the copy stays shorter, and the
// session takes the next operation. Uploads on both servers; downloads on pyftpdlib only,
// which reads the control connection during a transfer (vsftpd looks for ABOR then only
// after urgent data, which this client does not send).
TEST_P(RealOneCommand, AbortStopsARunningTransfer) {
  for (const bool download : {false, true}) {
    if (download && GetParam() == Kind::Vsftpd) continue;
    const QString source = download ? OnServer("down.bin") : local.filePath("up.bin");
    const QString target = download ? local.filePath("down.bin") : OnServer("up.bin");
    const QByteArray content = download ? QByteArray(64 * 1024 * 1024, 'd') : RandomBytes(16 * 1024 * 1024, 5);
    WriteFile(source, content);
    const qsizetype before = log->size();
    const QRegularExpression told("^response\t1(25|50) ");
    auto running = [&] { return QFileInfo(target).size() > 1048576 && !log->mid(before).filter(told).isEmpty(); };
    session->AddFileName(QFileInfo(source).fileName());
    download ? session->GetSingleFile() : session->PutSingleFile();
    ASSERT_TRUE(RunUntil(running, 20000));
    session->AbortTransfer();
    // Late replies of the interrupted transfer come until the log is quiet for 300 ms (5 s at most).
    for (qsizetype round = 0, size = -1; round < 50 && size != log->size(); ++round) {
      size = log->size();
      RunFor(300);
    }
    const QStringList reports = log->mid(before);
    EXPECT_TRUE(reports.contains("response\tABOR"));
    const QByteArray copy = ReadFile(target);
    EXPECT_TRUE(copy.size() < content.size() && content.startsWith(copy)) << copy.size();
    // pyftpdlib ends a download with 426 (an error); its 226 names no "Abort" and passes quietly.
    const QStringList ends = RecordingStatus::Ends(reports);
    if (download) {
      EXPECT_TRUE(reports.contains("response\t226 ABOR command successful.")) << ends.join('\n').toStdString();
      EXPECT_EQ(ends.filter(QRegularExpression("^error\tError: 426 ")).size(), 1) << ends.join('\n').toStdString();
      EXPECT_EQ(ends.filter(QRegularExpression("^error\tError(: 426 | while sending the file: )")), ends);
    }
    EXPECT_EQ(Run(&S::GetWorkingDir), kPwd);
  }
}

INSTANTIATE_TEST_SUITE_P(Servers, RealOneCommand, ::testing::Values(Kind::Pyftpdlib, Kind::Vsftpd), ServerName);

}  // namespace
}  // namespace velmar::test
