#include "shell/ScriptLine.h"

#include "shell/ScriptError.h"

namespace velmar {

namespace {

bool IsBlank(QChar c) { return c == u' ' || c == u'\t'; }

}  // namespace

QStringList ScriptLine::Split(const QString& line) {
  QString text = line;
  if (text.endsWith(u'\r')) text.chop(1);

  QStringList words;
  const qsizetype length = text.size();
  qsizetype i = 0;
  while (i < length && IsBlank(text[i])) ++i;
  if (i < length && text[i] == u'#') return words;

  while (i < length) {
    if (IsBlank(text[i])) {
      ++i;
      continue;
    }
    const qsizetype start = i;
    if (text[i] != u'"') {
      while (i < length && !IsBlank(text[i])) ++i;
      words.append(text.mid(start, i - start));
      continue;
    }

    // A quoted word.
    QString word;
    ++i;
    bool closed = false;
    while (i < length) {
      const QChar c = text[i];
      if (c == u'"') {
        closed = true;
        ++i;
        break;
      }
      if (c != u'\\') {
        word.append(c);
        ++i;
        continue;
      }
      if (i + 1 >= length)
        throw ScriptError(QStringLiteral("unterminated quote (the line ends after a backslash)"));
      const QChar e = text[i + 1];
      if (e == u'"' || e == u'\\') word.append(e);
      else if (e == u'r') word.append(u'\r');
      else if (e == u'n') word.append(u'\n');
      else if (e == u't') word.append(u'\t');
      else throw ScriptError(QStringLiteral("unknown escape \\%1 in a quoted word (use \\\" \\\\ \\r \\n \\t)").arg(e));
      i += 2;
    }
    if (!closed)
      throw ScriptError(QStringLiteral("unterminated quote in word starting at column %1").arg(start + 1));
    if (i < length && !IsBlank(text[i]))
      throw ScriptError(QStringLiteral("text after the closing quote at column %1 (put a blank between words)").arg(i));
    words.append(word);
  }
  return words;
}

}  // namespace velmar
