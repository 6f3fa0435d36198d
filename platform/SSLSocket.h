#pragma once
// A TCP socket that can run TLS, from the start or switched on over a running
// connection (explicit TLS: ConnectionType 3, Secure set true after the server agreed).
// The server's certificate is accepted without verification: the session makes no
// demand of its own, and self-signed servers must work.
#include "platform/TCPSocket.h"

struct ssl_st;

namespace velmar {

class SSLSocket : public TCPSocket {
public:
  // 0: plain TCP. Any other value allows TLS; 3 is explicit TLS on a connection that
  // starts in the clear.
  qint32 ConnectionType = 0;

  SSLSocket();
  ~SSLSocket() override;

  bool Secure() const { return secure_; }
  // True starts the TLS handshake on a connected socket (or at connect time).
  void SetSecure(bool secure);
  // True once the TLS handshake has finished.
  bool SSLConnected() const { return sslConnected_; }

protected:
  IoResult TransportRead(char* into, qint64 capacity) override;
  IoResult TransportWrite(const char* from, qint64 count) override;
  bool TransportHasBufferedInput() const override;
  bool TransportHandshaking() const override { return ssl_ != nullptr && !sslConnected_; }
  void TransportContinueHandshake() override;
  void TransportConnected() override;
  void TransportClosing() override;

private:
  void StartHandshake();
  IoResult FromSslError(int result);
  void FreeSsl();

  bool secure_ = false;
  bool sslConnected_ = false;
  ssl_st* ssl_ = nullptr;
};

}  // namespace velmar
