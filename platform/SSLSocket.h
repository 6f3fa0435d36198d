#pragma once
// A TCP socket that can run TLS, from the start or switched on over a running
// connection (explicit TLS: ConnectionType 3, Secure set true after the server agreed).
// This side is always the TLS client, on a connection it opened or one it accepted. The
// server's certificate is accepted without verification unless VerifyPeer is set. A handshake
// may resume the session of another connection (servers can demand that their data
// connections resume the session of the control connection).
#include "platform/TCPSocket.h"

#include <memory>

struct ssl_st;
struct ssl_session_st;

namespace velmar {

class SSLSocket : public TCPSocket {
public:
  // 0: plain TCP. Any other value allows TLS; 3 is explicit TLS on a connection that
  // starts in the clear.
  qint32 ConnectionType = 0;
  // With VerifyPeer, the handshake checks the server's chain against TrustedCertificateFile
  // (PEM; empty: the system's trusted roots) and its name against PeerName (empty: Address),
  // as an IP address when the name is one. PeerName is also the name sent for SNI; an accepted
  // connection has no Address, so it needs PeerName for both.
  bool VerifyPeer = false;
  // With HandshakeOnRequest, each new connection of a secure socket waits, sending and reading
  // nothing, until RequestHandshake(): a protocol may have to let the peer get ready first. A
  // request made before the connection is up applies to it once it is; one made for a
  // connection ends with it.
  bool HandshakeOnRequest = false;
  QString TrustedCertificateFile;
  QString PeerName;

  SSLSocket();
  ~SSLSocket() override;

  bool Secure() const { return secure_; }
  // True starts the TLS handshake on a connected socket (or at connect time).
  void SetSecure(bool secure);
  void RequestHandshake();
  // True once the TLS handshake has finished.
  bool SSLConnected() const { return sslConnected_; }
  // The session of the finished handshake, for another connection to resume; null before
  // the handshake has finished. Under TLS 1.3 it is the one of the latest ticket received.
  std::shared_ptr<ssl_session_st> TLSSession() const;
  // The session that the next handshakes offer to resume (null: full handshakes).
  void ResumeTLSSession(std::shared_ptr<ssl_session_st> session) { resume_ = std::move(session); }
  // True when the finished handshake resumed the offered session.
  bool TLSSessionReused() const;
  // Why the last TLS failure of this connection happened, in words a person can act on
  // (e.g. "certificate verify failed: self-signed certificate"); empty when there was none.
  QString TLSFailureReason() const { return failureReason_; }

protected:
  IoResult TransportRead(char* into, qint64 capacity) override;
  IoResult TransportWrite(const char* from, qint64 count) override;
  bool TransportHasBufferedInput() const override;
  bool TransportHandshaking() const override { return (ssl_ != nullptr && !sslConnected_) || waitingForRequest_; }
  void TransportContinueHandshake() override;
  void TransportConnected() override;
  void TransportClosing() override;

private:
  void StartHandshake();
  IoResult FromSslError(int result);
  QString ExpectedName() const;
  // The reason of a failure that OpenSSL has just reported on ssl_ (before its errors are cleared).
  QString DescribeFailure(bool handshaking) const;
  void FreeSsl();

  bool secure_ = false;
  bool sslConnected_ = false;
  bool handshakeRequested_ = false;
  bool waitingForRequest_ = false;
  ssl_st* ssl_ = nullptr;
  std::shared_ptr<ssl_session_st> resume_;
  QString failureReason_;
};

}  // namespace velmar
