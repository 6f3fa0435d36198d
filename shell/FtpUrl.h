#pragma once
// An FTP address of the one-line commands: ftp://[user[:password]@]host[:port]/path, or
// ftps:// for explicit TLS. User, password and path are percent-decoded (as UTF-8); an IPv6
// address is written in brackets. The path is the server path after the host, "/" when none.
#include <QString>
#include <optional>

namespace velmar {

class FtpUrl {
public:
  bool tls = false;
  std::optional<QString> user;
  std::optional<QString> password;
  QString host;
  int port = 21;
  QString path = QStringLiteral("/");

  // The parts of `text`, or nothing with the reason in `error`.
  static std::optional<FtpUrl> Parse(const QString& text, QString* error);
  // True when `text` starts like an address of this kind (ftp:// or ftps://).
  static bool Looks(const QString& text);

  // The folder part of the path, ending in "/" ("/pub/a.txt" -> "/pub/").
  QString Directory() const;
  // The last name of the path, empty when the path ends in "/".
  QString Name() const;
};

}  // namespace velmar
