#pragma once
// A non-blocking TCP socket on the event loop, client or listening, with the
// framework's events as virtual methods.
//
// Event order and meaning:
// - Event_Connected: an outgoing connection is up, or a listening socket accepted one.
// - Event_DataAvailable: received bytes wait in ReadAll().
// - Event_SendComplete: everything written so far has gone to the operating system
//   (also after an empty Write).
// - Event_Error: the connection failed or ended; LastErrorCode() says how. The peer's
//   orderly close is 102, and comes after the last Event_DataAvailable.
// Events never run inside the call that caused them (Write, Connect, Close ...): they come
// from the event loop, or from Poll() when it is not called from inside a handler.
// Write only queues: bytes written inside one of this socket's handlers leave when the
// handler returns, others from the event loop, and Poll() sends at once. So a program may
// write a command and then prepare for its consequences (listen for the connection that a
// PORT command announces) before the peer can see the command.
#include "platform/EventSource.h"

#include <QByteArray>
#include <QHostAddress>
#include <QString>
#include <memory>

class QSocketNotifier;

namespace velmar {

class SocketCore : public EventSource {
public:
  // LastErrorCode values.
  static constexpr qint32 ErrorOpenFailed = 100;       // any other failure to open
  static constexpr qint32 ErrorPeerClosed = 102;       // the peer closed in order
  static constexpr qint32 ErrorNameNotResolved = 103;
  static constexpr qint32 ErrorConnectionRefused = 104;
  static constexpr qint32 ErrorAddressInUse = 105;
  static constexpr qint32 ErrorNetwork = 106;          // reset by peer, other network errors
  static constexpr qint32 ErrorInvalidPort = 107;
  static constexpr qint32 ErrorTLS = 108;

  SocketCore();
  ~SocketCore() override;

  // Remote host (name or address) and port for Connect; local port for Listen.
  QString Address;
  qint32 Port = 0;

  // Starts an outgoing connection to Address:Port and returns at once.
  void Connect();
  // Waits for one incoming connection on Port. A second Listen on the same port while
  // listening is accepted and changes nothing.
  void Listen();
  // Queues bytes for sending (see above); never blocks.
  void Write(const QByteArray& bytes);
  // Returns and removes every byte received so far.
  QByteArray ReadAll();
  // Closes the connection (or stops listening). No event follows.
  void Close();
  // Closes the connection with a reset, so that the peer sees a failure, not an end.
  void Abort();
  // Does the socket's pending work now (reads what has arrived, sends what is queued,
  // accepts, advances a TLS handshake) and never blocks. Outside a handler of this
  // socket it also delivers the resulting events at once.
  void Poll();

  bool IsConnected() const;
  bool IsListening() const;
  // Resolving, connecting, listening or connected: the connection has not ended.
  bool IsOpen() const;
  // Dotted address of the local end of the connection (kept after it closes).
  QString LocalAddress() const { return localAddress_; }
  qint32 LastErrorCode() const { return lastErrorCode_; }
  qint64 BytesLeftToSend() const { return outgoing_.size() - outgoingSent_; }

  void Detach() override;
  void AfterDispatch() override;

  // Closes every socket of the process. A running session lives as long as its
  // connections, so an orderly program end (and a test's end) closes them all here.
  static void CloseAll();

  virtual void Event_Connected() {}
  virtual void Event_DataAvailable() {}
  virtual void Event_SendComplete(bool userAborted) { (void)userAborted; }
  virtual void Event_Error() {}

protected:
  // The transport under the connection: plain by default; SSLSocket puts TLS there.
  enum class IoStatus { Done, WouldBlock, Closed, Failed };
  struct IoResult {
    IoStatus status = IoStatus::Done;
    qint64 bytes = 0;
    qint32 errorCode = 0;      // for Failed
    bool wantsWrite = false;   // for WouldBlock: waits for the socket to be writable
  };
  virtual IoResult TransportRead(char* into, qint64 capacity);
  virtual IoResult TransportWrite(const char* from, qint64 count);
  virtual bool TransportHasBufferedInput() const { return false; }
  // While true, readiness goes to TransportContinueHandshake instead of data transfer.
  virtual bool TransportHandshaking() const { return false; }
  virtual void TransportContinueHandshake() {}
  // Called when the TCP connection is up, before Event_Connected is queued.
  virtual void TransportConnected() {}
  // Called right before the descriptor is closed, for a polite shutdown.
  virtual void TransportClosing() {}
  // Called when a connect has to wait for its turn (see kMaxOpeningPerPeer), and again with
  // false when its turn has come and it starts.
  virtual void WaitingForTurn(bool waiting) { (void)waiting; }

  int Descriptor() const { return fd_; }
  void WatchRead(bool on);
  void WatchWrite(bool on);
  // Ends the connection with an error code and queues Event_Error.
  void Fail(qint32 code);
  // Sends what is queued and reads what has arrived, then queues the events; used by the
  // transport when a handshake has finished.
  void ResumeTransfer();

private:
  enum class State { Idle, Resolving, Connecting, Listening, Connected, Closed };

  // Connections to one address and port are opened a few at a time: a connection counts as
  // opening from connect() until the peer has been heard from (or this side has sent, or it
  // ended). A burst of hundreds (a drop of many files) would otherwise overflow a server's
  // accept queue, and with SYN cookies such connections stall without any error.
  static constexpr int kMaxOpeningPerPeer = 16;
  void StartConnect(const QHostAddress& address);
  void ConnectNow(const QHostAddress& address);
  void LeaveOpening();
  static void AdmitWaiting(const QString& peer);
  void OnReadable();
  void OnWritable();
  void FinishConnect();
  void Accept();
  void ReadAvailable();
  void FlushOutgoing();
  void AdoptDescriptor(int fd, State state);
  void CloseDescriptor();
  bool HasPendingEvents() const;
  void ScheduleDelivery();
  void Deliver();
  void DeliverOnce();
  void ResetForNewConnection();

  State state_ = State::Idle;
  int fd_ = -1;
  QSocketNotifier* readNotifier_ = nullptr;
  QSocketNotifier* writeNotifier_ = nullptr;
  int lookupId_ = -1;
  qint32 listeningPort_ = -1;
  QString localAddress_;
  qint32 lastErrorCode_ = 0;

  QByteArray incoming_;
  QByteArray outgoing_;
  qint64 outgoingSent_ = 0;
  bool readPaused_ = false;
  bool flushAfterHandler_ = false;

  bool pendingConnected_ = false;
  bool pendingData_ = false;
  bool pendingSendComplete_ = false;
  bool pendingError_ = false;
  bool deliveryScheduled_ = false;
  QString openingPeer_;   // counted among the opening connections of this peer
  QString waitingPeer_;   // queued for a turn to connect to this peer
  QHostAddress waitingAddress_;
  int delivering_ = 0;
  bool moreToDeliver_ = false;
};

}  // namespace velmar
