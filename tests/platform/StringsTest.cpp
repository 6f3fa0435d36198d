// The framework's string functions and the text encodings: tables of edge cases.
#include "platform/Strings.h"
#include "platform/TextEncoding.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>

namespace velmar::test {
namespace {

// Computed values next to the expected ones; the row number names a failing row.
template <typename T>
void ExpectRows(std::initializer_list<std::pair<T, T>> rows) {
  int row = 0;
  for (const auto& [got, expected] : rows) EXPECT_EQ(got, expected) << "row " << row++;
}

TEST(StringsTest, InStrIsOneBasedFromAStartAndIgnoresCaseAndSoDoCountsOfFields) {
  // Start 1 is also checked through the two-argument form; a start before 1 counts as 1.
  const struct { int start; QString text, find; int expected; } rows[] = {
      {1, "abc", "c", 3}, {1, "abc", "d", 0}, {1, "abc", {}, 0}, {1, {}, "a", 0}, {1, "a-b-c", "-", 2},
      {1, "230 User logged in", "LOGGED", 10}, {1, "ÄrGER", "äRger", 1}, {2, "a-b-c", "-", 2}, {3, "a-b-c", "-", 4},
      {5, "a-b-c", "-", 0}, {6, "a-b-c", "c", 0}, {0, "a-b-c", "a", 1}, {-7, "a-b-c", "a", 1}, {3, "xAxa", "A", 4},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(std::to_string(r.start) + " " + r.text.toStdString() + " / " + r.find.toStdString());
    EXPECT_EQ(InStr(r.start, r.text, r.find), r.expected);
    if (r.start == 1) {
      EXPECT_EQ(InStr(r.text, r.find), r.expected);
    }
  }
  ExpectRows<int>({{Len("hello"), 5}, {Len(QString()), 0}, {CountFields("drwxr-xr-x  2 ftp ftp", " "), 5},
                   {CountFields("a,,b", ","), 3}, {CountFields(QString(), ","), 1}, {CountFields("abc", QString()), 3},
                   {CountFields("abc", ","), 1}, {Same("RETR", "retr"), true}, {Same("RETR", "RET"), false}});
}

TEST(StringsTest, TextFunctionsClampTheirArgumentsAndStrWritesNumbers) {
  const QString t = QStringLiteral("hello"), line = QStringLiteral("drwxr-xr-x  2 ftp ftp");
  ExpectRows<QString>({
      {Left(t, 2), "he"}, {Left(t, 0), ""}, {Left(t, -1), ""}, {Left(t, 99), t}, {Right(t, 2), "lo"}, {Right(t, 0), ""},
      {Right(t, 99), t}, {Mid(t, 1), t}, {Mid(t, 2), "ello"}, {Mid(t, 5), "o"}, {Mid(t, 6), ""}, {Mid(t, 0), t},
      {Mid(t, -3), t}, {Mid(t, 2, 3), "ell"}, {Mid(t, 4, 99), "lo"}, {Mid(t, 2, 0), ""}, {Mid(t, 2, -1), "ello"},
      {Mid(t, 0, 2), "he"}, {Mid(t, 9, 2), ""},
      {NthField(line, " ", 1), "drwxr-xr-x"}, {NthField(line, " ", 2), ""},  // between the blanks
      {NthField(line, " ", 3), "2"}, {NthField(line, " ", 5), "ftp"}, {NthField(line, " ", 6), ""},
      {NthField(line, " ", 0), ""}, {NthField(line, " ", -1), ""}, {NthField("331-x", "-", 1), "331"},
      {NthField("AxBXC", "x", 3), "C"},
      {Replace("a/B/b", "b", "x"), "a/x/b"}, {ReplaceAll("a/B/b", "b", "x"), "a/x/x"},
      {Replace("abc", "z", "x"), "abc"}, {Replace("abc", {}, "x"), "abc"}, {ReplaceAll("abc", {}, "x"), "abc"},
      // The replacement is not searched again.
      {ReplaceAll("aa", "a", "aa"), "aaaa"}, {ReplaceAll("//x//", "//", "/"), "/x/"},
      {ReplaceLineEndings("a\r\nb\rc\nd", "\n"), "a\nb\nc\nd"}, {ReplaceLineEndings("a\nb\n", "\r\n"), "a\r\nb\r\n"},
      {ReplaceLineEndings("\n\r", "|"), "||"}, {ReplaceLineEndings("\r\n\r\n", "|"), "||"},
      {Lowercase("AbC"), "abc"}, {LTrim(" \t\r\n x y "), "x y "}, {LTrim("   "), ""}, {LTrim("x"), "x"},
      // Str: whole numbers in full, others with seven significant digits.
      {Str(331), "331"}, {Str(-1), "-1"}, {Str(0), "0"}, {Str(-0.0), "0"}, {Str(4294967296.0), "4294967296"},
      {Str(123456789012.0), "123456789012"}, {Str(1.5), "1.5"}, {Str(-2.25), "-2.25"}, {Str(0.1), "0.1"},
      {Str(1.0 / 3.0), "0.3333333"}, {Str(2.0 / 3.0), "0.6666667"}, {Str(1234.56789), "1234.568"},
      {Str(0.000123456789), "0.0001234568"}, {Str(9.99999999), "10"}, {Str(NAN), "NAN"}, {Str(-INFINITY), "-INF"},
      {Format(INFINITY, "0.0"), "INF"}});
}

TEST(StringsTest, SplitKeepsEmptyPiecesAndMatchesDelimiterIgnoringCase) {
  const QString clef = QString::fromUtf8("\xF0\x9D\x84\x9E");  // outside the BMP: one piece
  // An empty delimiter gives the characters.
  ExpectRows<QStringList>({{Split("a,,b", ","), {"a", "", "b"}}, {Split(QString(), ","), {""}},
                           {Split(",a,", ","), {"", "a", ""}}, {Split("1x2X3", "x"), {"1", "2", "3"}},
                           {Split("a\r\nb", "\r\n"), {"a", "b"}}, {Split("abc", QString()), {"a", "b", "c"}},
                           {Split("a" + clef, QString()), {"a", clef}}, {Split(QString(), QString()), {""}}});
}

TEST(StringsTest, ValParsesTheLeadingNumber) {
  const std::pair<QString, double> rows[] = {
      {"331-x", 331}, {"226 Transfer complete", 226}, {"abc", 0}, {{}, 0}, {"12.5kb", 12.5}, {"-3", -3},
      {"+4", 4}, {"  42 ", 42}, {".5", 0.5}, {"1.2.3", 1.2}, {"1e3x", 1000}, {"2E-1", 0.2},
      {"7e", 7}, {"7e+", 7},  // no digits after the exponent mark
      {"- 3", 0}, {"-", 0}, {".", 0}, {"&h1F", 0}, {"4294967296", 4294967296.0},
      {"1e999", std::numeric_limits<double>::infinity()},
  };
  for (const auto& [text, expected] : rows) EXPECT_EQ(Val(text), expected) << "'" << text.toStdString() << "'";
}

TEST(StringsTest, FormatPatternsRoundingAndSigns) {
  const struct { double value; const char* pattern; const char* expected; } rows[] = {
      {1234.5678, "0", "1235"}, {1234.5678, "0.0", "1234.6"}, {1234.5678, "0.00", "1234.57"},
      {1234.5678, "#", "1235"}, {1234567.891, "#,##0", "1,234,568"}, {1234567.891, "#,##0.0", "1,234,567.9"},
      {123, "#,##0", "123"}, {123456, "#,##0", "123,456"}, {0.25, "0.0", "0.3"}, {0.5, "#.0", ".5"},
      {7, "000", "007"}, {2.5, "0.##", "2.5"}, {2, "0.##", "2"}, {42, "0 KB", "42 KB"},
      // Zero: "#" shows no digit at all, "0" does.
      {0, "#", ""}, {0, "0", "0"}, {0, "#,##0", "0"}, {0, "0.00", "0.00"},
      // Exact ties round away from zero.
      {0.5, "0", "1"}, {1.5, "0", "2"}, {2.5, "0", "3"}, {0.125, "0.00", "0.13"}, {-2.5, "0", "-3"},
      // Not ties: the double lies just above (1.05) or just below (0.15, 2.675) the decimal.
      {1.05, "0.0", "1.1"}, {0.15, "0.0", "0.1"}, {2.675, "0.00", "2.67"},
      // Carries run through every digit.
      {999.96, "#,##0.0", "1,000.0"}, {9.5, "0", "10"},
      // Negative numbers; what rounds to zero has no sign.
      {-1234.5, "#,##0.0", "-1,234.5"}, {-1, "0", "-1"}, {-0.04, "0.0", "0.0"}, {-0.0, "0", "0"},
      // Near ties from sizes in MB: 1.0499992 and 1.0500002.
      {1101004 / 1048576.0, "0.0", "1.0"}, {1101005 / 1048576.0, "0.0", "1.1"},
  };
  for (const auto& r : rows)
    EXPECT_EQ(Format(r.value, r.pattern), QString::fromUtf8(r.expected)) << r.value << " '" << r.pattern << "'";
}

TEST(TextEncodingTest, NamesDecodingAndADecoderThatJoinsACharacterSplitAcrossPieces) {
  // Names ignore case; the default is Latin 1.
  const auto utf8 = TextEncoding::UTF8(), latin1 = TextEncoding::ISOLatin1();
  ExpectRows<std::optional<TextEncoding>>(
      {{TextEncoding(), latin1}, {TextEncoding::FromName("utf-8"), utf8}, {TextEncoding::FromName("UTF8"), utf8},
       {TextEncoding::FromName("iso-8859-1"), latin1}, {TextEncoding::FromName("Latin1"), latin1},
       {TextEncoding::FromName("EBCDIC"), std::nullopt}, {TextEncoding::FromName(QString()), std::nullopt}});
  // Decoding; UTF-8 bytes labelled as Latin 1 become one character per byte; a lone Latin 1 byte is no UTF-8.
  const QString umlauts = QString::fromUtf8("Gr\xC3\xBC\xC3\x9F" "e");  // "Grüße"
  ExpectRows<QString>({{TextEncoding().Name(), "ISO-8859-1"}, {utf8.Name(), "UTF-8"},
                       {utf8.Decode("Gr\xC3\xBC\xC3\x9F" "e"), umlauts}, {latin1.Decode("Gr\xFC\xDF" "e"), umlauts},
                       {latin1.Decode("\xC3\xBC"), QString::fromUtf8("\xC3\x83\xC2\xBC")},
                       {utf8.Decode("\xFC"), QString(QChar(0xFFFD))}});
  // "ü" (C3 BC) split after C3, then a four-byte character fed one byte at a time.
  TextDecoder decoder(utf8);
  EXPECT_EQ(decoder.Decode(QByteArray("Gr\xC3")), QStringLiteral("Gr"));
  EXPECT_EQ(decoder.Decode(QByteArray("\xBC" "n")), QString::fromUtf8("\xC3\xBC" "n"));
  const QByteArray clef("\xF0\x9D\x84\x9E");
  QString all;
  for (char byte : clef) all += decoder.Decode(QByteArray(1, byte));
  EXPECT_EQ(all, QString::fromUtf8(clef));
  // Latin 1 holds nothing back: every byte is a character.
  EXPECT_EQ(TextDecoder(latin1).Decode(QByteArray("a\xC3")), QString::fromUtf8("a\xC3\x83"));
}

}  // namespace
}  // namespace velmar::test
