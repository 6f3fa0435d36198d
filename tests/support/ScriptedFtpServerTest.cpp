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

namespace velmar::test {
namespace {

// A POSIX client socket, read without blocking: it tells a reset (ECONNRESET) from an orderly
// close (EOF), which Qt reports alike. Used for control and data connections.
struct RawSocket {
  enum class State { Open, Eof, Reset, OtherError };
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  bool connected = false;
  State state = State::Open;
  QByteArray received;

  explicit RawSocket(quint16 port) {
    const sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    // On loopback the kernel completes the handshake against the listen backlog, so a blocking
    // connect returns at once even though the server accepts later, on the event loop.
    connected = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  ~RawSocket() { ::close(fd); }
  void Send(const QByteArray& bytes) { (void)::send(fd, bytes.constData(), bytes.size(), MSG_NOSIGNAL); }

  // Reads what is there without waiting; the state of the connection stays once it has ended.
  State Poll() {
    char buffer[4096];
    for (int i = 0; i < 1000 && state == State::Open; ++i) {
      const ssize_t n = ::recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
      if (n > 0) received.append(buffer, n);
      else if (n == 0) state = State::Eof;
      else if (errno == EAGAIN || errno == EWOULDBLOCK) break;
      else if (errno != EINTR) state = errno == ECONNRESET ? State::Reset : State::OtherError;
    }
    return state;
  }
  // Waits until the bytes received contain text, the connection still open; false after 5 s.
  bool WaitFor(const QByteArray& text) {
    return RunUntil([&] { return Poll() == State::Open && received.contains(text); }, 5000);
  }
  // How the connection ends (Open if it does not within 5 s).
  State WaitClosed() {
    RunUntil([&] { return Poll() != State::Open; }, 5000);
    return state;
  }
};

using State = RawSocket::State;

TEST(ScriptedFtpServer, RepliesByteForByteAndAMismatchStopsTheScriptButNotTheConnection) {
  using Script = std::function<void(ScriptedFtpServer&)>;
  const struct { Script script; QByteArray sent; QString error; QByteArray replies; bool done; State end; } rows[] = {
      // Commands and replies keep every byte as Latin 1.
      {[](auto& s) { s.Expect(QString::fromLatin1("CWD Gr\xfc\xdf" "e"), {Line(QString::fromLatin1("250 \xfc"))}); },
       "CWD Gr\xfc\xdf" "e\r\n", {}, "250 \xfc\r\n", true, State::Open},
      // A mismatch stops the script: no reply to what follows.
      {[](auto& s) { s.OnConnect({Line("220 ready")}).Expect("USER anna", {}).Expect("PASS x", {Line("230 in")}); },
       "USER bob\r\nPASS x\r\n", "expected USER anna, got USER bob", "220 ready\r\n", false, State::Open},
      {[](auto& s) { s.ExpectPrefix("PASS ", {Line("230 logged in")}); }, "PASV\r\n", "expected PASS ..., got PASV",
       "", false, State::Open},
      // A command after the script is a mismatch, but the script itself is done.
      {[](auto& s) { s.OnConnect({Line("220 ready")}).Expect("NOOP", {Line("200 ok")}); }, "NOOP\r\nQUIT\r\n",
       "expected end of script, got QUIT", "220 ready\r\n200 ok\r\n", true, State::Open},
      {[](auto& s) { s.Expect("RETR f", {ConnectActive(), Line("150 never sent")}); }, "RETR f\r\n",
       "ConnectActive: no PORT command received", "", false, State::Open},
      // ResetControl aborts the connection with a TCP reset.
      {[](auto& s) { s.OnConnect({Line("220 ready")}).Expect("NOOP", {ResetControl()}); }, "NOOP\r\n", {},
       "220 ready\r\n", true, State::Reset},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.sent.toStdString());
    ScriptedFtpServer server;
    row.script(server);
    RawSocket client(server.Port());
    ASSERT_TRUE(client.connected);
    client.Send(row.sent);
    ASSERT_TRUE(RunUntil([&] {
      return server.Commands().size() == row.sent.count('\n') && (server.ScriptDone() || server.Mismatches().size());
    }, 5000));
    RunFor(100);
    EXPECT_EQ(server.Mismatches().join('|'), row.error);
    EXPECT_EQ(client.Poll(), row.end);
    EXPECT_EQ(client.received, row.replies);
    EXPECT_EQ(server.ScriptDone(), row.done);
    EXPECT_EQ(server.ClientConnected(), row.end == State::Open);
  }
}

TEST(ScriptedFtpServer, CloseControlEndsInOrderAndANewConnectionTakesOverTheScript) {
  ScriptedFtpServer server;
  server.OnConnect({Line("220 first")})
      .Expect("QUIT", {Line("221 bye"), CloseControl()})
      .OnConnect({Line("220 second")})
      .Expect("USER anna", {Line("331 password please")});
  RawSocket first(server.Port());
  ASSERT_TRUE(first.WaitFor("220 first\r\n"));
  first.Send("QUIT\r\n");
  EXPECT_EQ(first.WaitClosed(), State::Eof);
  EXPECT_EQ(first.received, "220 first\r\n221 bye\r\n");
  ASSERT_TRUE(RunUntil([&] { return !server.ClientConnected(); }, 5000));
  // The OnConnect step waits for a reconnect; a later connection replaces the earlier one,
  // which is closed in order, and the script goes on without a second greeting.
  RawSocket second(server.Port());
  ASSERT_TRUE(second.WaitFor("220 second\r\n"));
  RawSocket third(server.Port());
  ASSERT_TRUE(RunUntil([&] { return server.ConnectionCount() == 3; }, 5000));
  EXPECT_EQ(second.WaitClosed(), State::Eof);
  third.Send("USER anna\r\n");
  ASSERT_TRUE(third.WaitFor("331 password please\r\n"));
  EXPECT_EQ(third.received, "331 password please\r\n");
  EXPECT_TRUE(server.ScriptDone());
  EXPECT_TRUE(server.Mismatches().isEmpty());
}

TEST(ScriptedFtpServer, APassiveListenerTakesOneConnectionAndTheDestructorClosesAllInOrder) {
  // The data connection ends as the script says; the destructor closes what is still open, in
  // order, even with a Delay pending.
  const struct { QList<ScriptAction> end; State state; QByteArray bytes; } rows[] = {
      {{}, State::Open, ""}, {{DataReset()}, State::Reset, ""}, {{DataClose()}, State::Eof, ""},
      {{DataSend("x"), Delay(60000), Line("226 never sent")}, State::Open, "x"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(int(&row - rows));
    auto server = std::make_unique<ScriptedFtpServer>();
    server->Expect("PASV", {OpenPassive()}).Expect("RETR f", QList{WaitDataConnected(), Line("150 ok")} + row.end);
    RawSocket control(server->Port());
    control.Send("PASV\r\n");
    ASSERT_TRUE(control.WaitFor(").\r\n"));
    const auto pasv = QRegularExpression(R"(^227 Entering Passive Mode \(127,0,0,1,(\d+),(\d+)\)\.\r\n$)")
                          .match(QString::fromLatin1(control.received));
    ASSERT_TRUE(pasv.hasMatch()) << control.received.toStdString();
    const auto port = static_cast<quint16>(pasv.captured(1).toInt() * 256 + pasv.captured(2).toInt());
    RawSocket data(port);
    ASSERT_TRUE(data.connected);
    control.Send("RETR f\r\n");
    ASSERT_TRUE(control.WaitFor("150 ok\r\n"));
    EXPECT_FALSE(RawSocket(port).connected);  // refused
    EXPECT_TRUE(RunUntil([&] { return data.Poll() == row.state && data.received == row.bytes; }, 5000));
    server.reset();
    EXPECT_EQ(control.WaitClosed(), State::Eof);
    EXPECT_EQ(data.WaitClosed(), row.state == State::Open ? State::Eof : row.state);
    EXPECT_FALSE(control.received.contains("226"));
  }
}

}  // namespace
}  // namespace velmar::test
