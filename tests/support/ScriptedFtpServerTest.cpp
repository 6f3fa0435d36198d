// Checks the scripted server fixture with clients that share nothing with the library: Qt
// sockets, and plain POSIX sockets where the kind of close (FIN or RST) matters.
#include "support/ScriptedFtpServer.h"
#include "support/TestEventLoop.h"

#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>

namespace velmar::test {
namespace {

// A control connection that keeps every read apart and every event in order.
struct Client {
  QTcpSocket socket;
  QList<QByteArray> reads;
  QByteArray all;
  QStringList events;  // "reply: <line>", "closed", shared with data connections

  explicit Client(quint16 port) {
    QObject::connect(&socket, &QTcpSocket::readyRead, [this] {
      const QByteArray bytes = socket.readAll();
      reads << bytes;
      all += bytes;
      for (const QByteArray& line : bytes.split('\n'))
        if (!line.trimmed().isEmpty()) events << QStringLiteral("reply: ") + QString::fromLatin1(line.trimmed());
    });
    QObject::connect(&socket, &QTcpSocket::disconnected, [this] { events << QStringLiteral("control closed"); });
    socket.connectToHost(QHostAddress::LocalHost, port);
  }
  // The socket's own destructor reports a close; nothing is left to receive it.
  ~Client() { QObject::disconnect(&socket, nullptr, nullptr, nullptr); }

  void Send(const QByteArray& bytes) {
    RunUntil([&] { return socket.state() == QAbstractSocket::ConnectedState; }, 5000);
    socket.write(bytes);
    socket.flush();
  }
  bool WaitFor(const QByteArray& text, int timeoutMs = 5000) {
    return RunUntil([&] { return all.contains(text); }, timeoutMs);
  }
};

// A data connection made by the client side.
struct DataClient {
  QTcpSocket socket;
  QByteArray received;
  bool closed = false;
  QAbstractSocket::SocketError error = QAbstractSocket::UnknownSocketError;

  DataClient(quint16 port, QStringList* events) {
    QObject::connect(&socket, &QTcpSocket::readyRead, [this] { received += socket.readAll(); });
    QObject::connect(&socket, &QTcpSocket::errorOccurred, [this](QAbstractSocket::SocketError e) { error = e; });
    QObject::connect(&socket, &QTcpSocket::disconnected, [this, events] {
      if (socket.isOpen()) received += socket.readAll();
      closed = true;
      if (events) *events << QStringLiteral("data closed");
    });
    socket.connectToHost(QHostAddress::LocalHost, port);
  }
  ~DataClient() { QObject::disconnect(&socket, nullptr, nullptr, nullptr); }
};

quint16 PassivePort(const QByteArray& reply) {
  static const QRegularExpression pattern(
      QStringLiteral(R"(227 Entering Passive Mode \(127,0,0,1,(\d+),(\d+)\)\.\r\n)"));
  const QRegularExpressionMatch match = pattern.match(QString::fromLatin1(reply));
  if (!match.hasMatch()) return 0;
  return static_cast<quint16>(match.captured(1).toInt() * 256 + match.captured(2).toInt());
}

// A blocking-free POSIX client socket: it tells a reset (ECONNRESET) from an orderly close (EOF),
// which Qt reports alike.
class RawSocket {
public:
  enum class State { Open, Eof, Reset, OtherError };

  explicit RawSocket(quint16 port) {
    fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // On loopback the kernel completes the handshake against the listen backlog, so a blocking
    // connect returns at once even though the server accepts later, on the event loop.
    connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  ~RawSocket() { ::close(fd_); }

  bool Connected() const { return connected_; }
  void Send(const QByteArray& bytes) { (void)::send(fd_, bytes.constData(), bytes.size(), MSG_NOSIGNAL); }

  // Reads what is there without waiting; returns the state of the connection after it.
  State Poll() {
    char buffer[4096];
    for (int i = 0; i < 1000; ++i) {
      const ssize_t n = ::recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT);
      if (n > 0) {
        received_.append(buffer, n);
        continue;
      }
      if (n == 0) return State::Eof;
      if (errno == EAGAIN || errno == EWOULDBLOCK) return State::Open;
      if (errno == EINTR) continue;
      return errno == ECONNRESET ? State::Reset : State::OtherError;
    }
    return State::Open;
  }
  const QByteArray& Received() const { return received_; }

private:
  int fd_ = -1;
  bool connected_ = false;
  QByteArray received_;
};

// ---- control connection

TEST(ScriptedFtpServer, CommandsKeepEveryByteAsLatin1) {
  ScriptedFtpServer server;
  server.Expect(QString::fromLatin1("CWD Gr\xfc\xdf" "e"), {Line(QString::fromLatin1("250 Gr\xfc\xdf" "e"))});
  Client client(server.Port());
  client.Send("CWD Gr\xfc\xdf" "e\r\n");
  ASSERT_TRUE(client.WaitFor("\r\n"));
  EXPECT_EQ(client.all, QByteArray("250 Gr\xfc\xdf" "e\r\n"));
  EXPECT_TRUE(server.Mismatches().isEmpty());
}

TEST(ScriptedFtpServer, MismatchIsRecordedAndTheScriptStops) {
  ScriptedFtpServer server;
  server.OnConnect({Line("220 ready")})
      .Expect("USER anna", {Line("331 password please")})
      .Expect("PASS x", {Line("230 logged in")});
  Client client(server.Port());
  ASSERT_TRUE(client.WaitFor("220 ready\r\n"));
  client.Send("USER bob\r\n");
  ASSERT_TRUE(RunUntil([&] { return !server.Mismatches().isEmpty(); }, 5000));
  client.Send("PASS x\r\n");
  ASSERT_TRUE(RunUntil([&] { return server.Commands().size() == 2; }, 5000));
  RunFor(100);
  EXPECT_EQ(server.Mismatches(), QStringList({"expected USER anna, got USER bob"}));
  EXPECT_EQ(client.all, "220 ready\r\n");  // no reply after the mismatch
  EXPECT_FALSE(server.ScriptDone());
}

TEST(ScriptedFtpServer, PrefixMismatchNamesThePrefix) {
  ScriptedFtpServer server;
  server.ExpectPrefix("PASS ", {Line("230 logged in")});
  Client client(server.Port());
  client.Send("PASV\r\n");
  ASSERT_TRUE(RunUntil([&] { return !server.Mismatches().isEmpty(); }, 5000));
  EXPECT_EQ(server.Mismatches(), QStringList({"expected PASS ..., got PASV"}));
}

TEST(ScriptedFtpServer, CommandAfterTheScriptIsAMismatchButTheConnectionStays) {
  ScriptedFtpServer server;
  server.OnConnect({Line("220 ready")}).Expect("NOOP", {Line("200 ok")});
  Client client(server.Port());
  client.Send("NOOP\r\nQUIT\r\n");
  ASSERT_TRUE(RunUntil([&] { return !server.Mismatches().isEmpty(); }, 5000));
  RunFor(100);
  EXPECT_EQ(server.Mismatches(), QStringList({"expected end of script, got QUIT"}));
  EXPECT_EQ(client.all, "220 ready\r\n200 ok\r\n");
  EXPECT_TRUE(server.ClientConnected());
  EXPECT_EQ(client.socket.state(), QAbstractSocket::ConnectedState);
}

TEST(ScriptedFtpServer, CloseControlEndsTheConnectionAndANewOneContinuesTheScript) {
  ScriptedFtpServer server;
  server.OnConnect({Line("220 first")})
      .Expect("QUIT", {Line("221 bye"), CloseControl()})
      .OnConnect({Line("220 second")})
      .Expect("USER anna", {Line("331 password please")});
  Client first(server.Port());
  ASSERT_TRUE(first.WaitFor("220 first\r\n"));
  first.Send("QUIT\r\n");
  ASSERT_TRUE(RunUntil([&] { return first.events.contains("control closed"); }, 5000));
  EXPECT_EQ(first.all, "220 first\r\n221 bye\r\n");
  ASSERT_TRUE(RunUntil([&] { return !server.ClientConnected(); }, 5000));

  Client second(server.Port());
  ASSERT_TRUE(second.WaitFor("220 second\r\n"));
  second.Send("USER anna\r\n");
  ASSERT_TRUE(second.WaitFor("331 password please\r\n"));
  EXPECT_EQ(server.ConnectionCount(), 2);
  EXPECT_TRUE(server.ScriptDone());
  EXPECT_TRUE(server.Mismatches().isEmpty());
}

TEST(ScriptedFtpServer, ALaterConnectionReplacesTheEarlierOne) {
  ScriptedFtpServer server;
  server.OnConnect({Line("220 ready")}).Expect("USER anna", {Line("331 password please")});
  Client first(server.Port());
  ASSERT_TRUE(first.WaitFor("220 ready\r\n"));
  Client second(server.Port());
  ASSERT_TRUE(RunUntil([&] { return server.ConnectionCount() == 2; }, 5000));
  second.Send("USER anna\r\n");
  ASSERT_TRUE(second.WaitFor("331 password please\r\n"));
  EXPECT_EQ(second.all, "331 password please\r\n");  // the greeting step ran once, for the first
  EXPECT_TRUE(server.ScriptDone());
}

TEST(ScriptedFtpServer, ResetControlSendsATcpReset) {
  ScriptedFtpServer server;
  server.OnConnect({Line("220 ready")}).Expect("NOOP", {ResetControl()});
  RawSocket raw(server.Port());
  ASSERT_TRUE(raw.Connected());
  raw.Send("NOOP\r\n");
  RawSocket::State state = RawSocket::State::Open;
  ASSERT_TRUE(RunUntil([&] { return (state = raw.Poll()) != RawSocket::State::Open; }, 5000));
  EXPECT_EQ(state, RawSocket::State::Reset);
  EXPECT_EQ(raw.Received(), "220 ready\r\n");
}

TEST(ScriptedFtpServer, PassiveListenerTakesOneConnectionOnly) {
  ScriptedFtpServer server;
  server.Expect("PASV", {OpenPassive()}).Expect("NLST", {WaitDataConnected(), Line("150 ok")});
  Client client(server.Port());
  client.Send("PASV\r\n");
  ASSERT_TRUE(client.WaitFor("\r\n"));
  const quint16 port = PassivePort(client.all);
  DataClient data(port, nullptr);
  client.Send("NLST\r\n");
  ASSERT_TRUE(client.WaitFor("150 ok\r\n"));
  DataClient second(port, nullptr);
  ASSERT_TRUE(RunUntil([&] { return second.error != QAbstractSocket::UnknownSocketError; }, 5000));
  EXPECT_EQ(second.error, QAbstractSocket::ConnectionRefusedError);
  EXPECT_EQ(data.socket.state(), QAbstractSocket::ConnectedState);
}

TEST(ScriptedFtpServer, ConnectActiveWithoutPortCommandIsAScriptError) {
  ScriptedFtpServer server;
  server.Expect("RETR f", {ConnectActive(), Line("150 never sent")});
  Client client(server.Port());
  client.Send("RETR f\r\n");
  ASSERT_TRUE(RunUntil([&] { return !server.Mismatches().isEmpty(); }, 5000));
  RunFor(50);
  EXPECT_EQ(server.Mismatches(), QStringList({"ConnectActive: no PORT command received"}));
  EXPECT_TRUE(client.all.isEmpty());
}

TEST(ScriptedFtpServer, DataResetIsATcpResetAndDataCloseIsNot) {
  for (const bool reset : {true, false}) {
    SCOPED_TRACE(reset ? "DataReset" : "DataClose");
    ScriptedFtpServer server;
    server.Expect("PASV", {OpenPassive()})
        .Expect("RETR f", {Line("150 opening"), WaitDataConnected(), reset ? DataReset() : DataClose()});
    Client client(server.Port());
    client.Send("PASV\r\n");
    ASSERT_TRUE(client.WaitFor("\r\n"));
    RawSocket data(PassivePort(client.all));
    ASSERT_TRUE(data.Connected());
    client.Send("RETR f\r\n");
    RawSocket::State state = RawSocket::State::Open;
    ASSERT_TRUE(RunUntil([&] { return (state = data.Poll()) != RawSocket::State::Open; }, 5000));
    EXPECT_EQ(state, reset ? RawSocket::State::Reset : RawSocket::State::Eof);
  }
}

TEST(ScriptedFtpServer, DestructorClosesEveryConnectionInOrderMidScript) {
  auto server = std::make_unique<ScriptedFtpServer>();
  server->OnConnect({Line("220 ready")})
      .Expect("PASV", {OpenPassive()})
      .Expect("RETR f", {WaitDataConnected(), DataSend("x"), Delay(60000), Line("226 never sent")});
  RawSocket control(server->Port());
  ASSERT_TRUE(control.Connected());
  control.Send("PASV\r\n");
  ASSERT_TRUE(RunUntil([&] { return control.Poll() == RawSocket::State::Open && control.Received().contains("227"); }, 5000));
  RawSocket data(PassivePort(control.Received().mid(control.Received().indexOf("227"))));
  ASSERT_TRUE(data.Connected());
  control.Send("RETR f\r\n");
  ASSERT_TRUE(RunUntil([&] { return data.Poll() == RawSocket::State::Open && data.Received() == "x"; }, 5000));

  server.reset();  // a Delay is pending and both connections are open
  RawSocket::State controlState = RawSocket::State::Open, dataState = RawSocket::State::Open;
  ASSERT_TRUE(RunUntil([&] { return (controlState = control.Poll()) != RawSocket::State::Open; }, 5000));
  ASSERT_TRUE(RunUntil([&] { return (dataState = data.Poll()) != RawSocket::State::Open; }, 5000));
  EXPECT_EQ(controlState, RawSocket::State::Eof);
  EXPECT_EQ(dataState, RawSocket::State::Eof);
  EXPECT_FALSE(control.Received().contains("226"));
}

}  // namespace
}  // namespace velmar::test
