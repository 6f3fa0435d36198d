#include "shell/FtpUrl.h"

#include <QByteArray>

namespace velmar {

namespace {

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// %XX sequences to bytes, the bytes read as UTF-8. A broken sequence is refused rather than
// kept, so that a typing mistake never reaches the server as a different name.
std::optional<QString> Decode(const QString& text, const char* what, QString* error) {
  const QByteArray in = text.toUtf8();
  QByteArray out;
  for (qsizetype i = 0; i < in.size(); ++i) {
    if (in[i] != '%') {
      out += in[i];
      continue;
    }
    const int high = i + 2 < in.size() ? HexValue(in[i + 1]) : -1;
    const int low = i + 2 < in.size() ? HexValue(in[i + 2]) : -1;
    if (high < 0 || low < 0) {
      *error = QStringLiteral("bad percent escape in the %1 of the address").arg(QLatin1String(what));
      return std::nullopt;
    }
    out += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return QString::fromUtf8(out);
}

}  // namespace

bool FtpUrl::Looks(const QString& text) {
  return text.startsWith(u"ftp://", Qt::CaseInsensitive) || text.startsWith(u"ftps://", Qt::CaseInsensitive);
}

std::optional<FtpUrl> FtpUrl::Parse(const QString& text, QString* error) {
  FtpUrl url;
  QString rest;
  if (text.startsWith(u"ftp://", Qt::CaseInsensitive)) {
    rest = text.mid(6);
  } else if (text.startsWith(u"ftps://", Qt::CaseInsensitive)) {
    url.tls = true;
    rest = text.mid(7);
  } else {
    *error = QStringLiteral("'%1' is not an ftp:// or ftps:// address").arg(text);
    return std::nullopt;
  }
  const qsizetype slash = rest.indexOf(u'/');
  QString authority = slash < 0 ? rest : rest.left(slash);
  if (slash >= 0) {
    const auto path = Decode(rest.mid(slash), "path", error);
    if (!path) return std::nullopt;
    url.path = *path;
  }
  // The password may hold '@' when it is escaped; the last '@' ends the user part.
  const qsizetype at = authority.lastIndexOf(u'@');
  if (at >= 0) {
    const QString userInfo = authority.left(at);
    authority = authority.mid(at + 1);
    const qsizetype colon = userInfo.indexOf(u':');
    const auto user = Decode(colon < 0 ? userInfo : userInfo.left(colon), "user", error);
    if (!user) return std::nullopt;
    if (user->isEmpty()) {
      *error = QStringLiteral("empty user name in the address");
      return std::nullopt;
    }
    url.user = *user;
    if (colon >= 0) {
      const auto password = Decode(userInfo.mid(colon + 1), "password", error);
      if (!password) return std::nullopt;
      url.password = *password;
    }
  }
  QString portText;
  if (authority.startsWith(u'[')) {
    const qsizetype close = authority.indexOf(u']');
    if (close < 0) {
      *error = QStringLiteral("unclosed [ in the host of the address");
      return std::nullopt;
    }
    url.host = authority.mid(1, close - 1);
    const QString after = authority.mid(close + 1);
    if (!after.isEmpty() && !after.startsWith(u':')) {
      *error = QStringLiteral("text after ] in the host of the address");
      return std::nullopt;
    }
    if (!after.isEmpty()) portText = after.mid(1);
    if (after == u":") portText = QStringLiteral("");
  } else {
    const qsizetype colon = authority.indexOf(u':');
    url.host = colon < 0 ? authority : authority.left(colon);
    if (colon >= 0) portText = authority.mid(colon + 1);
    if (colon >= 0 && portText.isEmpty()) {
      *error = QStringLiteral("empty port in the address");
      return std::nullopt;
    }
  }
  if (url.host.isEmpty()) {
    *error = QStringLiteral("no host in the address '%1'").arg(text);
    return std::nullopt;
  }
  if (!portText.isNull()) {
    bool ok = false;
    url.port = portText.toInt(&ok, 10);
    if (!ok || url.port < 1 || url.port > 65535 || portText.startsWith(u'+')) {
      *error = QStringLiteral("'%1' is not a port (1 to 65535)").arg(portText);
      return std::nullopt;
    }
  }
  return url;
}

QString FtpUrl::Directory() const { return path.left(path.lastIndexOf(u'/') + 1); }

QString FtpUrl::Name() const { return path.mid(path.lastIndexOf(u'/') + 1); }

}  // namespace velmar
