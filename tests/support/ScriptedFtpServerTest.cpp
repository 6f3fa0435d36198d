// Checks the scripted server fixture with clients that share nothing with the library: plain
// POSIX sockets, which also tell the kind of close (FIN or RST).
#include "support/ScriptedFtpServer.h"
#include "support/TestEventLoop.h"

#include <QRegularExpression>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <memory>

namespace velmar::test {
namespace {

quint16 PassivePort(const QByteArray& reply) {
  static const QRegularExpression pattern(
      QStringLiteral(R"(227 Entering Passive Mode \(127,0,0,1,(\d+),(\d+)\)\.\r\n)"));
  const QRegularExpressionMatch match = pattern.match(QString::fromLatin1(reply));
  if (!match.hasMatch()) return 0;
  return static_cast<quint16>(match.captured(1).toInt() * 256 + match.captured(2).toInt());
}

// A blocking-free POSIX client socket: it tells a reset (ECONNRESET) from an orderly close (EOF),
// which Qt reports alike. Used for control and data connections.
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
  // Waits until the bytes received contain text, the connection still open; false after 5 s.
  bool WaitFor(const QByteArray& text) {
    return RunUntil([&] { return Poll() == State::Open && received_.contains(text); }, 5000);
  }
  // How the connection ends (Open if it does not within 5 s).
  State WaitClosed() {
    State state = State::Open;
    RunUntil([&] { return (state = Poll()) != State::Open; }, 5000);
    return state;
  }

private:
  int fd_ = -1;
  bool connected_ = false;
  QByteArray received_;
};

// ---- control connection

TEST(ScriptedFtpServer, CommandsKeepEveryByteAsLatin1) {
  ScriptedFtpServer server;
  server.Expect(QString::fromLatin1("CWD Gr\xfc\xdf" "e"), {Line(QString::fromLatin1("250 Gr\xfc\xdf" "e"))});
  RawSocket client(server.Port());
  client.Send("CWD Gr\xfc\xdf" "e\r\n");
  ASSERT_TRUE(client.WaitFor("\r\n"));
  EXPECT_EQ(client.Received(), QByteArray("250 Gr\xfc\xdf" "e\r\n"));
  EXPECT_TRUE(server.Mismatches().isEmpty());
}

TEST(ScriptedFtpServer, MismatchesAreRecordedAndTheConnectionStays) {
  const struct {
    std::function<void(ScriptedFtpServer&)> script;
    QByteArray sent;
    QString mismatch;
    QByteArray replies;
    bool scriptDone;
  } rows[] = {
      // A mismatch stops the script: no reply to what follows.
      {[](ScriptedFtpServer& s) {
         s.OnConnect({Line("220 ready")}).Expect("USER anna", {Line("331 ok")}).Expect("PASS x", {Line("230 in")});
       },
       "USER bob\r\nPASS x\r\n", "expected USER anna, got USER bob", "220 ready\r\n", false},
      {[](ScriptedFtpServer& s) { s.ExpectPrefix("PASS ", {Line("230 logged in")}); }, "PASV\r\n",
       "expected PASS ..., got PASV", "", false},
      // A command after the script is a mismatch, but the script itself is done.
      {[](ScriptedFtpServer& s) { s.OnConnect({Line("220 ready")}).Expect("NOOP", {Line("200 ok")}); },
       "NOOP\r\nQUIT\r\n", "expected end of script, got QUIT", "220 ready\r\n200 ok\r\n", true},
      {[](ScriptedFtpServer& s) { s.Expect("RETR f", {ConnectActive(), Line("150 never sent")}); }, "RETR f\r\n",
       "ConnectActive: no PORT command received", "", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.sent.toStdString());
    ScriptedFtpServer server;
    row.script(server);
    RawSocket client(server.Port());
    client.Send(row.sent);
    ASSERT_TRUE(RunUntil([&] {
      return server.Commands().size() == row.sent.count('\n') && !server.Mismatches().isEmpty();
    }, 5000));
    RunFor(100);
    EXPECT_EQ(server.Mismatches(), QStringList{row.mismatch});
    EXPECT_EQ(client.Poll(), RawSocket::State::Open);
    EXPECT_EQ(client.Received(), row.replies);
    EXPECT_EQ(server.ScriptDone(), row.scriptDone);
    EXPECT_TRUE(server.ClientConnected());
  }
}

TEST(ScriptedFtpServer, CloseControlEndsTheConnectionAndANewOneContinuesTheScript) {
  ScriptedFtpServer server;
  server.OnConnect({Line("220 first")})
      .Expect("QUIT", {Line("221 bye"), CloseControl()})
      .OnConnect({Line("220 second")})
      .Expect("USER anna", {Line("331 password please")});
  RawSocket first(server.Port());
  ASSERT_TRUE(first.WaitFor("220 first\r\n"));
  first.Send("QUIT\r\n");
  EXPECT_EQ(first.WaitClosed(), RawSocket::State::Eof);
  EXPECT_EQ(first.Received(), "220 first\r\n221 bye\r\n");
  ASSERT_TRUE(RunUntil([&] { return !server.ClientConnected(); }, 5000));

  RawSocket second(server.Port());
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
  RawSocket first(server.Port());
  ASSERT_TRUE(first.WaitFor("220 ready\r\n"));
  RawSocket second(server.Port());
  ASSERT_TRUE(RunUntil([&] { return server.ConnectionCount() == 2; }, 5000));
  second.Send("USER anna\r\n");
  ASSERT_TRUE(second.WaitFor("331 password please\r\n"));
  EXPECT_EQ(second.Received(), "331 password please\r\n");  // the greeting step ran once, for the first
  EXPECT_TRUE(server.ScriptDone());
}

TEST(ScriptedFtpServer, ResetControlSendsATcpReset) {
  ScriptedFtpServer server;
  server.OnConnect({Line("220 ready")}).Expect("NOOP", {ResetControl()});
  RawSocket raw(server.Port());
  ASSERT_TRUE(raw.Connected());
  raw.Send("NOOP\r\n");
  EXPECT_EQ(raw.WaitClosed(), RawSocket::State::Reset);
  EXPECT_EQ(raw.Received(), "220 ready\r\n");
}

// ---- data connections

TEST(ScriptedFtpServer, PassiveListenerTakesOneConnectionOnly) {
  ScriptedFtpServer server;
  server.Expect("PASV", {OpenPassive()}).Expect("NLST", {WaitDataConnected(), Line("150 ok")});
  RawSocket client(server.Port());
  client.Send("PASV\r\n");
  ASSERT_TRUE(client.WaitFor("\r\n"));
  const quint16 port = PassivePort(client.Received());
  RawSocket data(port);
  ASSERT_TRUE(data.Connected());
  client.Send("NLST\r\n");
  ASSERT_TRUE(client.WaitFor("150 ok\r\n"));
  EXPECT_FALSE(RawSocket(port).Connected());  // refused
  EXPECT_EQ(data.Poll(), RawSocket::State::Open);
}

TEST(ScriptedFtpServer, DataResetIsATcpResetAndDataCloseIsNot) {
  for (const bool reset : {true, false}) {
    SCOPED_TRACE(reset ? "DataReset" : "DataClose");
    ScriptedFtpServer server;
    server.Expect("PASV", {OpenPassive()})
        .Expect("RETR f", {Line("150 opening"), WaitDataConnected(), reset ? DataReset() : DataClose()});
    RawSocket client(server.Port());
    client.Send("PASV\r\n");
    ASSERT_TRUE(client.WaitFor("\r\n"));
    RawSocket data(PassivePort(client.Received()));
    ASSERT_TRUE(data.Connected());
    client.Send("RETR f\r\n");
    EXPECT_EQ(data.WaitClosed(), reset ? RawSocket::State::Reset : RawSocket::State::Eof);
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
  ASSERT_TRUE(control.WaitFor("227"));
  RawSocket data(PassivePort(control.Received().mid(control.Received().indexOf("227"))));
  ASSERT_TRUE(data.Connected());
  control.Send("RETR f\r\n");
  ASSERT_TRUE(data.WaitFor("x"));

  server.reset();  // a Delay is pending and both connections are open
  EXPECT_EQ(control.WaitClosed(), RawSocket::State::Eof);
  EXPECT_EQ(data.WaitClosed(), RawSocket::State::Eof);
  EXPECT_EQ(data.Received(), "x");
  EXPECT_FALSE(control.Received().contains("226"));
}

}  // namespace
}  // namespace velmar::test
