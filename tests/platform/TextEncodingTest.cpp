// Text encodings: names, conversion both ways, and decoding of bytes that arrive in pieces.
#include "platform/TextEncoding.h"

#include <gtest/gtest.h>

#include <optional>

namespace velmar::test {
namespace {

const QString kUmlauts = QString::fromUtf8("Gr\xC3\xBC\xC3\x9F" "e");  // "Grüße"

TEST(TextEncodingTest, DefaultIsLatin1AndNamesAreFoundIgnoringCase) {
  EXPECT_EQ(TextEncoding().Name(), QStringLiteral("ISO-8859-1"));
  EXPECT_EQ(TextEncoding::UTF8().Name(), QStringLiteral("UTF-8"));
  const std::pair<QString, std::optional<TextEncoding>> names[] = {
      {"utf-8", TextEncoding::UTF8()}, {"UTF8", TextEncoding::UTF8()}, {"iso-8859-1", TextEncoding::ISOLatin1()},
      {"Latin1", TextEncoding::ISOLatin1()}, {"EBCDIC", std::nullopt}, {QString(), std::nullopt}};
  for (const auto& [name, expected] : names) EXPECT_EQ(TextEncoding::FromName(name), expected) << name.toStdString();
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

  // Latin 1 holds nothing back: every byte is a character.
  TextDecoder latin1(TextEncoding::ISOLatin1());
  EXPECT_EQ(latin1.Decode(QByteArray("a\xC3")), QString::fromUtf8("a\xC3\x83"));
  EXPECT_EQ(latin1.Decode(QByteArray("\xBC")), QString::fromUtf8("\xC2\xBC"));
}

}  // namespace
}  // namespace velmar::test
