// The listing-line parser: Unix lines, lines with a bracketed rights mask, and Windows
// lines, told apart by the text alone. It reads and writes no session state. Its odd
// results (a one-word Windows entry rejected, the size of a long Windows line taken for the
// time, names whose blank runs shrink to one) are the behaviour callers rely on.
#include "session/FTPSessionClass.h"

#include "listing/FTPParsedDirListLineClass.h"
#include "platform/Exceptions.h"
#include "platform/Strings.h"

#include <QVarLengthArray>

namespace velmar {

namespace {

// The tokens are views into the line: a listing of many lines is parsed without building a
// squeezed copy or a string per token.
using Tokens = QVarLengthArray<QStringView, 24>;
using Record = FTPParsedDirListLineClass;

// The pieces of the line split at blanks after each run of blanks has shrunk to one blank:
// an empty piece for a leading run and for a trailing one, a piece for each run of other
// characters between.
void Tokenize(QStringView line, Tokens& t) {
  const qsizetype n = line.size();
  qsizetype start = 0;
  for (;;) {
    qsizetype end = start;
    while (end < n && line[end] != u' ') ++end;
    t.append(line.sliced(start, end - start));
    if (end == n) return;
    while (end < n && line[end] == u' ') ++end;
    start = end;
  }
}

bool IsMonth(QStringView token) {
  static const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  if (token.size() != 3) return false;
  for (const char* month : kMonths)
    if (token.compare(QLatin1StringView(month, 3), Qt::CaseInsensitive) == 0) return true;
  return false;
}

QString Joined(QStringView a, QStringView b) {
  QString joined;
  joined.reserve(a.size() + 1 + b.size());
  return joined.append(a).append(u' ').append(b);
}
QString Joined(QStringView a, QStringView b, QStringView c) { return Joined(a, b).append(u' ').append(c); }

// Tokens s to u joined by blanks; token u alone when s is u; empty when s is past u.
QString NameFrom(const Tokens& t, qsizetype s) {
  const qsizetype u = t.size() - 1;
  if (s == u) return t[u].toString();
  QString name;
  for (qsizetype i = s; i <= u; ++i) name.append(u' ').append(At(t, i));
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
  r.ModDate = t[0].toString();
  r.ModTime = t[2].toString();  // token 1 holds the time, token 2 the size or <DIR>: kept as it is
  qsizetype n = 0;
  if (const qsizetype i = FirstNonEmpty(t, 3); i > 0) {
    if (Same(t[i], u"<dir>")) {
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
  r.Name = t.back().toString();
  r.ModDate = Joined(t[m], At(t, m + 1));
  r.ModTime = At(t, m + 2).toString();
  if (t[0] == u"d")
    r.IsDir = true;
  else if (t[0] == u"-")
    r.IsFile = true;
  SizeScan(t, m, r);
}

// The date and time decide where the name starts. Only the first row can be met without a
// read past the last token, since a squeezed line has no empty token but at its end; the
// second row drops the day on purpose.
void UnixForm(QStringView line, const Tokens& t, qsizetype m, Record& r) {
  qsizetype s = 0;
  if (!At(t, m + 1).isEmpty()) {
    if (!At(t, m + 2).isEmpty()) {
      r.ModDate = Joined(t[m], t[m + 1]);
      r.ModTime = t[m + 2].toString();
      s = m + 3;
    } else {
      r.ModDate = Joined(t[m], t[m + 2], At(t, m + 3));
      r.ModTime = QStringLiteral("00:00");
      s = m + 4;
    }
  } else if (!At(t, m + 3).isEmpty()) {
    r.ModDate = Joined(t[m], t[m + 2]);
    r.ModTime = t[m + 3].toString();
    s = m + 4;
  } else {
    r.ModDate = Joined(t[m], t[m + 2], At(t, m + 4));
    r.ModTime = QStringLiteral("00:00");
    s = m + 5;
  }
  r.Name = NameFrom(t, s);
  // The kind comes from the line as it was, in any case: a leading blank sets neither.
  const QString kind = Lowercase(line.left(1).toString());
  if (kind == u"d") {
    r.IsDir = true;
  } else if (kind == u"-") {
    r.IsFile = true;
  } else if (kind == u"l") {
    r.IsFile = true;
    r.IsDir = true;
  }
  // Characters 2 to 10 of the first token.
  if (t[0].size() > 1) r.Permissions = t[0].sliced(1, qMin<qsizetype>(9, t[0].size() - 1)).toString();
  SizeScan(t, m, r);
}

}  // namespace

std::shared_ptr<FTPParsedDirListLineClass> FTPSessionClass::ParseDirListLine(const QString& line) {
  auto record = std::make_shared<Record>();
  Tokens t;
  Tokenize(line, t);
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
  else if (t[1].contains(u'[') && t[u - 1].isEmpty())
    BracketForm(t, m, *record);
  else
    UnixForm(line, t, m, *record);
  return record;
}

}  // namespace velmar
