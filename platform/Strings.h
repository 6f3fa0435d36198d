#pragma once
// The framework's string functions: positions are 1-based, and every comparison and
// search ignores letter case. Positions and lengths count QString's UTF-16 units.
#include <QString>
#include <QStringList>

namespace velmar {

// Equality ignoring case.
bool Same(QStringView a, QStringView b);
inline bool Same(const QString& a, const QString& b) { return Same(QStringView(a), QStringView(b)); }

// Position of find in source from start on (1-based), 0 when absent or find is empty.
int InStr(const QString& source, const QString& find);
int InStr(int start, const QString& source, const QString& find);

QString Left(const QString& text, int count);
QString Right(const QString& text, int count);
// From position start (1-based) to the end, or count characters.
QString Mid(const QString& text, int start);
QString Mid(const QString& text, int start, int count);
int Len(const QString& text);

// Pieces between delimiters, empty pieces kept; an empty delimiter splits into characters.
// The empty text is one empty piece.
QStringList Split(const QString& text, const QString& delimiter);
// Field n (1-based) of text split at delimiter; empty past the last field.
QString NthField(const QString& text, const QString& delimiter, int n);
// The number of pieces Split gives: 1 for the empty text.
int CountFields(const QString& text, const QString& delimiter);

// First occurrence, or every occurrence, of find replaced (matching ignores case).
QString Replace(const QString& text, const QString& find, const QString& replacement);
QString ReplaceAll(const QString& text, const QString& find, const QString& replacement);
QString ReplaceLineEndings(const QString& text, const QString& lineEnding);

QString Lowercase(const QString& text);
// Removes leading white space.
QString LTrim(const QString& text);

// The number at the head of text (blanks, sign, digits, one decimal point, exponent), 0 when
// none. Decimal only ("&h1F" gives 0).
double Val(QStringView text);
inline double Val(const QString& text) { return Val(QStringView(text)); }
// A number as an int32 the way the framework stores it: the fraction dropped, values out
// of range clamped (never undefined).
inline qint32 ToInt32(double value) {
  if (!(value == value)) return 0;
  if (value >= 2147483647.0) return 2147483647;
  if (value <= -2147483648.0) return -2147483647 - 1;
  return static_cast<qint32>(value);
}
// A number in plain decimal form, as the framework writes it: whole numbers in full ("331"),
// others with up to 7 significant digits ("1.5"), never with an exponent.
QString Str(double value);
// Formats a number by a pattern of "0", "#", "." and "," (e.g. "0", "0.0", "#,##0"). Rounds the
// double's exact value to the nearest decimal, an exact tie away from zero (1.05 -> "1.1",
// 2.5 -> "3"). The point is ".", thousands are grouped with ",", whatever the locale.
QString Format(double value, const QString& pattern);

}  // namespace velmar
