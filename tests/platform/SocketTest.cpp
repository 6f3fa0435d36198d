// The socket layer against real loopback peers made with Qt's own sockets.
#include "platform/SSLSocket.h"
#include "support/TestEventLoop.h"

#include <QTcpServer>
#include <QTcpSocket>

#include <gtest/gtest.h>
#include <sys/socket.h>

namespace velmar::test {
namespace {

// Records its events; optionally reads on data, and runs a hook inside a handler.
class RecordingSocket : public SSLSocket {
public:
  QStringList events;
  QByteArray received;
  bool readOnData = true;
  std::function<void(RecordingSocket&)> onData;
  std::function<void(RecordingSocket&)> onSendComplete;

  void Event_Connected() override { events << "connected"; }
  void Event_DataAvailable() override {
    events << "data";
    if (readOnData) received += ReadAll();
    if (onData) onData(*this);
  }
  void Event_SendComplete(bool) override {
    events << "sent";
    if (onSendComplete) onSendComplete(*this);
  }
  void Event_Error() override { events << QString("error %1").arg(LastErrorCode()); }
};

struct Peer {
  QTcpServer server;
  QTcpSocket* accepted = nullptr;
  Peer() {
    server.listen(QHostAddress::LocalHost);
    QObject::connect(&server, &QTcpServer::newConnection, [this] { accepted = server.nextPendingConnection(); });
  }
  quint16 Port() const { return server.serverPort(); }
  bool WaitAccepted() { return RunUntil([&] { return accepted != nullptr; }); }
};

std::shared_ptr<RecordingSocket> ConnectTo(quint16 port, const QString& address = "127.0.0.1") {
  auto socket = MakeEventSource<RecordingSocket>();
  socket->Address = address;
  socket->Port = port;
  socket->Connect();
  return socket;
}

// A socket of ours connected to a Qt peer, which collects what it receives.
struct Connection {
  Peer peer;
  std::shared_ptr<RecordingSocket> socket = ConnectTo(peer.Port());
  QByteArray atPeer;
  bool Accepted() {
    if (!peer.WaitAccepted()) return false;
    QObject::connect(peer.accepted, &QTcpSocket::readyRead, [this] { atPeer += peer.accepted->readAll(); });
    return true;
  }
};

// A port that nothing listens on: one that was free a moment ago.
quint16 FreePort() {
  QTcpServer probe;
  probe.listen(QHostAddress::LocalHost);
  return probe.serverPort();
}

void ResetByPeer(QTcpSocket* peer) {
  const linger hard{1, 0};
  ::setsockopt(static_cast<int>(peer->socketDescriptor()), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  peer->close();
}

TEST(Socket, DeliversDataThenThePeersOrderlyCloseAs102) {
  // Read in the handler, or left unread until after the close: the bytes are there either way.
  for (const bool readOnData : {true, false}) {
    SCOPED_TRACE(readOnData ? "read on data" : "left unread");
    Connection c;
    c.socket->readOnData = readOnData;
    ASSERT_TRUE(c.Accepted());
    ASSERT_TRUE(RunUntil([&] { return c.socket->events.contains("connected"); }));
    EXPECT_TRUE(c.socket->IsConnected());
    EXPECT_EQ(c.socket->LocalAddress(), "127.0.0.1");
    c.peer.accepted->write("last bytes");
    c.peer.accepted->flush();
    c.peer.accepted->disconnectFromHost();
    ASSERT_TRUE(RunUntil([&] { return c.socket->events.contains("error 102"); }));
    EXPECT_EQ(readOnData ? c.socket->received : c.socket->ReadAll(), QByteArray("last bytes"));
    EXPECT_EQ(c.socket->events.last(), "error 102");
    EXPECT_EQ(c.socket->events.indexOf("data"), 1);
    EXPECT_FALSE(c.socket->IsConnected());
  }
}

TEST(Socket, AResetIsNotAnOrderlyClose) {
  Connection c;
  ASSERT_TRUE(c.Accepted());
  ASSERT_TRUE(RunUntil([&] { return c.socket->events.contains("connected"); }));
  ResetByPeer(c.peer.accepted);
  ASSERT_TRUE(RunUntil([&] { return c.socket->events.filter("error").size() == 1; }));
  EXPECT_EQ(c.socket->events.last(), "error 106");
}

TEST(Socket, FailuresToOpenHaveTheirCodes) {
  auto refused = ConnectTo(FreePort());
  auto badPort = ConnectTo(0);
  auto unknown = ConnectTo(21, "no-such-host.invalid");
  EXPECT_TRUE(badPort->events.isEmpty());  // never inside the call that caused it
  ASSERT_TRUE(RunUntil([&] {
    return !refused->events.isEmpty() && !badPort->events.isEmpty() && !unknown->events.isEmpty();
  }, 15000));
  EXPECT_EQ(refused->events, QStringList{"error 104"});
  EXPECT_EQ(badPort->events, QStringList{"error 107"});
  EXPECT_EQ(unknown->events, QStringList{"error 103"});
}

TEST(Socket, SendCompleteFollowsEachWriteOnceItsBytesAreWithTheSystem) {
  Connection c;
  ASSERT_TRUE(c.Accepted());
  QByteArray big(8 * 1024 * 1024, '\0');
  for (qsizetype i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7 + i / 4096);
  c.socket->Write(QByteArray());  // an empty write completes too
  ASSERT_TRUE(RunUntil([&] { return c.socket->events.count("sent") == 1; }));
  c.socket->Write(big);
  ASSERT_TRUE(RunUntil([&] { return c.socket->events.count("sent") == 2 && c.atPeer.size() == big.size(); }, 20000));
  EXPECT_EQ(c.socket->BytesLeftToSend(), 0);
  EXPECT_TRUE(c.atPeer == big);
}

TEST(Socket, AnUploadPumpHoldsOneBlockInFlightWithoutRecursion) {
  Connection c;
  ASSERT_TRUE(c.Accepted());
  int blocks = 0;
  c.socket->onSendComplete = [&](RecordingSocket& s) {
    if (blocks == 2000) {
      s.Close();
      return;
    }
    s.Write(QByteArray(2048, static_cast<char>('a' + blocks % 26)));
    ++blocks;
    s.Poll();  // inside the handler: must not deliver the next event recursively
  };
  c.socket->Write(QByteArray());
  ASSERT_TRUE(RunUntil([&] { return c.atPeer.size() == 2000 * 2048; }, 20000));
  EXPECT_EQ(c.atPeer.mid(2048 * 27, 1), QByteArray("b"));
}

TEST(Socket, ListeningAcceptsOneConnectionAndASecondListenIsHarmless) {
  auto listener = MakeEventSource<RecordingSocket>();
  const quint16 port = FreePort();
  listener->Port = port;
  listener->Listen();
  listener->Listen();
  EXPECT_TRUE(listener->IsListening());
  QTcpSocket client;
  client.connectToHost(QHostAddress::LocalHost, port);
  ASSERT_TRUE(RunUntil([&] { return listener->events.contains("connected"); }));
  EXPECT_TRUE(listener->IsConnected());
  client.write("hello");
  ASSERT_TRUE(RunUntil([&] { return listener->received == "hello"; }));

  auto second = MakeEventSource<RecordingSocket>();
  QTcpServer occupant;
  occupant.listen(QHostAddress::Any);
  second->Port = occupant.serverPort();
  second->Listen();
  ASSERT_TRUE(RunUntil([&] { return !second->events.isEmpty(); }));
  EXPECT_EQ(second->events, QStringList{"error 105"});
}

TEST(Socket, ReleasingASocketInsideItsOwnHandlerIsSafe) {
  Connection c;
  ASSERT_TRUE(c.Accepted());
  bool released = false;
  c.socket->onData = [&](RecordingSocket& self) {
    self.events << "releasing";
    c.socket.reset();  // the last reference, from inside the handler
    released = true;
  };
  c.peer.accepted->write("x");
  ASSERT_TRUE(RunUntil([&] { return released; }));
  c.peer.accepted->write("more");
  RunFor(50);  // no event may reach the released socket (AddressSanitizer would see it)
}

TEST(Socket, ReleasedInANestedHandlerItLivesUntilTheOuterHandlerReturns) {
  Connection c;
  ASSERT_TRUE(c.Accepted());
  int depth = 0;
  bool releasedInside = false;
  bool outerFinished = false;
  c.socket->onData = [&](RecordingSocket& self) {
    ++depth;
    if (depth == 1) {
      // The outer handler yields; a nested delivery of the same socket releases it.
      c.peer.accepted->write("second");
      RunUntil([&] { return releasedInside; }, 5000);
      RunFor(20);  // a yield at the outer level must not free the socket under this handler
      self.events << "outer handler goes on";
      outerFinished = true;
    } else {
      c.socket.reset();
      releasedInside = true;
    }
    --depth;
  };
  c.peer.accepted->write("first");
  ASSERT_TRUE(RunUntil([&] { return outerFinished; }));
  EXPECT_TRUE(releasedInside);
  RunFor(20);
}

TEST(Socket, AnOwnerIsHeldWhileTheConnectionIsOpen) {
  struct Anchored : RecordingSocket {
    std::weak_ptr<int> owner;
    std::shared_ptr<void> Anchor() override { return owner.lock(); }
  };
  Peer peer;
  auto owner = std::make_shared<int>(1);
  std::weak_ptr<int> watch = owner;
  auto socket = MakeEventSource<Anchored>();
  socket->owner = owner;
  socket->Address = "127.0.0.1";
  socket->Port = peer.Port();
  socket->Connect();
  owner.reset();
  EXPECT_FALSE(watch.expired());
  ASSERT_TRUE(peer.WaitAccepted());
  peer.accepted->disconnectFromHost();
  ASSERT_TRUE(RunUntil([&] { return watch.expired(); }));
  EXPECT_EQ(socket->events.last(), "error 102");
}

TEST(Socket, ConnectionsToOnePeerOpenAFewAtATime) {
  QTcpServer server;
  ASSERT_TRUE(server.listen(QHostAddress::LocalHost, 0));
  QList<QTcpSocket*> accepted;
  bool greetAll = false;
  QObject::connect(&server, &QTcpServer::newConnection, [&] {
    while (server.hasPendingConnections()) {
      accepted << server.nextPendingConnection();
      if (greetAll) accepted.last()->write("220 hello\r\n");
    }
  });
  QList<std::shared_ptr<RecordingSocket>> clients;
  for (int i = 0; i < 40; ++i) clients << ConnectTo(server.serverPort());
  ASSERT_TRUE(RunUntil([&] { return accepted.size() == 16; }));
  RunFor(100);
  EXPECT_EQ(accepted.size(), 16);  // the others wait until these have heard from the server

  for (int i = 0; i < 5; ++i) accepted[i]->write("220 hello\r\n");
  ASSERT_TRUE(RunUntil([&] { return accepted.size() == 21; }));
  // A waiting connection that is closed gives up its place in the queue.
  clients.last()->Close();
  greetAll = true;
  for (QTcpSocket* peer : accepted.mid(5)) peer->write("220 hello\r\n");
  ASSERT_TRUE(RunUntil([&] { return accepted.size() == 39; }));
  RunFor(100);
  EXPECT_EQ(accepted.size(), 39);
  EXPECT_TRUE(clients.last()->events.isEmpty());
}

}  // namespace
}  // namespace velmar::test
