#pragma once
// The login of a host from a netrc file (~/.netrc): "machine NAME", "login", "password" and
// "default" entries, tokens separated by any blanks and line ends, "macdef" blocks (up to the
// next empty line) skipped, "account" and other tokens with a value passed over. The first
// entry for the host wins; "default" applies only when no entry names the host.
#include <QString>
#include <optional>

namespace velmar {

class Netrc {
public:
  struct Login {
    QString login;                    // empty when the entry names none
    std::optional<QString> password;  // nothing when the entry names none
  };

  // The entry for `host` in the text of a netrc file.
  static std::optional<Login> Find(const QString& text, const QString& host);

  // The entry for `host` in the file at `path`. A file that others may read is not used: its
  // passwords are no secret any more, and a shared file may have been put there by someone
  // else; `warning` then tells why. A missing file is no entry and no warning.
  static std::optional<Login> Load(const QString& path, const QString& host, QString* warning);

  // $HOME/.netrc.
  static QString DefaultPath();
};

}  // namespace velmar
