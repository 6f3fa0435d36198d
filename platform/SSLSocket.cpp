#include "platform/SSLSocket.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QSocketNotifier>
#include <QTimer>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>
#include <map>
#include <set>

namespace velmar {

namespace {

SSL_CTX* NewClientContext() {
  SSL_CTX* made = SSL_CTX_new(TLS_client_method());
  if (made == nullptr) return nullptr;
  SSL_CTX_set_verify(made, SSL_VERIFY_NONE, nullptr);
  SSL_CTX_set_min_proto_version(made, TLS1_2_VERSION);
  // Many servers close without close_notify; that is an end of data, not an attack
  // on a control connection whose replies are framed by lines.
  SSL_CTX_set_options(made, SSL_OP_IGNORE_UNEXPECTED_EOF);
  SSL_CTX_set_mode(made, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  return made;
}

// One client context for the process that verifies nothing (see the header).
SSL_CTX* ClientContext() {
  static SSL_CTX* context = NewClientContext();
  return context;
}

// Contexts that verify, one per file of trusted certificates ("" for the system's roots),
// kept for the life of the process: reading the system's roots for every connection of a
// drop of hundreds would cost more than the transfers. A file that changed is read again.
// Null, with `reason` set, when the certificates cannot be read.
SSL_CTX* VerifyingContext(const QString& trustedFile, QString* reason) {
  struct Loaded {
    SSL_CTX* context;
    QDateTime modified;
  };
  // Never destroyed, like the contexts it holds: still reachable at the program's end.
  static auto& contexts = *new std::map<QString, Loaded>;
  const QDateTime modified = trustedFile.isEmpty() ? QDateTime() : QFileInfo(trustedFile).lastModified();
  const auto found = contexts.find(trustedFile);
  if (found != contexts.end() && found->second.modified == modified) return found->second.context;
  SSL_CTX* made = NewClientContext();
  const bool loaded = made != nullptr && (trustedFile.isEmpty() ? SSL_CTX_set_default_verify_paths(made) == 1
                                                                : SSL_CTX_load_verify_locations(
                                                                      made, QFile::encodeName(trustedFile).constData(),
                                                                      nullptr) == 1);
  ERR_clear_error();
  if (!loaded) {
    SSL_CTX_free(made);
    *reason = trustedFile.isEmpty() ? QStringLiteral("cannot read the system's trusted certificates")
                                    : QStringLiteral("cannot read trusted certificates from \"%1\"").arg(trustedFile);
    return nullptr;
  }
  SSL_CTX_set_verify(made, SSL_VERIFY_PEER, nullptr);
  // A context that an SSL still holds stays alive through its own reference count.
  if (found != contexts.end()) SSL_CTX_free(found->second.context);
  contexts[trustedFile] = {made, modified};
  return made;
}

struct Lingering {
  int fd;
  QSocketNotifier notifier;
  QTimer deadline;
  explicit Lingering(int kept) : fd(kept), notifier(kept, QSocketNotifier::Read) {}
  ~Lingering() { ::close(fd); }
};

// Every lingering socket, reachable until it is done (also at the program's end, where a leak
// checker would otherwise count one that still waits).
std::set<Lingering*>& LingeringSockets() {
  static auto* all = new std::set<Lingering*>;
  return *all;
}

// Keeps the socket of a closed TLS connection open, reading away whatever still comes, until
// the peer closes too (or 10 s have passed). Bytes that arrive after close() make the kernel
// answer with a reset, and a peer that gets a reset may drop what it has received and not yet
// read: the end of an upload. Under TLS 1.3 the peer's session tickets can come that late,
// after a client that only sends has finished.
void LingerUntilPeerCloses(int descriptor) {
  const int kept = ::dup(descriptor);
  if (kept < 0) return;
  ::shutdown(kept, SHUT_WR);  // the end of this side's bytes, after the close_notify
  auto* lingering = new Lingering(kept);
  LingeringSockets().insert(lingering);
  const auto finish = [lingering] {
    lingering->notifier.setEnabled(false);
    lingering->deadline.stop();
    QTimer::singleShot(0, [lingering] {
      LingeringSockets().erase(lingering);
      delete lingering;
    });
  };
  QObject::connect(&lingering->notifier, &QSocketNotifier::activated, [lingering, finish] {
    char discard[16 * 1024];
    ssize_t got;
    while ((got = ::recv(lingering->fd, discard, sizeof discard, MSG_DONTWAIT)) > 0) {
    }
    if (got == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) finish();
  });
  lingering->deadline.setSingleShot(true);
  QObject::connect(&lingering->deadline, &QTimer::timeout, finish);
  lingering->deadline.start(10000);
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
  failureReason_.clear();
  if (!secure_ || ConnectionType == 0) return;
  if (!HandshakeOnRequest || handshakeRequested_) {
    StartHandshake();
    return;
  }
  // Nothing moves before the request: a read would take the peer's bytes as plain data.
  waitingForRequest_ = true;
  WatchRead(false);
  WatchWrite(false);
}

void SSLSocket::RequestHandshake() {
  handshakeRequested_ = true;
  if (!waitingForRequest_ || !IsConnected()) return;
  waitingForRequest_ = false;
  StartHandshake();
}

QString SSLSocket::ExpectedName() const { return PeerName.isEmpty() ? Address : PeerName; }

std::shared_ptr<ssl_session_st> SSLSocket::TLSSession() const {
  if (ssl_ == nullptr || !sslConnected_) return nullptr;
  SSL_SESSION* session = SSL_get1_session(ssl_);
  if (session == nullptr) return nullptr;
  return std::shared_ptr<ssl_session_st>(session, SSL_SESSION_free);
}

bool SSLSocket::TLSSessionReused() const { return ssl_ != nullptr && sslConnected_ && SSL_session_reused(ssl_) == 1; }

void SSLSocket::StartHandshake() {
  ERR_clear_error();
  QString reason;
  SSL_CTX* context = VerifyPeer ? VerifyingContext(TrustedCertificateFile, &reason) : ClientContext();
  if (context != nullptr) ssl_ = SSL_new(context);
  if (ssl_ == nullptr || SSL_set_fd(ssl_, Descriptor()) != 1) {
    failureReason_ = reason.isEmpty() ? QStringLiteral("cannot start TLS") : reason;
    Fail(ErrorTLS);
    return;
  }
  const QString name = ExpectedName();
  const bool literalAddress = !QHostAddress(name).isNull();
  // Server name indication for host names (not for literal addresses).
  if (!name.isEmpty() && !literalAddress) SSL_set_tlsext_host_name(ssl_, name.toUtf8().constData());
  if (VerifyPeer) {
    X509_VERIFY_PARAM* checks = SSL_get0_param(ssl_);
    // No name would mean no name check at all: such a handshake is not started.
    const bool named = literalAddress ? X509_VERIFY_PARAM_set1_ip_asc(checks, name.toLatin1().constData()) == 1
                                      : X509_VERIFY_PARAM_set1_host(checks, name.toUtf8().constData(), 0) == 1;
    if (!named || name.isEmpty()) {
      failureReason_ = QStringLiteral("cannot check the certificate against the name \"%1\"").arg(name);
      Fail(ErrorTLS);
      return;
    }
  }
  if (resume_) SSL_set_session(ssl_, resume_.get());
  SSL_set_connect_state(ssl_);
  TransportContinueHandshake();
}

QString SSLSocket::DescribeFailure(bool handshaking) const {
  const long verified = ssl_ != nullptr ? SSL_get_verify_result(ssl_) : X509_V_OK;
  if (VerifyPeer && handshaking && verified != X509_V_OK) {
    QString text = QStringLiteral("certificate verify failed: ") + QString::fromUtf8(X509_verify_cert_error_string(verified));
    if (verified == X509_V_ERR_HOSTNAME_MISMATCH || verified == X509_V_ERR_IP_ADDRESS_MISMATCH)
      text += QStringLiteral(", expected \"%1\"").arg(ExpectedName());
    return text;
  }
  // The first error is the cause; later ones only say where it went up.
  const unsigned long error = ERR_peek_error();
  const char* words = error != 0 ? ERR_reason_error_string(error) : nullptr;
  if (words != nullptr) return QString::fromUtf8(words);
  return handshaking ? QStringLiteral("the connection ended during the TLS handshake")
                     : QStringLiteral("the TLS connection failed");
}

void SSLSocket::TransportContinueHandshake() {
  if (waitingForRequest_) {
    WatchRead(false);
    WatchWrite(false);
    return;
  }
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
      failureReason_ = DescribeFailure(true);
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
      failureReason_ = DescribeFailure(false);
      return {IoStatus::Failed, 0, ErrorTLS};
  }
}

bool SSLSocket::TransportHasBufferedInput() const { return ssl_ != nullptr && sslConnected_ && SSL_pending(ssl_) > 0; }

void SSLSocket::TransportClosing() {
  // The end of a connection (not of a listening socket that has accepted one) ends its request.
  if (IsConnected()) handshakeRequested_ = waitingForRequest_ = false;
  linger hard{};
  socklen_t length = sizeof hard;
  const bool aborting = ::getsockopt(Descriptor(), SOL_SOCKET, SO_LINGER, &hard, &length) == 0 && hard.l_onoff != 0 &&
                        hard.l_linger == 0;
  // An abort must read as a failure: no close_notify, which would tell the peer that all came.
  if (ssl_ != nullptr && sslConnected_ && !aborting) {
    // A polite close_notify; the socket is non-blocking, so this never waits.
    ERR_clear_error();
    SSL_shutdown(ssl_);
    LingerUntilPeerCloses(Descriptor());
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
