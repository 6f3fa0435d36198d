#include "session/SocketErrorHint.h"

#include "platform/SocketCore.h"

#include <QRegularExpression>

namespace velmar {

QString SocketErrorHint::For(const QString& errorText, const QString& host, qint32 port) {
  static const QRegularExpression form(QStringLiteral("^Error: (\\d{3})( \\(.*\\))?$"),
                                       QRegularExpression::DotMatchesEverythingOption);
  const QRegularExpressionMatch match = form.match(errorText);
  if (!match.hasMatch()) return {};
  const QString server = QStringLiteral("%1:%2").arg(host).arg(port);
  switch (match.captured(1).toInt()) {
    case SocketCore::ErrorOpenFailed:
      return QStringLiteral("no connection could be opened to %1: check the address, and that this machine may "
                            "open network connections").arg(server);
    case SocketCore::ErrorPeerClosed:
      return QStringLiteral("%1 closed the connection: the server may be stopping, or it turned this client away "
                            "(too many connections, an address it does not serve); its log says why").arg(server);
    case SocketCore::ErrorNameNotResolved:
      return QStringLiteral("the name %1 could not be resolved: check its spelling, and the DNS settings of this "
                            "machine").arg(host);
    case SocketCore::ErrorConnectionRefused:
      return QStringLiteral("%1 refused the connection: is an FTP server listening on port %2 there? Check the "
                            "address, the port, and any firewall").arg(server).arg(port);
    case SocketCore::ErrorAddressInUse:
      return QStringLiteral("no local address or port was free for a connection to %1: too many connections may be "
                            "open on this machine").arg(server);
    case SocketCore::ErrorNetwork:
      return QStringLiteral("the connection to %1 was reset or the network failed: check the network and any "
                            "firewall on the way; the server's log may say more").arg(server);
    case SocketCore::ErrorInvalidPort:
      return QStringLiteral("%1 is not a port: a port is a number from 1 to 65535").arg(port);
    case SocketCore::ErrorTLS:
      return QStringLiteral("the TLS handshake with %1 failed: check that the server offers explicit TLS (AUTH TLS) "
                            "and, when its certificate is checked, that it is valid for %2 and signed by a trusted "
                            "authority").arg(server, host);
    default:
      return {};
  }
}

}  // namespace velmar
