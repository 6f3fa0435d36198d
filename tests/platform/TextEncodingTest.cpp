// Text encodings: names, conversion both ways, and decoding of bytes that arrive in pieces.
#include "platform/TextEncoding.h"

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

const QString kUmlauts = QString::fromUtf8("Gr\xC3\xBC\xC3\x9F" "e");  // "Grüße"

TEST(TextEncodingTest, DefaultIsLatin1AndNamesAreFoundIgnoringCase) {
  EXPECT_EQ(TextEncoding().Name(), QStringLiteral("ISO-8859-1"));
  EXPECT_EQ(TextEncoding::UTF8().Name(), QStringLiteral("UTF-8"));
  ASSERT_TRUE(TextEncoding::FromName(QStringLiteral("utf-8")).has_value());
  EXPECT_EQ(*TextEncoding::FromName(QStringLiteral("utf-8")), TextEncoding::UTF8());
  EXPECT_EQ(*TextEncoding::FromName(QStringLiteral("UTF8")), TextEncoding::UTF8());
  EXPECT_EQ(*TextEncoding::FromName(QStringLiteral("iso-8859-1")), TextEncoding::ISOLatin1());
  EXPECT_EQ(*TextEncoding::FromName(QStringLiteral("Latin1")), TextEncoding::ISOLatin1());
  EXPECT_FALSE(TextEncoding::FromName(QStringLiteral("EBCDIC")).has_value());
  EXPECT_FALSE(TextEncoding::FromName(QString()).has_value());
  EXPECT_FALSE(TextEncoding::UTF8() == TextEncoding::ISOLatin1());
}

TEST(TextEncodingTest, EncodeAndDecodeDifferByEncoding) {
  EXPECT_EQ(TextEncoding::UTF8().Encode(kUmlauts), QByteArray("Gr\xC3\xBC\xC3\x9F" "e"));
  EXPECT_EQ(TextEncoding::ISOLatin1().Encode(kUmlauts), QByteArray("Gr\xFC\xDF" "e"));
  EXPECT_EQ(TextEncoding::UTF8().Decode(QByteArray("Gr\xC3\xBC\xC3\x9F" "e")), kUmlauts);
  EXPECT_EQ(TextEncoding::ISOLatin1().Decode(QByteArray("Gr\xFC\xDF" "e")), kUmlauts);
  // UTF-8 bytes labelled as Latin 1 become one character per byte.
  EXPECT_EQ(TextEncoding::ISOLatin1().Decode(QByteArray("\xC3\xBC")).size(), 2);
  EXPECT_EQ(TextEncoding::UTF8().Decode(QByteArray("\xFC")), QString(QChar(0xFFFD)));
}

TEST(TextEncodingTest, DecoderJoinsACharacterSplitAcrossPieces) {
  TextDecoder decoder(TextEncoding::UTF8());
  // "ü" is C3 BC; the first piece ends after C3.
  const QString first = decoder.Decode(QByteArray("Gr\xC3"));
  const QString second = decoder.Decode(QByteArray("\xBC" "n"));
  EXPECT_EQ(first, QStringLiteral("Gr"));
  EXPECT_EQ(second, QString::fromUtf8("\xC3\xBC" "n"));

  // A four-byte character fed one byte at a time.
  TextDecoder bytewise(TextEncoding::UTF8());
  const QByteArray clef("\xF0\x9D\x84\x9E");
  QString all;
  for (char byte : clef) all += bytewise.Decode(QByteArray(1, byte));
  EXPECT_EQ(all, QString::fromUtf8(clef));
}

TEST(TextEncodingTest, Latin1DecoderTakesEveryByteAsACharacter) {
  TextDecoder decoder(TextEncoding::ISOLatin1());
  EXPECT_EQ(decoder.Decode(QByteArray("a\xC3")), QString::fromUtf8("a\xC3\x83"));
  EXPECT_EQ(decoder.Decode(QByteArray("\xBC")), QString::fromUtf8("\xC2\xBC"));
}

}  // namespace
}  // namespace velmar::test
