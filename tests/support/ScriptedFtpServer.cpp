#include "support/ScriptedFtpServer.h"

#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <sys/socket.h>

namespace velmar::test {

ScriptAction Line(const QString& text) { return {ScriptAction::Kind::Send, text.toLatin1() + "\r\n", 0}; }
ScriptAction Raw(const QByteArray& bytes) { return {ScriptAction::Kind::Send, bytes, 0}; }
ScriptAction Delay(int milliseconds) { return {ScriptAction::Kind::Delay, {}, milliseconds}; }
ScriptAction CloseControl() { return {ScriptAction::Kind::CloseControl, {}, 0}; }
ScriptAction ResetControl() { return {ScriptAction::Kind::ResetControl, {}, 0}; }
ScriptAction OpenPassive() { return {ScriptAction::Kind::OpenPassive, {}, 0}; }
ScriptAction ConnectActive() { return {ScriptAction::Kind::ConnectActive, {}, 0}; }
ScriptAction WaitDataConnected() { return {ScriptAction::Kind::WaitDataConnected, {}, 0}; }
ScriptAction DataSend(const QByteArray& bytes) { return {ScriptAction::Kind::DataSend, bytes, 0}; }
ScriptAction DataClose() { return {ScriptAction::Kind::DataClose, {}, 0}; }
ScriptAction DataReset() { return {ScriptAction::Kind::DataReset, {}, 0}; }
ScriptAction DataReceiveAll() { return {ScriptAction::Kind::DataReceiveAll, {}, 0}; }

namespace {

// Closing a socket whose SO_LINGER is {on, 0 s} makes the kernel send a RST instead of a FIN.
void AbortWithReset(QTcpSocket* socket) {
  const qintptr fd = socket->socketDescriptor();
  if (fd != -1) {
    struct linger option {1, 0};
    ::setsockopt(static_cast<int>(fd), SOL_SOCKET, SO_LINGER, &option, sizeof option);
  }
  socket->abort();
}

// What the socket holds; nothing once it has been closed on this side (no warning from Qt).
QByteArray TakeBytes(QTcpSocket* socket) { return socket->isReadable() ? socket->readAll() : QByteArray(); }

// Stops delivering a retired object's signals to the script and frees it later: it may be the
// sender of the signal that is being handled right now.
void Retire(QObject* object) {
  if (!object) return;
  QObject::disconnect(object, nullptr, nullptr, nullptr);
  object->deleteLater();
}

}  // namespace

struct ScriptedFtpServer::Impl {
  struct Step {
    enum class Match { Connection, Exact, Prefix };
    Match match;
    QString text;
    QList<ScriptAction> actions;
  };
  // Something the script reacts to, in arrival order: a command line or a new connection.
  struct Event {
    bool connection = false;
    QString command;
  };

  QList<Step> steps;
  qsizetype nextStep = 0;
  QList<Event> queue;
  std::function<void(const QString&)> observer;

  // The step whose actions are running.
  bool running = false;
  QList<ScriptAction> actions;
  qsizetype nextAction = 0;
  std::function<bool()> waitFor;  // set while an action waits; the list goes on once it holds
  bool stopped = false;
  bool pumping = false;
  bool pumpAgain = false;

  QStringList commands;
  QStringList mismatches;
  QList<QByteArray> received;
  int connectionCount = 0;

  QTcpServer* controlServer = nullptr;
  QPointer<QTcpSocket> control;
  QByteArray controlBuffer;

  QTcpServer* passiveServer = nullptr;
  QPointer<QTcpSocket> data;
  bool dataConnected = false;   // the current data connection has been up (it may be closed by now)
  bool dataPeerClosed = false;  // the client has closed it
  QByteArray dataBuffer;

  QTimer* delayTimer = nullptr;
  bool delayOver = true;

  // Receiver of every signal connection and parent of every socket, server and timer. Declared
  // last so it goes first: its connections are cut before any socket it owns is destroyed.
  QObject context;

  Impl() {
    controlServer = new QTcpServer(&context);
    QObject::connect(controlServer, &QTcpServer::newConnection, &context, [this] { AcceptControl(); });
    if (!controlServer->listen(QHostAddress::LocalHost, 0))
      mismatches << QStringLiteral("cannot listen: %1").arg(controlServer->errorString());
    delayTimer = new QTimer(&context);
    delayTimer->setSingleShot(true);
    delayTimer->setTimerType(Qt::PreciseTimer);
    QObject::connect(delayTimer, &QTimer::timeout, &context, [this] {
      delayOver = true;
      Pump();
    });
  }

  void Shutdown() {
    // Close in order (a FIN, not a reset), without letting the script react to it.
    for (QTcpSocket* socket : {control.data(), data.data()}) {
      if (!socket) continue;
      QObject::disconnect(socket, nullptr, nullptr, nullptr);
      socket->close();
    }
    if (passiveServer) passiveServer->close();
    controlServer->close();
  }

  void Fail(const QString& message) {
    mismatches << message;
    stopped = true;
    running = false;
    waitFor = nullptr;
  }

  // ---- control connection

  void AcceptControl() {
    while (QTcpSocket* socket = controlServer->nextPendingConnection()) {
      if (control) {
        QPointer<QTcpSocket> old = control;
        QObject::disconnect(old, nullptr, nullptr, nullptr);
        old->disconnectFromHost();  // in order; the script goes on with the new connection
        old->deleteLater();
      }
      socket->setParent(&context);
      control = socket;
      controlBuffer.clear();
      ++connectionCount;
      QObject::connect(socket, &QTcpSocket::readyRead, &context, [this, socket] { ReadControl(socket); });
      queue << Event{true, {}};
    }
    Pump();
  }

  void ReadControl(QTcpSocket* socket) {
    controlBuffer += TakeBytes(socket);
    bool any = false;
    for (;;) {
      const qsizetype end = controlBuffer.indexOf("\r\n");
      if (end < 0) break;
      // Latin 1 keeps every byte as one character, so a test sees exactly what was sent.
      const QString line = QString::fromLatin1(controlBuffer.left(end));
      controlBuffer.remove(0, end + 2);
      commands << line;
      if (observer) observer(line);
      queue << Event{false, line};
      any = true;
    }
    if (any) Pump();
  }

  void SendControl(const QByteArray& bytes) {
    if (!control || control->state() != QAbstractSocket::ConnectedState) return;
    control->write(bytes);
    control->flush();
  }

  // ---- data connection

  void ResetDataState() {
    Retire(data);
    data = nullptr;
    if (passiveServer) {
      Retire(passiveServer);
      passiveServer = nullptr;
    }
    dataConnected = false;
    dataPeerClosed = false;
    dataBuffer.clear();
  }

  void AdoptData(QTcpSocket* socket) {
    socket->setParent(&context);
    data = socket;
    QObject::connect(socket, &QTcpSocket::readyRead, &context, [this, socket] { dataBuffer += TakeBytes(socket); });
    QObject::connect(socket, &QTcpSocket::disconnected, &context, [this, socket] {
      dataBuffer += TakeBytes(socket);
      dataPeerClosed = true;
      Pump();
    });
  }

  bool OpenPassive() {
    ResetDataState();
    passiveServer = new QTcpServer(&context);
    passiveServer->setMaxPendingConnections(1);
    if (!passiveServer->listen(QHostAddress::LocalHost, 0)) {
      Fail(QStringLiteral("OpenPassive: cannot listen: %1").arg(passiveServer->errorString()));
      return false;
    }
    QObject::connect(passiveServer, &QTcpServer::newConnection, &context, [this] {
      QTcpSocket* socket = passiveServer->nextPendingConnection();
      if (!socket || data) return;
      passiveServer->close();  // one data connection per listen
      AdoptData(socket);
      dataConnected = true;
      // Bytes and a close may already be waiting.
      dataBuffer += TakeBytes(socket);
      if (socket->state() != QAbstractSocket::ConnectedState) dataPeerClosed = true;
      Pump();
    });
    const quint16 port = passiveServer->serverPort();
    SendControl(QStringLiteral("227 Entering Passive Mode (127,0,0,1,%1,%2).\r\n")
                    .arg(port >> 8)
                    .arg(port & 0xff)
                    .toLatin1());
    return true;
  }

  bool ConnectActive() {
    ResetDataState();
    QString address;
    int port = -1;
    for (qsizetype i = commands.size() - 1; i >= 0 && port < 0; --i) {
      if (!commands[i].startsWith(QLatin1String("PORT "), Qt::CaseInsensitive)) continue;
      const QStringList parts = commands[i].mid(5).trimmed().split(u',');
      QList<int> numbers;
      for (const QString& part : parts) {
        bool ok = false;
        const int n = part.trimmed().toInt(&ok);
        if (ok && n >= 0 && n <= 255) numbers << n;
      }
      if (parts.size() != 6 || numbers.size() != 6) {
        Fail(QStringLiteral("ConnectActive: malformed PORT command: %1").arg(commands[i]));
        return false;
      }
      address = QStringLiteral("%1.%2.%3.%4").arg(numbers[0]).arg(numbers[1]).arg(numbers[2]).arg(numbers[3]);
      port = numbers[4] * 256 + numbers[5];
    }
    if (port < 0) {
      Fail(QStringLiteral("ConnectActive: no PORT command received"));
      return false;
    }
    auto* socket = new QTcpSocket(&context);
    AdoptData(socket);
    QObject::connect(socket, &QTcpSocket::connected, &context, [this] {
      dataConnected = true;
      Pump();
    });
    QObject::connect(socket, &QTcpSocket::errorOccurred, &context, [this, socket, address, port] {
      if (dataConnected) return;  // errors after the connect are the client's close or reset
      Fail(QStringLiteral("ConnectActive: cannot connect to %1:%2: %3").arg(address).arg(port).arg(socket->errorString()));
      Pump();
    });
    socket->connectToHost(QHostAddress(address), static_cast<quint16>(port));
    return true;
  }

  // Data actions need a data connection that was opened by an earlier action.
  bool RequireDataConnection(const char* action) {
    if (data || passiveServer) return true;
    Fail(QStringLiteral("%1: no data connection was opened (OpenPassive or ConnectActive first)")
             .arg(QLatin1String(action)));
    return false;
  }

  // ---- the script

  // Runs one action. An action that has to wait sets waitFor; one that fails stops the script.
  void Perform(const ScriptAction& action) {
    using Kind = ScriptAction::Kind;
    switch (action.kind) {
      case Kind::Send:
        SendControl(action.bytes);
        break;
      case Kind::Delay:
        delayOver = false;
        delayTimer->start(std::max(0, action.milliseconds));
        waitFor = [this] { return delayOver; };
        break;
      case Kind::CloseControl:
        if (control) control->disconnectFromHost();
        break;
      case Kind::ResetControl:
        if (control) AbortWithReset(control);
        break;
      case Kind::OpenPassive:
        OpenPassive();
        break;
      case Kind::ConnectActive:
        if (ConnectActive()) waitFor = [this] { return dataConnected; };
        break;
      case Kind::WaitDataConnected:
        if (RequireDataConnection("WaitDataConnected")) waitFor = [this] { return dataConnected; };
        break;
      case Kind::DataSend:
      case Kind::DataClose:
      case Kind::DataReset:
        // Runs once the connection is up: push the action back and wait for it.
        if (!RequireDataConnection("data action")) break;
        if (!dataConnected) {
          --nextAction;
          waitFor = [this] { return dataConnected; };
          break;
        }
        if (!data || data->state() != QAbstractSocket::ConnectedState) break;
        if (action.kind == Kind::DataSend) {
          data->write(action.bytes);
          data->flush();
        } else if (action.kind == Kind::DataClose) {
          data->disconnectFromHost();  // after the written bytes have gone out
        } else {
          AbortWithReset(data);
        }
        break;
      case Kind::DataReceiveAll:
        if (!RequireDataConnection("DataReceiveAll")) break;
        waitFor = [this] {
          if (!dataConnected) return false;
          if (data && data->state() != QAbstractSocket::UnconnectedState && !dataPeerClosed) return false;
          if (data) dataBuffer += TakeBytes(data);
          received << dataBuffer;
          dataBuffer.clear();
          return true;
        };
        break;
    }
  }

  void Match(const Event& event) {
    if (nextStep >= steps.size()) {
      if (!event.connection) mismatches << QStringLiteral("expected end of script, got %1").arg(event.command);
      return;
    }
    const Step& step = steps[nextStep];
    bool matches = false;
    QString expected;
    switch (step.match) {
      case Step::Match::Connection:
        if (!event.connection) {
          Fail(QStringLiteral("expected a new connection, got %1").arg(event.command));
          return;
        }
        matches = true;
        break;
      case Step::Match::Exact:
        if (event.connection) return;  // a reconnect between commands: the script goes on
        matches = event.command == step.text;
        expected = step.text;
        break;
      case Step::Match::Prefix:
        if (event.connection) return;
        matches = event.command.startsWith(step.text);
        expected = step.text + QStringLiteral("...");
        break;
    }
    if (!matches) {
      Fail(QStringLiteral("expected %1, got %2").arg(expected, event.command));
      return;
    }
    ++nextStep;
    running = true;
    actions = step.actions;
    nextAction = 0;
  }

  // Moves the script as far as it can go now. Every event ends up here; a call made while it
  // runs (a socket signal raised by an action) only asks it to go round once more.
  void Pump() {
    if (pumping) {
      pumpAgain = true;
      return;
    }
    pumping = true;
    do {
      pumpAgain = false;
      while (!stopped) {
        if (running) {
          if (waitFor) {
            if (!waitFor()) break;
            waitFor = nullptr;
          }
          if (nextAction >= actions.size()) {
            running = false;
            continue;
          }
          Perform(actions[nextAction++]);
          continue;
        }
        if (queue.isEmpty()) break;
        Match(queue.takeFirst());
      }
    } while (pumpAgain);
    pumping = false;
  }
};

ScriptedFtpServer::ScriptedFtpServer() : impl_(std::make_unique<Impl>()) {}

ScriptedFtpServer::~ScriptedFtpServer() { impl_->Shutdown(); }

quint16 ScriptedFtpServer::Port() const { return impl_->controlServer->serverPort(); }

ScriptedFtpServer& ScriptedFtpServer::OnConnect(QList<ScriptAction> actions) {
  impl_->steps << Impl::Step{Impl::Step::Match::Connection, {}, std::move(actions)};
  return *this;
}

ScriptedFtpServer& ScriptedFtpServer::Expect(const QString& command, QList<ScriptAction> actions) {
  impl_->steps << Impl::Step{Impl::Step::Match::Exact, command, std::move(actions)};
  return *this;
}

ScriptedFtpServer& ScriptedFtpServer::ExpectPrefix(const QString& prefix, QList<ScriptAction> actions) {
  impl_->steps << Impl::Step{Impl::Step::Match::Prefix, prefix, std::move(actions)};
  return *this;
}

void ScriptedFtpServer::SetCommandObserver(std::function<void(const QString& command)> observer) {
  impl_->observer = std::move(observer);
}

QStringList ScriptedFtpServer::Commands() const { return impl_->commands; }
QStringList ScriptedFtpServer::Mismatches() const { return impl_->mismatches; }

bool ScriptedFtpServer::ScriptDone() const {
  return !impl_->stopped && !impl_->running && impl_->nextStep >= impl_->steps.size();
}

QList<QByteArray> ScriptedFtpServer::ReceivedData() const { return impl_->received; }
int ScriptedFtpServer::ConnectionCount() const { return impl_->connectionCount; }

bool ScriptedFtpServer::ClientConnected() const {
  return impl_->control && impl_->control->state() == QAbstractSocket::ConnectedState;
}

}  // namespace velmar::test
