// Connections to one server open a few at a time. A session that waits for its turn has not
// been idle: against a server that is slow to greet, every session of a crowd logs on,
// although the last ones wait longer for their turn than their inactivity limit.
#include "support/RecordingStatus.h"
#include "support/TestEventLoop.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

// Greets each connection 500 ms after accepting it, then logs anybody on at once.
struct SlowGreeter : QTcpServer {
  SlowGreeter() {
    listen(QHostAddress::LocalHost);
    connect(this, &QTcpServer::newConnection, this, [this] {
      while (QTcpSocket* client = nextPendingConnection()) {
        QTimer::singleShot(500, client, [client] { client->write("220 slow\r\n"); });
        connect(client, &QTcpSocket::readyRead, client, [client] {
          while (client->canReadLine())
            client->write(client->readLine().startsWith("USER") ? "331 ok\r\n" : "230 in\r\n");
        });
      }
    });
  }
};

TEST(Pacing, TheWaitForATurnDoesNotCountAsInactivity) {
  SlowGreeter server;
  ASSERT_TRUE(server.isListening());
  // 64 sessions, 16 at a time: the last start 1.5 s late, more than their limit of 1.2 s.
  std::vector<std::shared_ptr<FTPSessionClass>> sessions;
  std::vector<std::shared_ptr<QStringList>> logs;
  for (int i = 0; i < 64; ++i) {
    auto& s = sessions.emplace_back(std::make_shared<FTPSessionClass>());
    logs.push_back(RecordingStatus::Attach(*s));
    s->SetLoginInfo("127.0.0.1", "u", "p");
    s->CommandPort = server.serverPort();
    s->Timeout = 1200;
    s->Logon();
  }
  const auto ended = [&] {
    return std::all_of(logs.begin(), logs.end(),
                       [](const auto& log) { return !RecordingStatus::Ends(*log).isEmpty(); });
  };
  ASSERT_TRUE(RunUntil(ended, 20000));
  for (const auto& log : logs) EXPECT_EQ(RecordingStatus::Ends(*log), QStringList{"success\tLogon Complete."});
  for (const auto& s : sessions) s->Logoff();
}

}  // namespace
}  // namespace velmar::test
