#include "shell/Netrc.h"

#include <QDir>
#include <QFile>
#include <QStringList>

#include <sys/stat.h>

namespace velmar {

namespace {

// The tokens of the text, with macdef bodies left out. A token may be written in double
// quotes, with backslash escapes, to hold blanks.
QStringList Tokens(const QString& text) {
  QStringList tokens;
  qsizetype i = 0;
  const qsizetype n = text.size();
  while (i < n) {
    if (text[i].isSpace()) {
      ++i;
      continue;
    }
    QString token;
    if (text[i] == u'"') {
      for (++i; i < n && text[i] != u'"'; ++i) {
        if (text[i] == u'\\' && i + 1 < n) ++i;
        token += text[i];
      }
      ++i;
    } else {
      for (; i < n && !text[i].isSpace(); ++i) {
        if (text[i] == u'\\' && i + 1 < n) ++i;
        token += text[i];
      }
    }
    tokens << token;
    if (token == u"macdef") {
      // The name on this line, then the body up to an empty line.
      const qsizetype blank = text.indexOf(QStringLiteral("\n\n"), i);
      i = blank < 0 ? n : blank + 2;
      tokens.removeLast();
    }
  }
  return tokens;
}

}  // namespace

std::optional<Netrc::Login> Netrc::Find(const QString& text, const QString& host) {
  const QStringList tokens = Tokens(text);
  std::optional<Login> found, fallback;
  std::optional<Login>* current = nullptr;
  for (qsizetype i = 0; i < tokens.size(); ++i) {
    const QString& token = tokens[i];
    const bool hasValue = i + 1 < tokens.size();
    if (token == u"machine" && hasValue) {
      const QString& name = tokens[++i];
      current = (!found && name.compare(host, Qt::CaseInsensitive) == 0) ? &found : nullptr;
      if (current) *current = Login{};
    } else if (token == u"default") {
      current = (!fallback) ? &fallback : nullptr;
      if (current) *current = Login{};
    } else if (token == u"login" && hasValue) {
      const QString& value = tokens[++i];
      if (current) (*current)->login = value;
    } else if (token == u"password" && hasValue) {
      const QString& value = tokens[++i];
      if (current) (*current)->password = value;
    } else if (token == u"account" && hasValue) {
      ++i;
    }
  }
  return found ? found : fallback;
}

std::optional<Netrc::Login> Netrc::Load(const QString& path, const QString& host, QString* warning) {
  const QByteArray name = QFile::encodeName(path);
  struct stat info {};
  if (::stat(name.constData(), &info) != 0) return std::nullopt;
  if (info.st_mode & (S_IRWXG | S_IRWXO)) {
    *warning = QStringLiteral("%1 is not used: others may read or change it (chmod 600 %1)").arg(path);
    return std::nullopt;
  }
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) {
    *warning = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
    return std::nullopt;
  }
  return Find(QString::fromUtf8(file.readAll()), host);
}

QString Netrc::DefaultPath() { return QDir::homePath() + QStringLiteral("/.netrc"); }

}  // namespace velmar
