// The listing-line parser: Unix lines, lines with a bracketed rights mask, and Windows
// lines, told apart by the text alone. It reads and writes no session state. Its odd
// results (a one-word Windows entry rejected, the size of a long Windows line taken for the
// time, names whose blank runs shrink to one) are the behaviour callers rely on.
#include "session/FTPSessionClass.h"

#include "listing/FTPParsedDirListLineClass.h"
#include "platform/Exceptions.h"
#include "platform/Strings.h"

namespace velmar {

namespace {

using Tokens = QStringList;
using Record = FTPParsedDirListLineClass;

bool IsMonth(const QString& token) {
  static const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  for (const char* month : kMonths)
    if (Same(token, QString::fromLatin1(month))) return true;
  return false;
}

// Tokens s to u joined by blanks; token u alone when s is u; empty when s is past u.
QString NameFrom(const Tokens& t, qsizetype s) {
  const qsizetype u = t.size() - 1;
  if (s == u) return t[u];
  QString name;
  for (qsizetype i = s; i <= u; ++i) name += QLatin1Char(' ') + At(t, i);
  return LTrim(name);
}

// The first non-empty token from i = from up to the last, or 0 when there is none.
qsizetype FirstNonEmpty(const Tokens& t, qsizetype from) {
  for (qsizetype i = from; i < t.size(); ++i)
    if (!t[i].isEmpty()) return i;
  return 0;
}

// The size is the first non-empty token before the month, down to token 2.
void SizeScan(const Tokens& t, qsizetype m, Record& r) {
  for (qsizetype i = m - 1; i >= 2; --i) {
    if (!t[i].isEmpty()) {
      r.Size = ToInt32(Val(t[i]));
      return;
    }
  }
}

void WindowsForm(const Tokens& t, Record& r) {
  r.ModDate = t[0];
  r.ModTime = t[2];  // token 1 holds the time, token 2 the size or <DIR>: kept as it is
  qsizetype n = 0;
  if (const qsizetype i = FirstNonEmpty(t, 3); i > 0) {
    if (Same(t[i], QStringLiteral("<dir>"))) {
      r.IsDir = true;
    } else {
      r.IsFile = true;
      r.Size = ToInt32(Val(t[i]));
    }
    n = i + 1;
  }
  qsizetype s = 0;
  if (r.IsFile || r.IsDir) s = FirstNonEmpty(t, n);
  r.Name = NameFrom(t, s);
}

void BracketForm(const Tokens& t, qsizetype m, Record& r) {
  r.Name = t.last();
  r.ModDate = t[m] + QLatin1Char(' ') + At(t, m + 1);
  r.ModTime = At(t, m + 2);
  if (t[0] == QStringLiteral("d"))
    r.IsDir = true;
  else if (t[0] == QStringLiteral("-"))
    r.IsFile = true;
  SizeScan(t, m, r);
}

// The date and time decide where the name starts. Only the first row can be met without a
// read past the last token, since a squeezed line has no empty token but at its end; the
// second row drops the day on purpose.
void UnixForm(const QString& line, const Tokens& t, qsizetype m, Record& r) {
  const QString blank = QStringLiteral(" ");
  qsizetype s = 0;
  if (!At(t, m + 1).isEmpty()) {
    if (!At(t, m + 2).isEmpty()) {
      r.ModDate = t[m] + blank + t[m + 1];
      r.ModTime = t[m + 2];
      s = m + 3;
    } else {
      r.ModDate = t[m] + blank + t[m + 2] + blank + At(t, m + 3);
      r.ModTime = QStringLiteral("00:00");
      s = m + 4;
    }
  } else if (!At(t, m + 3).isEmpty()) {
    r.ModDate = t[m] + blank + t[m + 2];
    r.ModTime = t[m + 3];
    s = m + 4;
  } else {
    r.ModDate = t[m] + blank + t[m + 2] + blank + At(t, m + 4);
    r.ModTime = QStringLiteral("00:00");
    s = m + 5;
  }
  r.Name = NameFrom(t, s);
  // The kind comes from the line as it was, in any case: a leading blank sets neither.
  const QString kind = Lowercase(Left(line, 1));
  if (kind == QStringLiteral("d")) {
    r.IsDir = true;
  } else if (kind == QStringLiteral("-")) {
    r.IsFile = true;
  } else if (kind == QStringLiteral("l")) {
    r.IsFile = true;
    r.IsDir = true;
  }
  r.Permissions = Mid(t[0], 2, 9);
  SizeScan(t, m, r);
}

}  // namespace

std::shared_ptr<FTPParsedDirListLineClass> FTPSessionClass::ParseDirListLine(const QString& line) {
  auto record = std::make_shared<Record>();
  const Tokens t = Split(Squeeze(line, QStringLiteral(" ")), QStringLiteral(" "));
  const qsizetype u = t.size() - 1;
  if (u <= 3) return record;
  // The first month wins, wherever it stands; one in token 0 counts as none.
  qsizetype m = 0;
  for (qsizetype i = 0; i <= u; ++i) {
    if (IsMonth(t[i])) {
      m = i;
      break;
    }
  }
  if (m == 0 || m > 25)
    WindowsForm(t, *record);
  else if (InStr(t[1], QStringLiteral("[")) > 0 && t[u - 1].isEmpty())
    BracketForm(t, m, *record);
  else
    UnixForm(line, t, m, *record);
  return record;
}

}  // namespace velmar
