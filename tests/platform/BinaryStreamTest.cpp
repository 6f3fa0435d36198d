// Reading a file in blocks through the stream's read-ahead: positions, the end, seeks and
// a file that shrinks under the stream must all agree with the file itself.
#include "platform/BinaryStream.h"
#include "platform/FolderItem.h"
#include "support/TestFiles.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

TEST(BinaryStreamReading, BlocksOfAnySizeAddUpToTheFile) {
  QTemporaryDir dir;
  const QByteArray content = RandomBytes(3 * 65536 + 1234, 11);
  WriteFile(dir.filePath("f"), content);
  for (qint64 block : {1, 2048, 4095, 65536, 65537, 1 << 20}) {
    auto stream = GetFolderItem(dir.filePath("f"))->OpenAsBinaryFile(false);
    ASSERT_TRUE(stream);
    QByteArray read;
    int rounds = 0;
    while (!stream->EOF() && rounds++ < 1000000) {
      EXPECT_EQ(stream->Position(), read.size());
      const QByteArray piece = stream->Read(block);
      ASSERT_FALSE(piece.isEmpty());
      read += piece;
    }
    EXPECT_TRUE(read == content) << "block " << block;
    EXPECT_TRUE(stream->Read(block).isEmpty());
    EXPECT_EQ(stream->Length(), content.size());
  }
}

TEST(BinaryStreamReading, SeeksDropWhatWasReadAhead) {
  QTemporaryDir dir;
  const QByteArray content = RandomBytes(200000, 12);
  WriteFile(dir.filePath("f"), content);
  auto stream = GetFolderItem(dir.filePath("f"))->OpenAsBinaryFile(false);
  ASSERT_TRUE(stream->Read(100) == content.left(100));
  ASSERT_TRUE(stream->SetPosition(150000));
  EXPECT_EQ(stream->Position(), 150000);
  EXPECT_TRUE(stream->Read(2048) == content.mid(150000, 2048));
  ASSERT_TRUE(stream->SetPosition(10));
  EXPECT_TRUE(stream->Read(5) == content.mid(10, 5));
  ASSERT_TRUE(stream->SetPosition(content.size()));
  EXPECT_TRUE(stream->EOF());
}

TEST(BinaryStreamReading, AFileThatShrinksEndsWhereItNowEnds) {
  QTemporaryDir dir;
  WriteFile(dir.filePath("f"), RandomBytes(300000, 13));
  auto stream = GetFolderItem(dir.filePath("f"))->OpenAsBinaryFile(false);
  ASSERT_EQ(stream->Read(1000).size(), 1000);
  ASSERT_TRUE(QFile::resize(dir.filePath("f"), 100000));
  QByteArray rest;
  for (int i = 0; i < 1000 && !stream->EOF(); ++i) {
    const QByteArray piece = stream->Read(4096);
    if (piece.isEmpty()) break;
    rest += piece;
  }
  // The stream learns the new length at its next short read and stops there.
  EXPECT_EQ(1000 + rest.size(), 100000);
  EXPECT_TRUE(stream->EOF());
  EXPECT_TRUE(stream->Read(4096).isEmpty());
}

}  // namespace
}  // namespace velmar::test
