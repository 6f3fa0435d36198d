// Checks the scripted server fixture with clients that share nothing with the library: plain
// POSIX sockets, which also tell the kind of close (FIN or RST).
#include "support/ScriptedFtpServer.h"
#include "support/TestEventLoop.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace velmar::test {
namespace {

// A POSIX client socket, read without blocking: it tells a reset (ECONNRESET) from an orderly
// close (EOF), which Qt reports alike.
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
      // ResetControl aborts the connection with a TCP reset, CloseControl closes it in order after the replies.
      {[](auto& s) { s.OnConnect({Line("220 ready")}).Expect("NOOP", {ResetControl()}); }, "NOOP\r\n", {},
       "220 ready\r\n", true, State::Reset},
      {[](auto& s) { s.Expect("QUIT", {Line("221 bye"), CloseControl()}); }, "QUIT\r\n", {}, "221 bye\r\n", true,
       State::Eof},
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

}  // namespace
}  // namespace velmar::test
