// A file past 2 GiB up and down a real server: the 32-bit progress counters wrap, the
// bytes must not. Slow (minutes under sanitizers), so it carries the label "large".
#include "session/FTPSessionClass.h"
#include "support/RealFtpServer.h"
#include "support/RecordingStatus.h"
#include "support/TestEventLoop.h"
#include "support/TestFiles.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

constexpr auto Ends = &RecordingStatus::Ends;


TEST(LargeTransfer, MoreThanTwoGibibytesGoUpAndDownExactly) {
  RealFtpServer server(RealFtpServer::Kind::Vsftpd);
  if (!server.Started()) GTEST_SKIP() << server.SkipReason().toStdString();
  QTemporaryDir local;
  const qint64 size = (qint64(2) << 30) + 2 * 1024 * 1024 + 12345;
  {
    // Sparse, with distinct bytes at the start, across 2^31 and at the end.
    QFile file(local.filePath("big.bin"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_TRUE(file.resize(size));
    for (qint64 at : {qint64(0), (qint64(1) << 31) - 4096, size - 65536}) {
      file.seek(at);
      file.write(RandomBytes(65536, static_cast<quint32>(at)));
    }
  }
  auto hashOf = [](const QString& path) {
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result() : QByteArray();
  };
  const QByteArray localHash = hashOf(local.filePath("big.bin"));

  auto session = std::make_shared<FTPSessionClass>();
  auto log = RecordingStatus::Attach(*session);
  session->SetLoginInfo("127.0.0.1", server.User(), server.Password());
  session->CommandPort = server.Port();
  session->SetLocalDirectoryPathName(local.path() + "/");
  session->SendBufferSize = 1 << 20;
  session->Logon();
  ASSERT_TRUE(RunUntil([&] { return Ends(*log).size() == 1; }));
  session->AddFileName("big.bin");
  session->PutSingleFile();
  ASSERT_TRUE(RunUntil([&] { return Ends(*log).size() == 2; }, 300000));
  ASSERT_EQ(Ends(*log).last(), "success\tFile Transfer Complete.");
  EXPECT_EQ(QFileInfo(server.Root() + "/big.bin").size(), size);
  EXPECT_EQ(hashOf(server.Root() + "/big.bin"), localHash);
  // The last progress report is the size cut to 32 bits.
  EXPECT_EQ(RecordingStatus::Only(*log, {"progress"}).last(),
            QString("progress\t%1").arg(static_cast<qint32>(static_cast<quint32>(size))));

  QFile::remove(local.filePath("big.bin"));
  session->AddFileName("big.bin");
  session->GetSingleFile();
  ASSERT_TRUE(RunUntil([&] { return Ends(*log).size() == 3; }, 300000));
  ASSERT_EQ(Ends(*log).last(), "success\tFile Transfer Complete.");
  EXPECT_EQ(QFileInfo(local.filePath("big.bin")).size(), size);
  EXPECT_EQ(hashOf(local.filePath("big.bin")), localHash);
}

}  // namespace
}  // namespace velmar::test
