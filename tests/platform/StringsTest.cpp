// The framework's string functions: 1-based positions, case-insensitive search, number
// parsing and formatting.
#include "platform/Strings.h"

#include <gtest/gtest.h>

#include <limits>

namespace velmar::test {
namespace {

TEST(StringsTest, InStrIsOneBasedAndIgnoresCase) {
  EXPECT_EQ(InStr(QStringLiteral("abc"), QStringLiteral("a")), 1);
  EXPECT_EQ(InStr(QStringLiteral("abc"), QStringLiteral("c")), 3);
  EXPECT_EQ(InStr(QStringLiteral("abc"), QStringLiteral("d")), 0);
  EXPECT_EQ(InStr(QStringLiteral("abc"), QString()), 0);
  EXPECT_EQ(InStr(QString(), QStringLiteral("a")), 0);
  EXPECT_EQ(InStr(QStringLiteral("230 User logged in"), QStringLiteral("LOGGED")), 10);
  EXPECT_EQ(InStr(QStringLiteral("Microsoft FTP Service"), QStringLiteral("microsoft")), 1);
  EXPECT_EQ(InStr(QStringLiteral("ÄrGER"), QStringLiteral("äRger")), 1);
}

TEST(StringsTest, InStrFromAStartPosition) {
  const QString text = QStringLiteral("a-b-c");
  EXPECT_EQ(InStr(1, text, QStringLiteral("-")), 2);
  EXPECT_EQ(InStr(2, text, QStringLiteral("-")), 2);  // the start itself is searched
  EXPECT_EQ(InStr(3, text, QStringLiteral("-")), 4);
  EXPECT_EQ(InStr(5, text, QStringLiteral("-")), 0);
  EXPECT_EQ(InStr(6, text, QStringLiteral("c")), 0);  // past the end
  EXPECT_EQ(InStr(0, text, QStringLiteral("a")), 1);  // before the start counts as 1
  EXPECT_EQ(InStr(-7, text, QStringLiteral("a")), 1);
  EXPECT_EQ(InStr(3, QStringLiteral("xAxa"), QStringLiteral("A")), 4);
}

TEST(StringsTest, LeftRightMidClamp) {
  const QString text = QStringLiteral("hello");
  EXPECT_EQ(Left(text, 2), QStringLiteral("he"));
  EXPECT_EQ(Left(text, 0), QString());
  EXPECT_EQ(Left(text, -1), QString());
  EXPECT_EQ(Left(text, 99), text);
  EXPECT_EQ(Right(text, 2), QStringLiteral("lo"));
  EXPECT_EQ(Right(text, 0), QString());
  EXPECT_EQ(Right(text, 99), text);

  EXPECT_EQ(Mid(text, 1), text);
  EXPECT_EQ(Mid(text, 2), QStringLiteral("ello"));
  EXPECT_EQ(Mid(text, 5), QStringLiteral("o"));
  EXPECT_EQ(Mid(text, 6), QString());
  EXPECT_EQ(Mid(text, 0), text);
  EXPECT_EQ(Mid(text, -3), text);
  EXPECT_EQ(Mid(text, 2, 3), QStringLiteral("ell"));
  EXPECT_EQ(Mid(text, 4, 99), QStringLiteral("lo"));
  EXPECT_EQ(Mid(text, 2, 0), QString());
  EXPECT_EQ(Mid(text, 2, -1), QStringLiteral("ello"));
  EXPECT_EQ(Mid(text, 0, 2), QStringLiteral("he"));
  EXPECT_EQ(Mid(text, 9, 2), QString());
  EXPECT_EQ(Len(text), 5);
  EXPECT_EQ(Len(QString()), 0);
}

TEST(StringsTest, SplitKeepsEmptyPiecesAndMatchesDelimiterIgnoringCase) {
  EXPECT_EQ(Split(QStringLiteral("a,,b"), QStringLiteral(",")),
            (QStringList{QStringLiteral("a"), QString(), QStringLiteral("b")}));
  EXPECT_EQ(Split(QString(), QStringLiteral(",")), QStringList{QString()});
  EXPECT_EQ(Split(QStringLiteral(",a,"), QStringLiteral(",")),
            (QStringList{QString(), QStringLiteral("a"), QString()}));
  EXPECT_EQ(Split(QStringLiteral("1x2X3"), QStringLiteral("x")),
            (QStringList{QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3")}));
  EXPECT_EQ(Split(QStringLiteral("a\r\nb"), QStringLiteral("\r\n")),
            (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
}

TEST(StringsTest, SplitWithEmptyDelimiterGivesCharacters) {
  EXPECT_EQ(Split(QStringLiteral("abc"), QString()),
            (QStringList{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}));
  // A character outside the BMP stays one piece.
  const QString clef = QString::fromUtf8("\xF0\x9D\x84\x9E");
  EXPECT_EQ(Split(QStringLiteral("a") + clef, QString()), (QStringList{QStringLiteral("a"), clef}));
  EXPECT_EQ(Split(QString(), QString()), QStringList{QString()});
}

TEST(StringsTest, NthFieldAndCountFields) {
  const QString line = QStringLiteral("drwxr-xr-x  2 ftp ftp");
  EXPECT_EQ(NthField(line, QStringLiteral(" "), 1), QStringLiteral("drwxr-xr-x"));
  EXPECT_EQ(NthField(line, QStringLiteral(" "), 2), QString());  // between the two blanks
  EXPECT_EQ(NthField(line, QStringLiteral(" "), 3), QStringLiteral("2"));
  EXPECT_EQ(NthField(line, QStringLiteral(" "), 5), QStringLiteral("ftp"));
  EXPECT_EQ(NthField(line, QStringLiteral(" "), 6), QString());
  EXPECT_EQ(NthField(line, QStringLiteral(" "), 0), QString());
  EXPECT_EQ(NthField(line, QStringLiteral(" "), -1), QString());
  EXPECT_EQ(NthField(QStringLiteral("331-x"), QStringLiteral("-"), 1), QStringLiteral("331"));
  EXPECT_EQ(NthField(QStringLiteral("AxBXC"), QStringLiteral("x"), 3), QStringLiteral("C"));

  EXPECT_EQ(CountFields(line, QStringLiteral(" ")), 5);
  EXPECT_EQ(CountFields(QStringLiteral("a,,b"), QStringLiteral(",")), 3);
  EXPECT_EQ(CountFields(QStringLiteral("abc"), QStringLiteral(",")), 1);
  EXPECT_EQ(CountFields(QString(), QStringLiteral(",")), 1);
  EXPECT_EQ(CountFields(QStringLiteral("abc"), QString()), 3);
}

TEST(StringsTest, ReplaceFirstOrAllIgnoringCase) {
  EXPECT_EQ(Replace(QStringLiteral("a/B/b"), QStringLiteral("b"), QStringLiteral("x")), QStringLiteral("a/x/b"));
  EXPECT_EQ(ReplaceAll(QStringLiteral("a/B/b"), QStringLiteral("b"), QStringLiteral("x")), QStringLiteral("a/x/x"));
  EXPECT_EQ(Replace(QStringLiteral("abc"), QStringLiteral("z"), QStringLiteral("x")), QStringLiteral("abc"));
  EXPECT_EQ(Replace(QStringLiteral("abc"), QString(), QStringLiteral("x")), QStringLiteral("abc"));
  EXPECT_EQ(ReplaceAll(QStringLiteral("abc"), QString(), QStringLiteral("x")), QStringLiteral("abc"));
  // The replacement is not searched again.
  EXPECT_EQ(ReplaceAll(QStringLiteral("aa"), QStringLiteral("a"), QStringLiteral("aa")), QStringLiteral("aaaa"));
  EXPECT_EQ(ReplaceAll(QStringLiteral("//x//"), QStringLiteral("//"), QStringLiteral("/")), QStringLiteral("/x/"));
}

TEST(StringsTest, ReplaceLineEndingsHandlesEveryEnding) {
  EXPECT_EQ(ReplaceLineEndings(QStringLiteral("a\r\nb\rc\nd"), QStringLiteral("\n")), QStringLiteral("a\nb\nc\nd"));
  EXPECT_EQ(ReplaceLineEndings(QStringLiteral("a\nb\n"), QStringLiteral("\r\n")), QStringLiteral("a\r\nb\r\n"));
  EXPECT_EQ(ReplaceLineEndings(QStringLiteral("\n\r"), QStringLiteral("|")), QStringLiteral("||"));
  EXPECT_EQ(ReplaceLineEndings(QStringLiteral("\r\n\r\n"), QStringLiteral("|")), QStringLiteral("||"));
}

TEST(StringsTest, SameLowercaseLTrim) {
  EXPECT_TRUE(Same(QStringLiteral("RETR"), QStringLiteral("retr")));
  EXPECT_FALSE(Same(QStringLiteral("RETR"), QStringLiteral("RET")));
  EXPECT_EQ(Lowercase(QStringLiteral("AbC")), QStringLiteral("abc"));
  EXPECT_EQ(LTrim(QStringLiteral(" \t\r\n x y ")), QStringLiteral("x y "));
  EXPECT_EQ(LTrim(QStringLiteral("   ")), QString());
  EXPECT_EQ(LTrim(QStringLiteral("x")), QStringLiteral("x"));
}

TEST(StringsTest, ValParsesTheLeadingNumber) {
  EXPECT_EQ(Val(QStringLiteral("331-x")), 331);
  EXPECT_EQ(Val(QStringLiteral("226 Transfer complete")), 226);
  EXPECT_EQ(Val(QStringLiteral("abc")), 0);
  EXPECT_EQ(Val(QString()), 0);
  EXPECT_EQ(Val(QStringLiteral("12.5kb")), 12.5);
  EXPECT_EQ(Val(QStringLiteral("-3")), -3);
  EXPECT_EQ(Val(QStringLiteral("+4")), 4);
  EXPECT_EQ(Val(QStringLiteral("  42 ")), 42);
  EXPECT_EQ(Val(QStringLiteral(".5")), 0.5);
  EXPECT_EQ(Val(QStringLiteral("1.2.3")), 1.2);
  EXPECT_EQ(Val(QStringLiteral("1e3x")), 1000);
  EXPECT_EQ(Val(QStringLiteral("2E-1")), 0.2);
  EXPECT_EQ(Val(QStringLiteral("7e")), 7);  // no digits after the exponent mark
  EXPECT_EQ(Val(QStringLiteral("7e+")), 7);
  EXPECT_EQ(Val(QStringLiteral("- 3")), 0);
  EXPECT_EQ(Val(QStringLiteral("-")), 0);
  EXPECT_EQ(Val(QStringLiteral(".")), 0);
  EXPECT_EQ(Val(QStringLiteral("&h1F")), 0);
  EXPECT_EQ(Val(QStringLiteral("4294967296")), 4294967296.0);
  EXPECT_EQ(Val(QStringLiteral("1e999")), std::numeric_limits<double>::infinity());
}

TEST(StringsTest, StrWritesWholeNumbersWithoutDecimals) {
  EXPECT_EQ(Str(331), QStringLiteral("331"));
  EXPECT_EQ(Str(-1), QStringLiteral("-1"));
  EXPECT_EQ(Str(0), QStringLiteral("0"));
  EXPECT_EQ(Str(-0.0), QStringLiteral("0"));
  EXPECT_EQ(Str(4294967296.0), QStringLiteral("4294967296"));
  EXPECT_EQ(Str(123456789012.0), QStringLiteral("123456789012"));
}

TEST(StringsTest, StrWritesSevenSignificantDigits) {
  EXPECT_EQ(Str(1.5), QStringLiteral("1.5"));
  EXPECT_EQ(Str(-2.25), QStringLiteral("-2.25"));
  EXPECT_EQ(Str(0.1), QStringLiteral("0.1"));
  EXPECT_EQ(Str(1.0 / 3.0), QStringLiteral("0.3333333"));
  EXPECT_EQ(Str(2.0 / 3.0), QStringLiteral("0.6666667"));
  EXPECT_EQ(Str(1234.56789), QStringLiteral("1234.568"));
  EXPECT_EQ(Str(0.000123456789), QStringLiteral("0.0001234568"));
  EXPECT_EQ(Str(9.99999999), QStringLiteral("10"));
}

TEST(StringsTest, FormatPatterns) {
  EXPECT_EQ(Format(1234.5678, QStringLiteral("0")), QStringLiteral("1235"));
  EXPECT_EQ(Format(1234.5678, QStringLiteral("0.0")), QStringLiteral("1234.6"));
  EXPECT_EQ(Format(1234.5678, QStringLiteral("0.00")), QStringLiteral("1234.57"));
  EXPECT_EQ(Format(1234.5678, QStringLiteral("#")), QStringLiteral("1235"));
  EXPECT_EQ(Format(1234567.891, QStringLiteral("#,##0")), QStringLiteral("1,234,568"));
  EXPECT_EQ(Format(1234567.891, QStringLiteral("#,##0.0")), QStringLiteral("1,234,567.9"));
  EXPECT_EQ(Format(123, QStringLiteral("#,##0")), QStringLiteral("123"));
  EXPECT_EQ(Format(123456, QStringLiteral("#,##0")), QStringLiteral("123,456"));
  EXPECT_EQ(Format(0.25, QStringLiteral("0.0")), QStringLiteral("0.3"));
  EXPECT_EQ(Format(0.5, QStringLiteral("#.0")), QStringLiteral(".5"));
  EXPECT_EQ(Format(7, QStringLiteral("000")), QStringLiteral("007"));
  EXPECT_EQ(Format(2.5, QStringLiteral("0.##")), QStringLiteral("2.5"));
  EXPECT_EQ(Format(2, QStringLiteral("0.##")), QStringLiteral("2"));
  EXPECT_EQ(Format(42, QStringLiteral("0 KB")), QStringLiteral("42 KB"));
  // Zero: "#" shows no digit at all, "0" does.
  EXPECT_EQ(Format(0, QStringLiteral("#")), QString());
  EXPECT_EQ(Format(0, QStringLiteral("0")), QStringLiteral("0"));
  EXPECT_EQ(Format(0, QStringLiteral("#,##0")), QStringLiteral("0"));
  EXPECT_EQ(Format(0, QStringLiteral("0.00")), QStringLiteral("0.00"));
}

TEST(StringsTest, FormatRoundsTheExactValueHalfAwayFromZero) {
  // Exact ties round away from zero.
  EXPECT_EQ(Format(0.5, QStringLiteral("0")), QStringLiteral("1"));
  EXPECT_EQ(Format(1.5, QStringLiteral("0")), QStringLiteral("2"));
  EXPECT_EQ(Format(2.5, QStringLiteral("0")), QStringLiteral("3"));
  EXPECT_EQ(Format(0.125, QStringLiteral("0.00")), QStringLiteral("0.13"));
  EXPECT_EQ(Format(-2.5, QStringLiteral("0")), QStringLiteral("-3"));
  // Not ties: the double lies just above (1.05) or just below (0.15, 2.675) the decimal.
  EXPECT_EQ(Format(1.05, QStringLiteral("0.0")), QStringLiteral("1.1"));
  EXPECT_EQ(Format(0.15, QStringLiteral("0.0")), QStringLiteral("0.1"));
  EXPECT_EQ(Format(2.675, QStringLiteral("0.00")), QStringLiteral("2.67"));
  // Carries run through every digit.
  EXPECT_EQ(Format(999.96, QStringLiteral("#,##0.0")), QStringLiteral("1,000.0"));
  EXPECT_EQ(Format(9.5, QStringLiteral("0")), QStringLiteral("10"));
}

TEST(StringsTest, FormatNegativeNumbers) {
  EXPECT_EQ(Format(-1234.5, QStringLiteral("#,##0.0")), QStringLiteral("-1,234.5"));
  EXPECT_EQ(Format(-1, QStringLiteral("0")), QStringLiteral("-1"));
  // What rounds to zero has no sign.
  EXPECT_EQ(Format(-0.04, QStringLiteral("0.0")), QStringLiteral("0.0"));
  EXPECT_EQ(Format(-0.0, QStringLiteral("0")), QStringLiteral("0"));
}

TEST(StringsTest, FormatAtTheBoundariesOfASizeFormatter) {
  // Bytes shown in KB or MB with the patterns a size formatter uses.
  EXPECT_EQ(Format(1023, QStringLiteral("0")), QStringLiteral("1023"));
  EXPECT_EQ(Format(1024 / 1024.0, QStringLiteral("0")), QStringLiteral("1"));
  EXPECT_EQ(Format(1025 / 1024.0, QStringLiteral("0")), QStringLiteral("1"));
  EXPECT_EQ(Format(1536 / 1024.0, QStringLiteral("0")), QStringLiteral("2"));
  EXPECT_EQ(Format(1048575 / 1024.0, QStringLiteral("0")), QStringLiteral("1024"));
  EXPECT_EQ(Format(1048576 / 1048576.0, QStringLiteral("0.0")), QStringLiteral("1.0"));
  EXPECT_EQ(Format(1048577 / 1048576.0, QStringLiteral("0.0")), QStringLiteral("1.0"));
  EXPECT_EQ(Format(1572864 / 1048576.0, QStringLiteral("0.0")), QStringLiteral("1.5"));
  EXPECT_EQ(Format(1101004 / 1048576.0, QStringLiteral("0.0")), QStringLiteral("1.0"));  // 1.0499992
  EXPECT_EQ(Format(1101005 / 1048576.0, QStringLiteral("0.0")), QStringLiteral("1.1"));  // 1.0500002
  EXPECT_EQ(Format(1048575 / 1048576.0, QStringLiteral("0.0")), QStringLiteral("1.0"));
  EXPECT_EQ(Format(3221225472.0 / 1048576.0, QStringLiteral("#,##0.0")), QStringLiteral("3,072.0"));
}

}  // namespace
}  // namespace velmar::test
