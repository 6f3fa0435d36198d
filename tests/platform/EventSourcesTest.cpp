// The event sources: sockets against real loopback peers made with Qt's sockets, and timers.
#include "platform/SSLSocket.h"
#include "platform/Timer.h"
#include "support/TestEventLoop.h"
#include "support/TestFiles.h"

#include <QElapsedTimer>
#include <QTcpServer>
#include <QTcpSocket>

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>

namespace velmar::test {
namespace {

// Records its events, optionally reads on data, runs hooks inside its handlers, and names an
// owner to be held while it is connected.
class RecordingSocket : public SSLSocket {
public:
  QStringList events;
  QByteArray received;
  bool readOnData = true;
  std::function<void(RecordingSocket&)> onData, onSendComplete;
  std::weak_ptr<void> owner;

  std::shared_ptr<void> Anchor() override { return owner.lock(); }
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

std::shared_ptr<RecordingSocket> ConnectTo(quint16 port, const QString& address = "127.0.0.1",
                                           const std::shared_ptr<void>& owner = {}) {
  auto socket = MakeEventSource<RecordingSocket>();
  socket->owner = owner;
  socket->Address = address;
  socket->Port = port;
  socket->Connect();
  return socket;
}

// A port that nothing listens on: one that was free a moment ago.
quint16 FreePort() {
  QTcpServer probe;
  probe.listen(QHostAddress::LocalHost);
  return probe.serverPort();
}

// A socket of ours connected to a Qt peer, which collects what it receives.
struct Connection {
  QTcpServer server;
  QTcpSocket* peer = nullptr;
  QByteArray atPeer;
  std::shared_ptr<RecordingSocket> socket;

  explicit Connection(const std::shared_ptr<void>& owner = {}) {
    server.listen(QHostAddress::LocalHost);
    QObject::connect(&server, &QTcpServer::newConnection, [this] {
      peer = server.nextPendingConnection();
      QObject::connect(peer, &QTcpSocket::readyRead, [this] { atPeer += peer->readAll(); });
    });
    socket = ConnectTo(server.serverPort(), "127.0.0.1", owner);
  }
  // Accepted by the peer, and connected as our socket sees it.
  bool Open() { return RunUntil([&] { return peer && socket->events.contains("connected"); }); }
};

TEST(Socket, DeliversDataThenThePeersCloseAndHoldsItsOwnerUntilThen) {
  // Read in the handler, or left unread until after the close: the bytes are there either way.
  // An orderly close is 102, a reset 106.
  const struct { bool readOnData, reset; const char* error; } rows[] = {
      {true, false, "error 102"}, {false, false, "error 102"}, {true, true, "error 106"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.error) + (row.readOnData ? " read on data" : " left unread"));
    auto owner = std::make_shared<int>(1);
    const std::weak_ptr<int> watch = owner;
    Connection c(std::exchange(owner, nullptr));
    EXPECT_FALSE(watch.expired());
    c.socket->readOnData = row.readOnData;
    ASSERT_TRUE(c.Open());
    EXPECT_TRUE(c.socket->IsConnected());
    EXPECT_EQ(c.socket->LocalAddress(), "127.0.0.1");
    if (row.reset) {
      const linger hard{1, 0};
      ::setsockopt(static_cast<int>(c.peer->socketDescriptor()), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
      c.peer->close();
    } else {
      c.peer->write("last bytes");
      c.peer->flush();
      c.peer->disconnectFromHost();
    }
    ASSERT_TRUE(RunUntil([&] { return c.socket->events.filter("error").size() == 1 && watch.expired(); }));
    EXPECT_EQ(c.socket->events.last(), row.error);
    EXPECT_FALSE(c.socket->IsConnected());
    if (row.reset) continue;
    EXPECT_EQ(row.readOnData ? c.socket->received : c.socket->ReadAll(), QByteArray("last bytes"));
    EXPECT_EQ(c.socket->events.indexOf("data"), 1);
  }
}

TEST(Socket, FailuresToOpenHaveTheirCodesAndComeFromTheEventLoop) {
  QTcpServer occupant;
  occupant.listen(QHostAddress::Any);
  auto inUse = MakeEventSource<RecordingSocket>();
  inUse->Port = occupant.serverPort();
  inUse->Listen();
  const std::pair<std::shared_ptr<RecordingSocket>, QString> rows[] = {
      {ConnectTo(FreePort()), "error 104"}, {ConnectTo(0), "error 107"},
      {ConnectTo(21, "no-such-host.invalid"), "error 103"}, {inUse, "error 105"}};
  for (const auto& [socket, error] : rows) EXPECT_TRUE(socket->events.isEmpty());  // not inside the call
  ASSERT_TRUE(RunUntil([&] { return std::ranges::none_of(rows, [](auto& r) { return r.first->events.isEmpty(); }); },
                       15000));
  for (const auto& [socket, error] : rows) EXPECT_EQ(socket->events, QStringList{error});
}

TEST(Socket, SendCompleteFollowsEachWriteAndAnUploadPumpNeedsNoRecursion) {
  Connection c;
  ASSERT_TRUE(c.Open());
  const QByteArray big = RandomBytes(8 * 1024 * 1024, 7);
  c.socket->Write(QByteArray());  // an empty write completes too
  ASSERT_TRUE(RunUntil([&] { return c.socket->events.count("sent") == 1; }));
  c.socket->Write(big);
  ASSERT_TRUE(RunUntil([&] { return c.socket->events.count("sent") == 2 && c.atPeer.size() == big.size(); }, 20000));
  EXPECT_EQ(c.socket->BytesLeftToSend(), 0);
  EXPECT_TRUE(c.atPeer == big);

  // A pump writes the next block from each send complete: one block in flight at a time.
  int blocks = 0;
  c.socket->onSendComplete = [&](RecordingSocket& s) {
    if (blocks == 2000) return s.Close();
    s.Write(QByteArray(2048, static_cast<char>('a' + blocks++ % 26)));
    s.Poll();  // inside the handler: must not deliver the next event recursively
  };
  c.atPeer.clear();
  c.socket->Write(QByteArray());
  ASSERT_TRUE(RunUntil([&] { return c.atPeer.size() == 2000 * 2048; }, 20000));
  EXPECT_EQ(c.atPeer.mid(2048 * 27, 1), QByteArray("b"));
}

TEST(Socket, ListeningAcceptsOneConnectionAndASecondListenIsHarmless) {
  auto listener = MakeEventSource<RecordingSocket>();
  listener->Port = FreePort();
  listener->Listen();
  listener->Listen();
  EXPECT_TRUE(listener->IsListening());
  QTcpSocket client;
  client.connectToHost(QHostAddress::LocalHost, listener->Port);
  ASSERT_TRUE(RunUntil([&] { return listener->events.contains("connected"); }));
  EXPECT_TRUE(listener->IsConnected());
  client.write("hello");
  EXPECT_TRUE(RunUntil([&] { return listener->received == "hello"; }));
}

TEST(Socket, ReleasedInsideItsOwnHandlerEvenANestedOneItLivesUntilTheOuterHandlerReturns) {
  // Released in the only handler running, or in a nested delivery while the outer handler
  // yields: no event may reach the released socket (AddressSanitizer would see it).
  for (const bool nested : {false, true}) {
    SCOPED_TRACE(nested ? "nested" : "direct");
    Connection c;
    ASSERT_TRUE(c.Open());
    int depth = 0;
    bool released = false, outerFinished = false;
    c.socket->onData = [&](RecordingSocket& self) {
      if (nested && ++depth == 1) {
        c.peer->write("second");
        RunUntil([&] { return released; }, 5000);
        RunFor(20);  // a yield at the outer level must not free the socket under this handler
        self.events << "outer handler goes on";
        outerFinished = true;
        return;
      }
      self.events << "releasing";
      c.socket.reset();  // the last reference, from inside the handler
      released = true;
    };
    c.peer->write("first");
    ASSERT_TRUE(RunUntil([&] { return released && (outerFinished || !nested); }));
    c.peer->write("more");
    RunFor(50);
  }
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

// Counts its events and runs a hook in each.
struct CountingTimer : Timer {
  int fired = 0;
  std::function<void()> onFire;
  void Event_Action() override {
    ++fired;
    if (onFire) onFire();
  }
};

std::shared_ptr<CountingTimer> Started(int periodMs, int mode) {
  auto timer = MakeEventSource<CountingTimer>();
  timer->SetPeriod(periodMs);
  timer->SetMode(mode);
  return timer;
}

TEST(Timer, RestartingMovesTheDeadlineAndStoppingCancels) {
  auto timer = Started(150, 1);
  QElapsedTimer clock;
  clock.start();
  // Restarted every 30 ms for 450 ms: never reaches its period, unless the machine held the
  // test up for a whole period between two restarts.
  qint64 restarted = 0, longestGap = 0;
  for (int i = 0; i < 100 && clock.elapsed() < 450; ++i) {
    RunFor(30);
    longestGap = std::max(longestGap, clock.elapsed() - restarted);
    restarted = clock.elapsed();
    timer->SetMode(1);
  }
  if (longestGap >= 140) GTEST_SKIP() << "a restart came " << longestGap << " ms after the one before";
  EXPECT_EQ(timer->fired, 0);
  ASSERT_TRUE(RunUntil([&] { return timer->fired == 1; }, 5000));
  EXPECT_GE(clock.elapsed(), restarted + 100);  // measured from the last restart, not the first
  timer->SetMode(1);
  timer->SetMode(0);
  RunFor(250);
  EXPECT_EQ(timer->fired, 1);
}

TEST(Timer, SingleShotOrRepeatingTakesANewPeriodAtTheNextStartAndMayBeReleasedInItsOwnEvent) {
  auto timer = Started(60000, 1);
  timer->SetPeriod(20);
  RunFor(100);
  EXPECT_EQ(timer->fired, 0);  // the running countdown keeps its period
  timer->SetMode(1);
  ASSERT_TRUE(RunUntil([&] { return timer->fired == 1; }, 5000));
  EXPECT_EQ(timer->Mode(), 0);  // a single shot turns itself off
  RunFor(80);
  EXPECT_EQ(timer->fired, 1);
  // Repeating until stopped from its own event.
  timer->onFire = [&] {
    if (timer->fired == 4) timer->SetMode(0);
  };
  timer->SetMode(2);
  ASSERT_TRUE(RunUntil([&] { return timer->fired == 4; }, 5000));
  RunFor(60);
  EXPECT_EQ(timer->fired, 4);
  timer->onFire = [&] { timer.reset(); };
  timer->SetMode(1);
  ASSERT_TRUE(RunUntil([&] { return timer == nullptr; }, 5000));
  RunFor(20);
}

}  // namespace
}  // namespace velmar::test
