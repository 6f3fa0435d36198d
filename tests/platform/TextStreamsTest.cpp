// Text files read and written line by line, with their encodings.
#include "platform/FolderItem.h"
#include "platform/TextInputStream.h"
#include "platform/TextOutputStream.h"
#include "support/TestFiles.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

class TextStreamsTest : public ::testing::Test {
protected:
  void SetUp() override { ASSERT_TRUE(temp_.isValid()); }

  std::shared_ptr<FolderItem> Item(const QString& name) const { return GetFolderItem(temp_.filePath(name)); }
  void Write(const QString& name, const QByteArray& content) const { WriteFile(temp_.filePath(name), content); }
  QByteArray Read(const QString& name) const { return ReadFile(temp_.filePath(name)); }
  // The stream of a file written with the given bytes.
  std::shared_ptr<TextInputStream> Open(const QByteArray& content) const {
    Write("in.txt", content);
    return Item("in.txt")->OpenAsTextFile();
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

TEST_F(TextStreamsTest, WrittenLinesReadBackAndClosedStreamsDoNothing) {
  auto out = Item("t.txt")->CreateTextFile();
  ASSERT_NE(out, nullptr);
  EXPECT_TRUE(out->WriteLine("first"));
  EXPECT_TRUE(out->Write("sec"));
  EXPECT_TRUE(out->WriteLine("ond"));
  EXPECT_TRUE(out->WriteLine(QString()));
  EXPECT_TRUE(out->WriteLine(kUmlauts));
  EXPECT_TRUE(out->Close());
  EXPECT_FALSE(out->WriteLine("lost"));
  EXPECT_FALSE(out->LastError().isEmpty());
  EXPECT_TRUE(out->Close());  // a second close is harmless
  EXPECT_EQ(Read("t.txt"), QByteArray("first\nsecond\n\nGr\xC3\xBC\xC3\x9F" "e\n"));

  auto in = Item("t.txt")->OpenAsTextFile();
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(in->Encoding, TextEncoding::UTF8());
  EXPECT_EQ(Lines(*in), (QStringList{"first", "second", QString(), kUmlauts}));
  EXPECT_TRUE(in->EOF());
  EXPECT_EQ(in->ReadLine(), QString());

  in = Item("t.txt")->OpenAsTextFile();
  ASSERT_NE(in, nullptr);
  in->Close();
  EXPECT_TRUE(in->EOF());
  EXPECT_EQ(in->ReadLine(), QString());
  EXPECT_EQ(in->ReadAll(), QString());
}

TEST_F(TextStreamsTest, LineEndsTheLastLineAndReadAll) {
  auto in = Open("dos\r\nunix\n\r\nmac\rstays\nlast");
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(Lines(*in), (QStringList{"dos", "unix", QString(), "mac\rstays", "last"}));

  in = Open("one\r\ntwo\nthree");
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(in->ReadLine(), "one");
  EXPECT_EQ(in->ReadAll(), "two\nthree");
  EXPECT_TRUE(in->EOF());
  EXPECT_EQ(in->ReadAll(), QString());

  in = Open("");
  ASSERT_NE(in, nullptr);
  EXPECT_TRUE(in->EOF());
  EXPECT_EQ(in->ReadLine(), QString());
  EXPECT_EQ(in->ReadAll(), QString());
}

TEST_F(TextStreamsTest, ACharacterOrACrLfSplitBetweenReadBlocksComesOutWhole) {
  // The stream reads 64 KiB at a time; "ü" (C3 BC), then "\r\n", straddle the first block's end.
  const QByteArray head(65535, 'a');
  auto in = Open(head + "\xC3\xBC" "b\nnext\n");
  ASSERT_NE(in, nullptr);
  const QString first = in->ReadLine();
  EXPECT_EQ(first.size(), 65537);
  EXPECT_EQ(first.right(2), QString::fromUtf8("\xC3\xBC" "b"));
  EXPECT_FALSE(first.contains(QChar(0xFFFD)));
  EXPECT_EQ(Lines(*in), QStringList{"next"});

  in = Open(head + "\r\nb");
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(Lines(*in), (QStringList{QString::fromLatin1(head), "b"}));
}

TEST_F(TextStreamsTest, Latin1BothWays) {
  auto out = Item("t.txt")->CreateTextFile();
  ASSERT_NE(out, nullptr);
  out->Encoding = TextEncoding::ISOLatin1();
  EXPECT_TRUE(out->WriteLine(kUmlauts));
  EXPECT_TRUE(out->Close());
  EXPECT_EQ(Read("t.txt"), QByteArray("Gr\xFC\xDF" "e\n"));

  auto in = Item("t.txt")->OpenAsTextFile();
  ASSERT_NE(in, nullptr);
  in->Encoding = TextEncoding::ISOLatin1();
  EXPECT_EQ(in->ReadLine(), kUmlauts);
  // Read as UTF-8, the same bytes are not valid.
  auto utf8 = Item("t.txt")->OpenAsTextFile();
  ASSERT_NE(utf8, nullptr);
  EXPECT_NE(utf8->ReadLine(), kUmlauts);
}

}  // namespace
}  // namespace velmar::test
