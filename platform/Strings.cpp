#include "platform/Strings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <locale.h>
#include <string>

// Positions and lengths count UTF-16 code units, the unit of QString, so that InStr, Mid
// and Len always agree with each other. Number conversions never depend on the C locale
// (a Qt application sets it from the environment): the point is always "." and the
// thousands separator ",".

namespace velmar {

namespace {

bool IsWhiteSpace(QChar c) {
  const char16_t u = c.unicode();
  return u == u' ' || u == u'\t' || u == u'\r' || u == u'\n' || u == u'\v' || u == u'\f';
}

bool IsDigit(QChar c) { return c.unicode() >= u'0' && c.unicode() <= u'9'; }

// The magnitude of value rounded to `decimals` places, as digit strings. The rounding works
// on the exact decimal expansion of the double, so 1.05 (stored as 1.0500000000000000444)
// rounds up and 0.15 (stored as 0.1499999999999999944) rounds down; an exact tie such as
// 0.125 to two places rounds away from zero.
struct Digits {
  std::string integer;   // at least "0", no leading zeros otherwise
  std::string fraction;  // exactly `decimals` digits
};

Digits RoundedDigits(double value, int decimals) {
  // Every finite double has at most 1074 digits after the point, so this expansion is exact.
  constexpr int kExact = 1074;
  decimals = std::clamp(decimals, 0, kExact);
  std::array<char, 1500> buffer{};
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), std::fabs(value),
                                    std::chars_format::fixed, kExact);
  const std::string text(buffer.data(), result.ptr);
  const auto point = text.find('.');
  Digits digits;
  digits.integer = text.substr(0, point);
  const std::string exactFraction = point == std::string::npos ? std::string() : text.substr(point + 1);
  digits.fraction = exactFraction.substr(0, static_cast<size_t>(decimals));
  digits.fraction.resize(static_cast<size_t>(decimals), '0');

  const bool roundUp = static_cast<size_t>(decimals) < exactFraction.size() &&
                       exactFraction[static_cast<size_t>(decimals)] >= '5';
  if (roundUp) {
    std::string all = digits.integer + digits.fraction;
    int i = static_cast<int>(all.size()) - 1;
    for (; i >= 0; --i) {
      if (all[static_cast<size_t>(i)] == '9') {
        all[static_cast<size_t>(i)] = '0';
      } else {
        ++all[static_cast<size_t>(i)];
        break;
      }
    }
    if (i < 0) all.insert(all.begin(), '1');
    digits.integer = all.substr(0, all.size() - static_cast<size_t>(decimals));
    digits.fraction = all.substr(all.size() - static_cast<size_t>(decimals));
  }
  const auto firstNonZero = digits.integer.find_first_not_of('0');
  digits.integer = firstNonZero == std::string::npos ? std::string("0") : digits.integer.substr(firstNonZero);
  return digits;
}

bool AllZero(const std::string& digits) { return digits.find_first_not_of('0') == std::string::npos; }

QString NonFinite(double value) {
  if (std::isnan(value)) return QStringLiteral("NAN");
  return value < 0 ? QStringLiteral("-INF") : QStringLiteral("INF");
}

// Inserts "," between groups of three digits.
std::string Grouped(const std::string& digits) {
  std::string out;
  const size_t n = digits.size();
  for (size_t i = 0; i < n; ++i) {
    if (i > 0 && (n - i) % 3 == 0) out += ',';
    out += digits[i];
  }
  return out;
}

}  // namespace

bool Same(QStringView a, QStringView b) { return a.compare(b, Qt::CaseInsensitive) == 0; }

int InStr(const QString& source, const QString& find) { return InStr(1, source, find); }

// A start before 1 counts as 1; a start past the end finds nothing.
int InStr(int start, const QString& source, const QString& find) {
  if (find.isEmpty()) return 0;
  if (start < 1) start = 1;
  if (start > source.size()) return 0;
  return static_cast<int>(source.indexOf(find, start - 1, Qt::CaseInsensitive)) + 1;
}

QString Left(const QString& text, int count) { return count <= 0 ? QString() : text.left(count); }

QString Right(const QString& text, int count) { return count <= 0 ? QString() : text.right(count); }

QString Mid(const QString& text, int start) {
  if (start < 1) start = 1;
  if (start > text.size()) return QString();
  return text.mid(start - 1);
}

// A negative count means "to the end", like leaving it out.
QString Mid(const QString& text, int start, int count) {
  if (count < 0) return Mid(text, start);
  if (start < 1) start = 1;
  if (count == 0 || start > text.size()) return QString();
  return text.mid(start - 1, count);
}

int Len(const QString& text) { return static_cast<int>(text.size()); }

// The empty text is one empty piece, also for the empty delimiter, so CountFields("", d) is 1
// for every d. Splitting into characters keeps a surrogate pair together.
QStringList Split(const QString& text, const QString& delimiter) {
  if (text.isEmpty()) return QStringList{QString()};
  if (!delimiter.isEmpty()) return text.split(delimiter, Qt::KeepEmptyParts, Qt::CaseInsensitive);
  QStringList pieces;
  pieces.reserve(text.size());
  for (qsizetype i = 0; i < text.size(); ++i) {
    if (text.at(i).isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
      pieces.append(text.mid(i, 2));
      ++i;
    } else {
      pieces.append(QString(text.at(i)));
    }
  }
  return pieces;
}

QString NthField(const QString& text, const QString& delimiter, int n) {
  if (n < 1) return QString();
  const QStringList pieces = Split(text, delimiter);
  return n <= pieces.size() ? pieces.at(n - 1) : QString();
}

// The number of pieces Split gives: CountFields("", ",") is 1, CountFields("a,,b", ",") is 3.
int CountFields(const QString& text, const QString& delimiter) {
  return static_cast<int>(Split(text, delimiter).size());
}

QString Replace(const QString& text, const QString& find, const QString& replacement) {
  if (find.isEmpty()) return text;
  const qsizetype at = text.indexOf(find, 0, Qt::CaseInsensitive);
  if (at < 0) return text;
  QString out = text;
  out.replace(at, find.size(), replacement);
  return out;
}

QString ReplaceAll(const QString& text, const QString& find, const QString& replacement) {
  if (find.isEmpty()) return text;
  QString out = text;
  out.replace(find, replacement, Qt::CaseInsensitive);
  return out;
}

// CR LF, a lone CR and a lone LF each become one lineEnding.
QString ReplaceLineEndings(const QString& text, const QString& lineEnding) {
  QString out;
  out.reserve(text.size());
  for (qsizetype i = 0; i < text.size(); ++i) {
    const QChar c = text.at(i);
    if (c == u'\r') {
      if (i + 1 < text.size() && text.at(i + 1) == u'\n') ++i;
      out += lineEnding;
    } else if (c == u'\n') {
      out += lineEnding;
    } else {
      out += c;
    }
  }
  return out;
}

QString Lowercase(const QString& text) { return text.toLower(); }

// White space here is ASCII: blank, tab, CR, LF, vertical tab and form feed.
QString LTrim(const QString& text) {
  qsizetype i = 0;
  while (i < text.size() && IsWhiteSpace(text.at(i))) ++i;
  return text.mid(i);
}

// Decimal only: "&h1F" and the like give 0. An exponent counts only when digits follow it
// ("1e" is 1). A number beyond the range of a double gives an infinity of its sign.
double Val(QStringView text) {
  qsizetype i = 0;
  const qsizetype n = text.size();
  while (i < n && IsWhiteSpace(text.at(i))) ++i;
  const qsizetype begin = i;
  if (i < n && (text.at(i) == u'+' || text.at(i) == u'-')) ++i;
  qsizetype mantissaDigits = 0;
  while (i < n && IsDigit(text.at(i))) ++i, ++mantissaDigits;
  if (i < n && text.at(i) == u'.') {
    ++i;
    while (i < n && IsDigit(text.at(i))) ++i, ++mantissaDigits;
  }
  if (mantissaDigits == 0) return 0.0;
  if (i < n && (text.at(i) == u'e' || text.at(i) == u'E')) {
    qsizetype j = i + 1;
    if (j < n && (text.at(j) == u'+' || text.at(j) == u'-')) ++j;
    if (j < n && IsDigit(text.at(j))) {
      while (j < n && IsDigit(text.at(j))) ++j;
      i = j;
    }
  }
  const QByteArray number = text.mid(begin, i - begin).toLatin1();
  static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  return strtod_l(number.constData(), nullptr, cLocale);
}

// Whole numbers in full without a point ("331", "-1", "4294967296"); other numbers with up to
// 7 significant digits, rounded like Format and without trailing zeros ("1.5", "0.3333333"),
// always in plain decimal form, never with an exponent.
QString Str(double value) {
  if (!std::isfinite(value)) return NonFinite(value);
  int decimals = 0;
  if (value != std::trunc(value)) {
    const int magnitude = static_cast<int>(std::floor(std::log10(std::fabs(value))));
    decimals = std::max(0, 6 - magnitude);
  }
  Digits digits = RoundedDigits(value, decimals);
  while (!digits.fraction.empty() && digits.fraction.back() == '0') digits.fraction.pop_back();
  std::string out;
  if (value < 0 && !(AllZero(digits.integer) && digits.fraction.empty())) out += '-';
  out += digits.integer;
  if (!digits.fraction.empty()) out += '.' + digits.fraction;
  return QString::fromLatin1(out.data(), static_cast<qsizetype>(out.size()));
}

// The pattern's placeholders run from its first to its last "0", "#", "." or ","; text before
// and after them is copied as it is. In the integer part "0" is a digit always shown and "#"
// one shown only when significant, so Format(0, "#") is "" and Format(0, "#,##0") is "0"; a ","
// anywhere there groups thousands. After the point "0" is a decimal always shown and "#" one
// shown only when not a trailing zero; the point goes when no decimal is shown. Rounding is
// decimal rounding of the double's exact value, an exact tie away from zero (see RoundedDigits).
// A result that rounds to zero has no sign. An empty pattern formats like Str.
QString Format(double value, const QString& pattern) {
  if (pattern.isEmpty() || !std::isfinite(value)) return Str(value);
  const auto isPlaceholder = [](QChar c) { return c == u'0' || c == u'#' || c == u'.' || c == u','; };
  qsizetype first = 0;
  while (first < pattern.size() && !isPlaceholder(pattern.at(first))) ++first;
  if (first == pattern.size()) return pattern;
  qsizetype last = pattern.size() - 1;
  while (!isPlaceholder(pattern.at(last))) --last;
  const QString prefix = pattern.left(first);
  const QString suffix = pattern.mid(last + 1);
  const QString body = pattern.mid(first, last - first + 1);

  const qsizetype point = body.indexOf(u'.');
  const QString integerPart = point < 0 ? body : body.left(point);
  const QString fractionPart = point < 0 ? QString() : body.mid(point + 1);
  const bool grouping = integerPart.contains(u',');
  const int minIntegerDigits = static_cast<int>(integerPart.count(u'0'));
  const int requiredDecimals = static_cast<int>(fractionPart.count(u'0'));
  const int decimals = requiredDecimals + static_cast<int>(fractionPart.count(u'#'));

  Digits digits = RoundedDigits(value, decimals);
  const bool zero = AllZero(digits.integer) && AllZero(digits.fraction);
  while (static_cast<int>(digits.fraction.size()) > requiredDecimals && digits.fraction.back() == '0')
    digits.fraction.pop_back();
  std::string integer = digits.integer == "0" ? std::string() : digits.integer;
  if (static_cast<int>(integer.size()) < minIntegerDigits)
    integer.insert(0, static_cast<size_t>(minIntegerDigits) - integer.size(), '0');
  if (grouping) integer = Grouped(integer);

  std::string number;
  if (value < 0 && !zero) number += '-';
  number += integer;
  if (!digits.fraction.empty()) number += '.' + digits.fraction;
  return prefix + QString::fromLatin1(number.data(), static_cast<qsizetype>(number.size())) + suffix;
}

}  // namespace velmar
