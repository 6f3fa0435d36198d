#include "platform/SSLSocket.h"

#include <QHostAddress>

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <cerrno>

namespace velmar {

namespace {

// One client context for the process. Certificates are not verified (see the header).
SSL_CTX* ClientContext() {
  static SSL_CTX* context = [] {
    SSL_CTX* made = SSL_CTX_new(TLS_client_method());
    SSL_CTX_set_verify(made, SSL_VERIFY_NONE, nullptr);
    SSL_CTX_set_min_proto_version(made, TLS1_2_VERSION);
    // Many servers close without close_notify; that is an end of data, not an attack
    // on a control connection whose replies are framed by lines.
    SSL_CTX_set_options(made, SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_mode(made, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    return made;
  }();
  return context;
}

}  // namespace

SSLSocket::SSLSocket() = default;

SSLSocket::~SSLSocket() {
  // SocketCore's destructor closes the descriptor; the TLS state must go first.
  FreeSsl();
}

void SSLSocket::SetSecure(bool secure) {
  secure_ = secure;
  if (secure_ && ConnectionType != 0 && ssl_ == nullptr && IsConnected()) StartHandshake();
}

void SSLSocket::TransportConnected() {
  FreeSsl();
  sslConnected_ = false;
  if (secure_ && ConnectionType != 0) StartHandshake();
}

void SSLSocket::StartHandshake() {
  ERR_clear_error();
  ssl_ = SSL_new(ClientContext());
  if (ssl_ == nullptr || SSL_set_fd(ssl_, Descriptor()) != 1) {
    Fail(ErrorTLS);
    return;
  }
  // Server name indication for host names (not for literal addresses).
  if (!Address.isEmpty() && QHostAddress(Address).isNull())
    SSL_set_tlsext_host_name(ssl_, Address.toUtf8().constData());
  SSL_set_connect_state(ssl_);
  TransportContinueHandshake();
}

void SSLSocket::TransportContinueHandshake() {
  if (ssl_ == nullptr || sslConnected_) return;
  ERR_clear_error();
  const int result = SSL_do_handshake(ssl_);
  if (result == 1) {
    sslConnected_ = true;
    WatchWrite(false);
    WatchRead(true);
    ResumeTransfer();
    return;
  }
  switch (SSL_get_error(ssl_, result)) {
    case SSL_ERROR_WANT_READ:
      WatchWrite(false);
      WatchRead(true);
      return;
    case SSL_ERROR_WANT_WRITE:
      WatchWrite(true);
      return;
    default:
      Fail(ErrorTLS);
      return;
  }
}

SocketCore::IoResult SSLSocket::TransportRead(char* into, qint64 capacity) {
  if (ssl_ == nullptr) return SocketCore::TransportRead(into, capacity);
  ERR_clear_error();
  const int result = SSL_read(ssl_, into, static_cast<int>(std::min<qint64>(capacity, 1 << 30)));
  if (result > 0) return {IoStatus::Done, result};
  return FromSslError(result);
}

SocketCore::IoResult SSLSocket::TransportWrite(const char* from, qint64 count) {
  if (ssl_ == nullptr) return SocketCore::TransportWrite(from, count);
  ERR_clear_error();
  const int result = SSL_write(ssl_, from, static_cast<int>(std::min<qint64>(count, 1 << 30)));
  if (result > 0) return {IoStatus::Done, result};
  return FromSslError(result);
}

SocketCore::IoResult SSLSocket::FromSslError(int result) {
  const int savedErrno = errno;
  switch (SSL_get_error(ssl_, result)) {
    case SSL_ERROR_WANT_READ:
      return {IoStatus::WouldBlock};
    case SSL_ERROR_WANT_WRITE:
      return {IoStatus::WouldBlock, 0, 0, true};
    case SSL_ERROR_ZERO_RETURN:
      return {IoStatus::Closed};
    case SSL_ERROR_SYSCALL:
      if (savedErrno == ECONNRESET || savedErrno == EPIPE) return {IoStatus::Failed, 0, ErrorNetwork};
      if (result == 0 || savedErrno == 0) return {IoStatus::Closed};
      return {IoStatus::Failed, 0, ErrorNetwork};
    default:
      return {IoStatus::Failed, 0, ErrorTLS};
  }
}

bool SSLSocket::TransportHasBufferedInput() const { return ssl_ != nullptr && sslConnected_ && SSL_pending(ssl_) > 0; }

void SSLSocket::TransportClosing() {
  if (ssl_ != nullptr && sslConnected_) {
    // A polite close_notify; the socket is non-blocking, so this never waits.
    ERR_clear_error();
    SSL_shutdown(ssl_);
  }
  FreeSsl();
}

void SSLSocket::FreeSsl() {
  if (ssl_ == nullptr) return;
  SSL_free(ssl_);
  ssl_ = nullptr;
  sslConnected_ = false;
  ERR_clear_error();
}

}  // namespace velmar
