// Text files read and written line by line, with their encodings.
#include "platform/FolderItem.h"
#include "platform/TextInputStream.h"
#include "platform/TextOutputStream.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

class TextStreamsTest : public ::testing::Test {
protected:
  void SetUp() override { ASSERT_TRUE(temp_.isValid()); }

  std::shared_ptr<FolderItem> Item(const QString& name) const { return GetFolderItem(temp_.filePath(name)); }

  void WriteFile(const QString& name, const QByteArray& content) const {
    QFile file(temp_.filePath(name));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    ASSERT_EQ(file.write(content), content.size());
  }

  QByteArray ReadFile(const QString& name) const {
    QFile file(temp_.filePath(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
  }

  // Every line until EOF, at most `limit`.
  static QStringList Lines(TextInputStream& in, int limit = 100) {
    QStringList lines;
    for (int i = 0; i < limit && !in.EOF(); ++i) lines << in.ReadLine();
    return lines;
  }

  QTemporaryDir temp_;
};

const QString kUmlauts = QString::fromUtf8("Gr\xC3\xBC\xC3\x9F" "e");  // "Grüße"

TEST_F(TextStreamsTest, WrittenLinesReadBack) {
  auto out = Item(QStringLiteral("t.txt"))->CreateTextFile();
  ASSERT_NE(out, nullptr);
  EXPECT_TRUE(out->WriteLine(QStringLiteral("first")));
  EXPECT_TRUE(out->Write(QStringLiteral("sec")));
  EXPECT_TRUE(out->WriteLine(QStringLiteral("ond")));
  EXPECT_TRUE(out->WriteLine(QString()));
  EXPECT_TRUE(out->WriteLine(kUmlauts));
  EXPECT_TRUE(out->Close());
  EXPECT_EQ(ReadFile(QStringLiteral("t.txt")), QByteArray("first\nsecond\n\nGr\xC3\xBC\xC3\x9F" "e\n"));

  auto in = Item(QStringLiteral("t.txt"))->OpenAsTextFile();
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(in->Encoding, TextEncoding::UTF8());
  EXPECT_EQ(Lines(*in), (QStringList{QStringLiteral("first"), QStringLiteral("second"), QString(), kUmlauts}));
  EXPECT_TRUE(in->EOF());
  EXPECT_EQ(in->ReadLine(), QString());
}

TEST_F(TextStreamsTest, LineEndsAndTheLastLine) {
  WriteFile(QStringLiteral("t.txt"), "dos\r\nunix\n\r\nmac\rstays\nlast");
  auto in = Item(QStringLiteral("t.txt"))->OpenAsTextFile();
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(Lines(*in), (QStringList{QStringLiteral("dos"), QStringLiteral("unix"), QString(),
                                     QStringLiteral("mac\rstays"), QStringLiteral("last")}));

  WriteFile(QStringLiteral("empty.txt"), "");
  auto empty = Item(QStringLiteral("empty.txt"))->OpenAsTextFile();
  ASSERT_NE(empty, nullptr);
  EXPECT_TRUE(empty->EOF());
  EXPECT_EQ(empty->ReadLine(), QString());
  EXPECT_EQ(empty->ReadAll(), QString());
}

TEST_F(TextStreamsTest, ReadAllGivesTheRest) {
  WriteFile(QStringLiteral("t.txt"), "one\r\ntwo\nthree");
  auto in = Item(QStringLiteral("t.txt"))->OpenAsTextFile();
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(in->ReadLine(), QStringLiteral("one"));
  EXPECT_EQ(in->ReadAll(), QStringLiteral("two\nthree"));
  EXPECT_TRUE(in->EOF());
  EXPECT_EQ(in->ReadAll(), QString());
}

TEST_F(TextStreamsTest, ACharacterSplitBetweenReadBlocksComesOutWhole) {
  // The stream reads 64 KiB at a time; "ü" (C3 BC) straddles the first block's end.
  const QByteArray head(65535, 'a');
  WriteFile(QStringLiteral("t.txt"), head + "\xC3\xBC" "b\nnext\n");
  auto in = Item(QStringLiteral("t.txt"))->OpenAsTextFile();
  ASSERT_NE(in, nullptr);
  const QString first = in->ReadLine();
  EXPECT_EQ(first.size(), 65537);
  EXPECT_EQ(first.right(2), QString::fromUtf8("\xC3\xBC" "b"));
  EXPECT_FALSE(first.contains(QChar(0xFFFD)));
  EXPECT_EQ(in->ReadLine(), QStringLiteral("next"));
  EXPECT_TRUE(in->EOF());
}

TEST_F(TextStreamsTest, ACrLfSplitBetweenReadBlocksIsOneLineEnd) {
  const QByteArray head(65535, 'a');
  WriteFile(QStringLiteral("t.txt"), head + "\r\nb");
  auto in = Item(QStringLiteral("t.txt"))->OpenAsTextFile();
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(in->ReadLine(), QString::fromLatin1(head));
  EXPECT_EQ(in->ReadLine(), QStringLiteral("b"));
  EXPECT_TRUE(in->EOF());
}

TEST_F(TextStreamsTest, Latin1BothWays) {
  auto out = Item(QStringLiteral("t.txt"))->CreateTextFile();
  ASSERT_NE(out, nullptr);
  out->Encoding = TextEncoding::ISOLatin1();
  EXPECT_TRUE(out->WriteLine(kUmlauts));
  EXPECT_TRUE(out->Close());
  EXPECT_EQ(ReadFile(QStringLiteral("t.txt")), QByteArray("Gr\xFC\xDF" "e\n"));

  auto in = Item(QStringLiteral("t.txt"))->OpenAsTextFile();
  ASSERT_NE(in, nullptr);
  in->Encoding = TextEncoding::ISOLatin1();
  EXPECT_EQ(in->ReadLine(), kUmlauts);

  // Read as UTF-8, the same bytes are not valid.
  auto utf8 = Item(QStringLiteral("t.txt"))->OpenAsTextFile();
  ASSERT_NE(utf8, nullptr);
  EXPECT_NE(utf8->ReadLine(), kUmlauts);
}

TEST_F(TextStreamsTest, AFailedWriteIsReportedAtTheLatestOnClose) {
  // /dev/full takes no byte, as a full disk; small writes may wait in the buffer until Close.
  auto full = GetFolderItem(QStringLiteral("/dev/full"));
  if (!full->Exists()) GTEST_SKIP() << "no /dev/full on this machine";
  auto out = full->CreateTextFile();
  ASSERT_NE(out, nullptr);
  const bool wrote = out->WriteLine(QStringLiteral("lost"));
  const bool closed = out->Close();
  EXPECT_FALSE(wrote && closed);
  EXPECT_FALSE(out->LastError().isEmpty());
}

TEST_F(TextStreamsTest, ClosedStreamsDoNothing) {
  auto out = Item(QStringLiteral("t.txt"))->CreateTextFile();
  ASSERT_NE(out, nullptr);
  EXPECT_TRUE(out->WriteLine(QStringLiteral("kept")));
  EXPECT_TRUE(out->Close());
  EXPECT_FALSE(out->WriteLine(QStringLiteral("lost")));
  EXPECT_FALSE(out->LastError().isEmpty());
  EXPECT_TRUE(out->Close());
  EXPECT_EQ(ReadFile(QStringLiteral("t.txt")), QByteArray("kept\n"));

  auto in = Item(QStringLiteral("t.txt"))->OpenAsTextFile();
  ASSERT_NE(in, nullptr);
  in->Close();
  EXPECT_TRUE(in->EOF());
  EXPECT_EQ(in->ReadLine(), QString());
  EXPECT_EQ(in->ReadAll(), QString());
}

}  // namespace
}  // namespace velmar::test
