// A file past 2 GiB up and down a real server: the 32-bit progress counters wrap, the
// bytes must not. Slow (minutes under sanitizers), so it carries the label "large".
#include "support/RealSession.h"

#include <QFileInfo>

namespace velmar::test {
namespace {

QByteArray HashOf(const QString& path) {
  QFile file(path);
  QCryptographicHash hash(QCryptographicHash::Sha256);
  return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result() : QByteArray();
}

using LargeTransfer = RealTransfer;

TEST_P(LargeTransfer, MoreThanTwoGibibytesGoUpAndDownExactly) {
  const qint64 size = (qint64(2) << 30) + 2 * 1024 * 1024 + 12345;
  const QString path = local.filePath("big.bin"), onServer = server->Root() + "/big.bin";
  {
    // Sparse, with distinct bytes at the start, across 2^31 and at the end.
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.resize(size));
    for (qint64 at : {qint64(0), (qint64(1) << 31) - 4096, size - 65536})
      ASSERT_TRUE(file.seek(at) && file.write(RandomBytes(65536, static_cast<quint32>(at))) == 65536);
  }
  const QByteArray hash = HashOf(path);
  session->SendBufferSize = 1 << 20;
  ASSERT_EQ(Run(&S::Logon), kLoggedOn);
  session->AddFileName("big.bin");
  ASSERT_EQ(Run(&S::PutSingleFile, 300000), kFilesDone);
  EXPECT_EQ(QFileInfo(onServer).size(), size);
  EXPECT_EQ(HashOf(onServer), hash);
  // The last progress report is the size cut to 32 bits.
  EXPECT_EQ(RecordingStatus::Only(*log, {"progress"}).last(),
            QString("progress\t%1").arg(static_cast<qint32>(static_cast<quint32>(size))));

  QFile::remove(path);
  session->AddFileName("big.bin");
  ASSERT_EQ(Run(&S::GetSingleFile, 300000), kFilesDone);
  EXPECT_EQ(QFileInfo(path).size(), size);
  EXPECT_EQ(HashOf(path), hash);
}

INSTANTIATE_TEST_SUITE_P(Servers, LargeTransfer, ::testing::Values(std::tuple(Kind::Vsftpd, false)), TransferName);

}  // namespace
}  // namespace velmar::test
