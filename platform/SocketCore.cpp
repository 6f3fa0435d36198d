#include "platform/SocketCore.h"

#include <QHostAddress>
#include <QHostInfo>
#include <QHash>
#include <QSet>
#include <QSocketNotifier>

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace velmar {

namespace {

// How much one readiness event reads at most, and how much received data may wait
// unread before the socket stops reading (the peer is then held back by TCP).
constexpr qint64 kReadChunk = 256 * 1024;
constexpr qint64 kMaxUnread = 8 * 1024 * 1024;
// How many rounds of events one delivery runs before it lets the event loop go on.
constexpr int kDeliveryRounds = 64;

qint32 ConnectErrorCode(int error) {
  switch (error) {
    case ECONNREFUSED:
      return SocketCore::ErrorConnectionRefused;
    case EADDRINUSE:
    case EADDRNOTAVAIL:
      return SocketCore::ErrorAddressInUse;
    case ECONNRESET:  // accepted and reset at once: a reset, as it would be a moment later
      return SocketCore::ErrorNetwork;
    default:
      return SocketCore::ErrorOpenFailed;
  }
}

QString LocalAddressOf(int fd) {
  sockaddr_storage storage{};
  socklen_t length = sizeof storage;
  if (::getsockname(fd, reinterpret_cast<sockaddr*>(&storage), &length) != 0) return {};
  QHostAddress address(reinterpret_cast<sockaddr*>(&storage));
  bool isV4 = false;
  const quint32 v4 = address.toIPv4Address(&isV4);  // a v4-mapped v6 address reads as v4
  return isV4 ? QHostAddress(v4).toString() : address.toString();
}

}  // namespace

namespace {
// Every socket object alive in the process, for CloseAll.
QSet<SocketCore*>& LiveSockets() {
  static QSet<SocketCore*> sockets;
  return sockets;
}
}  // namespace

SocketCore::SocketCore() { LiveSockets().insert(this); }

SocketCore::~SocketCore() {
  LiveSockets().remove(this);
  LeaveOpening();
  CloseDescriptor();
}

void SocketCore::CloseAll() {
  // Closing may release sessions and with them further sockets (destroyed later, by the
  // event loop), so work on a copy.
  const QSet<SocketCore*> sockets = LiveSockets();
  for (SocketCore* socket : sockets)
    if (LiveSockets().contains(socket)) socket->Close();
}

bool SocketCore::IsConnected() const { return state_ == State::Connected; }

bool SocketCore::IsListening() const { return state_ == State::Listening; }

bool SocketCore::IsOpen() const { return state_ != State::Idle && state_ != State::Closed; }

void SocketCore::Connect() {
  ResetForNewConnection();
  HoldOwner();
  if (Port <= 0 || Port > 65535) {
    Fail(ErrorInvalidPort);
    return;
  }
  QHostAddress address;
  if (address.setAddress(Address)) {
    StartConnect(address);
    return;
  }
  state_ = State::Resolving;
  lookupId_ = QHostInfo::lookupHost(Address, this, [this](const QHostInfo& info) {
    lookupId_ = -1;
    if (state_ != State::Resolving) return;
    const QList<QHostAddress> found = info.addresses();
    if (info.error() != QHostInfo::NoError || found.isEmpty()) {
      Fail(ErrorNameNotResolved);
      return;
    }
    // An IPv4 address first: the data connection's PORT command can only name one.
    QHostAddress chosen = found.first();
    for (const QHostAddress& candidate : found)
      if (candidate.protocol() == QAbstractSocket::IPv4Protocol) {
        chosen = candidate;
        break;
      }
    StartConnect(chosen);
  });
}

namespace {
// Connections being opened per peer, and the sockets waiting for a turn, in order.
QHash<QString, int>& OpeningPerPeer() {
  static QHash<QString, int> opening;
  return opening;
}
QHash<QString, QList<SocketCore*>>& WaitingPerPeer() {
  static QHash<QString, QList<SocketCore*>> waiting;
  return waiting;
}
}  // namespace

void SocketCore::StartConnect(const QHostAddress& address) {
  const QString peer = address.toString() + QLatin1Char(' ') + QString::number(Port);
  if (OpeningPerPeer().value(peer) >= kMaxOpeningPerPeer) {
    state_ = State::Resolving;  // not connecting yet: waiting for a turn
    waitingPeer_ = peer;
    waitingAddress_ = address;
    WaitingPerPeer()[peer].append(this);
    WaitingForTurn(true);
    return;
  }
  openingPeer_ = peer;
  ++OpeningPerPeer()[peer];
  ConnectNow(address);
}

void SocketCore::LeaveOpening() {
  if (!waitingPeer_.isEmpty()) {
    WaitingPerPeer()[waitingPeer_].removeOne(this);
    if (WaitingPerPeer()[waitingPeer_].isEmpty()) WaitingPerPeer().remove(waitingPeer_);
    waitingPeer_.clear();
  }
  if (openingPeer_.isEmpty()) return;
  const QString peer = openingPeer_;
  openingPeer_.clear();
  if (--OpeningPerPeer()[peer] <= 0) OpeningPerPeer().remove(peer);
  AdmitWaiting(peer);
}

void SocketCore::AdmitWaiting(const QString& peer) {
  auto waiting = WaitingPerPeer().find(peer);
  while (waiting != WaitingPerPeer().end() && !waiting->isEmpty() &&
         OpeningPerPeer().value(peer) < kMaxOpeningPerPeer) {
    SocketCore* next = waiting->takeFirst();
    if (waiting->isEmpty()) WaitingPerPeer().erase(waiting);
    next->waitingPeer_.clear();
    next->openingPeer_ = peer;
    ++OpeningPerPeer()[peer];
    next->WaitingForTurn(false);
    // Connecting may fail at once and admit the next one: look the queue up afresh.
    next->ConnectNow(next->waitingAddress_);
    waiting = WaitingPerPeer().find(peer);
  }
}

void SocketCore::ConnectNow(const QHostAddress& address) {
  sockaddr_storage storage{};
  socklen_t length = 0;
  if (address.protocol() == QAbstractSocket::IPv6Protocol) {
    auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
    v6->sin6_family = AF_INET6;
    v6->sin6_port = htons(static_cast<quint16>(Port));
    const Q_IPV6ADDR raw = address.toIPv6Address();
    std::memcpy(&v6->sin6_addr, &raw, sizeof raw);
    v6->sin6_scope_id = address.scopeId().toUInt();
    length = sizeof *v6;
  } else {
    auto* v4 = reinterpret_cast<sockaddr_in*>(&storage);
    v4->sin_family = AF_INET;
    v4->sin_port = htons(static_cast<quint16>(Port));
    v4->sin_addr.s_addr = htonl(address.toIPv4Address());
    length = sizeof *v4;
  }
  const int fd = ::socket(storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    Fail(ErrorOpenFailed);
    return;
  }
  AdoptDescriptor(fd, State::Connecting);
  if (::connect(fd, reinterpret_cast<sockaddr*>(&storage), length) == 0) {
    FinishConnect();
    return;
  }
  if (errno != EINPROGRESS) {
    Fail(ConnectErrorCode(errno));
    return;
  }
  WatchWrite(true);  // writable once the connection is up or has failed
}

void SocketCore::FinishConnect() {
  int error = 0;
  socklen_t length = sizeof error;
  ::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error, &length);
  if (error != 0) {
    Fail(ConnectErrorCode(error));
    return;
  }
  state_ = State::Connected;
  localAddress_ = LocalAddressOf(fd_);
  WatchWrite(false);
  WatchRead(true);
  TransportConnected();
  pendingConnected_ = true;
  if (!TransportHandshaking()) FlushOutgoing();
  ScheduleDelivery();
}

void SocketCore::Listen() {
  if (state_ == State::Listening && listeningPort_ == Port) return;
  ResetForNewConnection();
  HoldOwner();
  if (Port < 0 || Port > 65535) {
    Fail(ErrorInvalidPort);
    return;
  }
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    Fail(ErrorOpenFailed);
    return;
  }
  const int one = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<quint16>(Port));
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  AdoptDescriptor(fd, State::Listening);
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(fd, 1) != 0) {
    Fail(errno == EADDRINUSE ? ErrorAddressInUse : ErrorOpenFailed);
    return;
  }
  listeningPort_ = Port;
  WatchRead(true);
}

void SocketCore::Accept() {
  const int connection = ::accept4(fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (connection < 0) {
    if (errno == EAGAIN || errno == EWOULDBLOCK || errno == ECONNABORTED || errno == EINTR) return;
    Fail(ErrorOpenFailed);
    return;
  }
  // One incoming connection is all a listening socket waits for.
  CloseDescriptor();
  listeningPort_ = -1;
  AdoptDescriptor(connection, State::Connected);
  localAddress_ = LocalAddressOf(connection);
  WatchRead(true);
  TransportConnected();
  pendingConnected_ = true;
  ScheduleDelivery();
}

void SocketCore::Write(const QByteArray& bytes) {
  if (state_ == State::Closed || state_ == State::Idle || state_ == State::Listening) return;
  if (outgoingSent_ == outgoing_.size()) {
    outgoing_.clear();
    outgoingSent_ = 0;
  }
  outgoing_.append(bytes);
  pendingSendComplete_ = true;
  // The bytes leave after the running handler of this socket, or from the event loop.
  if (InsideHandler())
    flushAfterHandler_ = true;
  else
    ScheduleDelivery();
}

void SocketCore::AfterDispatch() {
  if (!flushAfterHandler_) return;
  flushAfterHandler_ = false;
  if (state_ != State::Connected || TransportHandshaking()) return;
  FlushOutgoing();
  if (HasPendingEvents()) ScheduleDelivery();
}

QByteArray SocketCore::ReadAll() {
  QByteArray taken = std::move(incoming_);
  incoming_ = QByteArray();
  if (readPaused_ && state_ == State::Connected) {
    readPaused_ = false;
    WatchRead(true);
  }
  return taken;
}

void SocketCore::Close() {
  if (lookupId_ >= 0) {
    QHostInfo::abortHostLookup(lookupId_);
    lookupId_ = -1;
  }
  LeaveOpening();
  CloseDescriptor();
  state_ = State::Closed;
  listeningPort_ = -1;
  outgoing_.clear();
  outgoingSent_ = 0;
  pendingConnected_ = pendingData_ = pendingSendComplete_ = pendingError_ = false;
  ReleaseOwner();
}

void SocketCore::Abort() {
  if (fd_ >= 0) {
    const linger hard{1, 0};
    ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  }
  Close();
}

void SocketCore::Detach() {
  Close();
  EventSource::Detach();
}

void SocketCore::Poll() {
  if (InsideHandler()) {
    // The events it could cause are delivered after the handler anyway: only send now.
    if (state_ == State::Connected && !TransportHandshaking()) FlushOutgoing();
    if (state_ == State::Connected && TransportHandshaking()) TransportContinueHandshake();
    if (HasPendingEvents()) ScheduleDelivery();
    return;
  }
  if (fd_ >= 0) {
    pollfd ready{fd_, POLLIN | POLLOUT, 0};
    ::poll(&ready, 1, 0);
    if (state_ == State::Connecting && (ready.revents & (POLLOUT | POLLERR | POLLHUP))) {
      FinishConnect();
    } else if (state_ == State::Listening && (ready.revents & POLLIN)) {
      Accept();
    } else if (state_ == State::Connected) {
      if (TransportHandshaking()) {
        TransportContinueHandshake();
      } else {
        FlushOutgoing();
        if ((ready.revents & (POLLIN | POLLHUP | POLLERR)) || TransportHasBufferedInput()) ReadAvailable();
      }
    }
  }
  if (HasPendingEvents()) Deliver();
}

bool SocketCore::HasPendingEvents() const {
  return pendingConnected_ || (pendingData_ && !incoming_.isEmpty()) || pendingError_ ||
         (pendingSendComplete_ && BytesLeftToSend() == 0);
}

void SocketCore::OnReadable() {
  if (state_ == State::Listening) {
    Accept();
    return;
  }
  if (state_ != State::Connected) return;
  if (TransportHandshaking()) {
    TransportContinueHandshake();
    return;
  }
  ReadAvailable();
  Deliver();
}

void SocketCore::OnWritable() {
  if (state_ == State::Connecting) {
    FinishConnect();
    return;
  }
  if (state_ != State::Connected) return;
  if (TransportHandshaking()) {
    TransportContinueHandshake();
    return;
  }
  FlushOutgoing();
  // A transport that had to wait for writability in the middle of a read reads now.
  if (TransportHasBufferedInput()) ReadAvailable();
  Deliver();
}

void SocketCore::ReadAvailable() {
  qint64 readNow = 0;
  // One allocation for the whole round: growing the buffer piece by piece would copy it.
  if (incoming_.capacity() - incoming_.size() < kReadChunk) incoming_.reserve(incoming_.size() + kReadChunk);
  while (state_ == State::Connected && readNow < kReadChunk) {
    if (incoming_.size() >= kMaxUnread) {
      readPaused_ = true;
      WatchRead(false);
      return;
    }
    const qint64 oldSize = incoming_.size();
    const qint64 room = kReadChunk - readNow;
    incoming_.resize(oldSize + room);
    const IoResult result = TransportRead(incoming_.data() + oldSize, room);
    incoming_.resize(oldSize + (result.status == IoStatus::Done ? result.bytes : 0));
    switch (result.status) {
      case IoStatus::Done:
        readNow += result.bytes;
        pendingData_ = true;
        if (!openingPeer_.isEmpty()) LeaveOpening();  // the peer has been heard from
        continue;
      case IoStatus::WouldBlock:
        if (result.wantsWrite) WatchWrite(true);
        return;
      case IoStatus::Closed:
        Fail(ErrorPeerClosed);
        return;
      case IoStatus::Failed:
        Fail(result.errorCode ? result.errorCode : ErrorNetwork);
        return;
    }
  }
}

void SocketCore::FlushOutgoing() {
  while (state_ == State::Connected && outgoingSent_ < outgoing_.size()) {
    const IoResult result =
        TransportWrite(outgoing_.constData() + outgoingSent_, outgoing_.size() - outgoingSent_);
    if (result.status == IoStatus::Done) {
      outgoingSent_ += result.bytes;
      if (!openingPeer_.isEmpty()) LeaveOpening();  // this side speaks first
      continue;
    }
    if (result.status == IoStatus::WouldBlock) {
      WatchWrite(true);
      return;
    }
    Fail(result.status == IoStatus::Closed ? ErrorNetwork : (result.errorCode ? result.errorCode : ErrorNetwork));
    return;
  }
  if (state_ == State::Connected && outgoingSent_ == outgoing_.size()) {
    outgoing_.clear();
    outgoingSent_ = 0;
    if (!TransportHasBufferedInput()) WatchWrite(false);
  }
}

void SocketCore::ResumeTransfer() {
  FlushOutgoing();
  ReadAvailable();
  ScheduleDelivery();
}

SocketCore::IoResult SocketCore::TransportRead(char* into, qint64 capacity) {
  for (;;) {
    const ssize_t got = ::recv(fd_, into, static_cast<size_t>(capacity), 0);
    if (got > 0) return {IoStatus::Done, got};
    if (got == 0) return {IoStatus::Closed};
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return {IoStatus::WouldBlock};
    return {IoStatus::Failed, 0, ErrorNetwork};
  }
}

SocketCore::IoResult SocketCore::TransportWrite(const char* from, qint64 count) {
  for (;;) {
    const ssize_t sent = ::send(fd_, from, static_cast<size_t>(count), MSG_NOSIGNAL);
    if (sent >= 0) return {IoStatus::Done, sent};
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return {IoStatus::WouldBlock};
    return {IoStatus::Failed, 0, ErrorNetwork};
  }
}

void SocketCore::WatchRead(bool on) {
  if (readNotifier_) readNotifier_->setEnabled(on);
}

void SocketCore::WatchWrite(bool on) {
  if (writeNotifier_) writeNotifier_->setEnabled(on);
}

void SocketCore::Fail(qint32 code) {
  lastErrorCode_ = code;
  LeaveOpening();
  CloseDescriptor();
  state_ = State::Closed;
  listeningPort_ = -1;
  outgoing_.clear();
  outgoingSent_ = 0;
  pendingConnected_ = false;
  pendingSendComplete_ = false;
  pendingError_ = true;
  ScheduleDelivery();
}

void SocketCore::AdoptDescriptor(int fd, State state) {
  CloseDescriptor();
  fd_ = fd;
  state_ = state;
  readNotifier_ = new QSocketNotifier(fd, QSocketNotifier::Read, this);
  writeNotifier_ = new QSocketNotifier(fd, QSocketNotifier::Write, this);
  readNotifier_->setEnabled(false);
  writeNotifier_->setEnabled(false);
  QObject::connect(readNotifier_, &QSocketNotifier::activated, this, [this] { OnReadable(); });
  QObject::connect(writeNotifier_, &QSocketNotifier::activated, this, [this] { OnWritable(); });
}

void SocketCore::CloseDescriptor() {
  if (fd_ < 0) return;
  TransportClosing();
  // Notifiers are switched off before the descriptor closes, and deleted later because
  // this may run inside one of their own activations.
  for (QSocketNotifier* notifier : {readNotifier_, writeNotifier_}) {
    notifier->setEnabled(false);
    QObject::disconnect(notifier, nullptr, this, nullptr);
    notifier->deleteLater();
  }
  readNotifier_ = writeNotifier_ = nullptr;
  ::close(fd_);
  fd_ = -1;
  readPaused_ = false;
}

void SocketCore::ResetForNewConnection() {
  Close();
  state_ = State::Idle;
  lastErrorCode_ = 0;
  incoming_.clear();
}

void SocketCore::ScheduleDelivery() {
  if (Detached()) return;
  if (delivering_ > 0) {
    moreToDeliver_ = true;  // the running delivery goes round once more
    return;
  }
  if (deliveryScheduled_) return;
  deliveryScheduled_ = true;
  QMetaObject::invokeMethod(this, [this] { Deliver(); }, Qt::QueuedConnection);
}

void SocketCore::Deliver() {
  deliveryScheduled_ = false;
  ++delivering_;
  // Events that handlers cause (a write that went out at once, and so a send-complete)
  // are delivered in further rounds here rather than through the event loop; the rounds
  // are bounded so that other sockets and timers get their turn.
  for (int round = 0; round < kDeliveryRounds; ++round) {
    moreToDeliver_ = false;
    DeliverOnce();
    if (!moreToDeliver_ || Detached()) break;
  }
  --delivering_;
  if (moreToDeliver_ && !Detached()) {
    moreToDeliver_ = false;
    ScheduleDelivery();
  }
}

void SocketCore::DeliverOnce() {
  if (state_ == State::Connected && BytesLeftToSend() > 0 && !TransportHandshaking()) FlushOutgoing();
  // Each handler may close, reconnect or release this socket: test again before each.
  if (pendingConnected_ && !Detached()) {
    pendingConnected_ = false;
    Dispatch([this] { Event_Connected(); });
  }
  if (pendingData_ && !Detached()) {
    pendingData_ = false;
    if (!incoming_.isEmpty()) Dispatch([this] { Event_DataAvailable(); });
  }
  if (pendingSendComplete_ && BytesLeftToSend() == 0 && state_ == State::Connected && !Detached()) {
    pendingSendComplete_ = false;
    Dispatch([this] { Event_SendComplete(false); });
  }
  if (pendingError_ && !pendingData_ && !Detached()) {
    pendingError_ = false;
    Dispatch([this] { Event_Error(); });
    if (state_ == State::Closed && !pendingError_) ReleaseOwner();
  }
}

}  // namespace velmar
