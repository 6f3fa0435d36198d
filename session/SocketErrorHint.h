#pragma once
// What a socket failure of the control connection means and what to check, for the person at
// the other end of a front end. A session reports such a failure as "Error: " and the socket's
// code (with the TLS reason in brackets when certificates are checked); the report keeps that
// text, and a front end shows this hint beside it.
#include <QString>

namespace velmar {

class SocketErrorHint {
public:
  // The hint for an error report of a session connected (or connecting) to host:port, or an
  // empty string when the text is not a socket failure of that form.
  static QString For(const QString& errorText, const QString& host, qint32 port);
};

}  // namespace velmar
