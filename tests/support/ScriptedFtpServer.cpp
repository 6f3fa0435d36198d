#include "support/ScriptedFtpServer.h"

#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <functional>
#include <optional>
#include <utility>

#include <sys/socket.h>

namespace velmar::test {

using namespace Qt::StringLiterals;
using Kind = ScriptAction::Kind;

ScriptAction Line(const QString& text) { return {Kind::Send, text.toLatin1() + "\r\n"}; }
ScriptAction Raw(const QByteArray& bytes) { return {Kind::Send, bytes}; }
ScriptAction Delay(int milliseconds) { return {Kind::Delay, {}, milliseconds}; }
ScriptAction CloseControl() { return {Kind::CloseControl, {}}; }
ScriptAction ResetControl() { return {Kind::ResetControl, {}}; }
ScriptAction OpenPassive() { return {Kind::OpenPassive, {}}; }
ScriptAction ConnectActive() { return {Kind::ConnectActive, {}}; }
ScriptAction WaitDataConnected() { return {Kind::WaitDataConnected, {}}; }
ScriptAction DataSend(const QByteArray& bytes) { return {Kind::DataSend, bytes}; }
ScriptAction DataClose() { return {Kind::DataClose, {}}; }
ScriptAction DataReset() { return {Kind::DataReset, {}}; }
ScriptAction DataReceiveAll() { return {Kind::DataReceiveAll, {}}; }

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
    enum class Match { Connection, Exact, Prefix } match;
    QString text;
    QList<ScriptAction> actions;
  };
  QList<Step> steps;
  qsizetype nextStep = 0;
  QList<std::optional<QString>> queue;  // what the script reacts to in turn: a command, or none for a connection

  // The actions of the step that runs, and the next of them.
  QList<ScriptAction> actions;
  qsizetype nextAction = 0;
  std::function<bool()> waitFor;  // set while an action waits; the list goes on once it holds
  bool stopped = false;
  bool pumping = false;

  QStringList commands;
  QStringList mismatches;
  QList<QByteArray> received;
  int connectionCount = 0;

  QTcpServer controlServer;
  QPointer<QTcpSocket> control;
  QByteArray controlBuffer;

  QTcpServer* passiveServer = nullptr;
  QPointer<QTcpSocket> data;
  bool dataConnected = false;   // the current data connection has been up (it may be closed by now)
  bool dataPeerClosed = false;  // the client has closed it
  QByteArray dataBuffer;

  QTimer delayTimer;  // single shot: inactive once the delay is over

  // Receiver of every signal connection and parent of every socket and data listener. Declared
  // last so it goes first: its connections are cut before any socket it owns is destroyed.
  QObject context;

  Impl() {
    QObject::connect(&controlServer, &QTcpServer::newConnection, &context, [this] { AcceptControl(); });
    if (!controlServer.listen(QHostAddress::LocalHost, 0))
      mismatches << u"cannot listen: %1"_s.arg(controlServer.errorString());
    delayTimer.setSingleShot(true);
    delayTimer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&delayTimer, &QTimer::timeout, &context, [this] { Pump(); });
  }

  void Shutdown() {
    // Close in order (a FIN, not a reset), without letting the script react to it.
    for (QTcpSocket* socket : {control.data(), data.data()}) {
      if (!socket) continue;
      QObject::disconnect(socket, nullptr, nullptr, nullptr);
      socket->close();
    }
    if (passiveServer) passiveServer->close();
    controlServer.close();
  }

  void Fail(const QString& message) {
    mismatches << message;
    stopped = true;
    waitFor = nullptr;
    nextAction = actions.size();  // nor does the rest of the step run
  }

  // ---- control connection

  void AcceptControl() {
    while (QTcpSocket* socket = controlServer.nextPendingConnection()) {
      Retire(control);  // closed in order; the script goes on with the new connection
      if (control) control->disconnectFromHost();
      socket->setParent(&context);
      control = socket;
      controlBuffer.clear();
      ++connectionCount;
      QObject::connect(socket, &QTcpSocket::readyRead, &context, [this, socket] { ReadControl(socket); });
      queue << std::nullopt;
    }
    Pump();
  }

  void ReadControl(QTcpSocket* socket) {
    controlBuffer += TakeBytes(socket);
    for (qsizetype end; (end = controlBuffer.indexOf("\r\n")) >= 0;) {
      // Latin 1 keeps every byte as one character, so a test sees exactly what was sent.
      commands << QString::fromLatin1(controlBuffer.left(end));
      controlBuffer.remove(0, end + 2);
      queue << commands.last();
    }
    Pump();
  }

  void SendControl(const QByteArray& bytes) {
    if (!control || control->state() != QAbstractSocket::ConnectedState) return;
    control->write(bytes);
    control->flush();
  }

  // ---- data connection

  void ResetDataState() {
    Retire(std::exchange(data, nullptr));
    Retire(std::exchange(passiveServer, nullptr));
    dataConnected = dataPeerClosed = false;
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

  void OpenPassive() {
    ResetDataState();
    passiveServer = new QTcpServer(&context);
    passiveServer->setMaxPendingConnections(1);
    if (!passiveServer->listen(QHostAddress::LocalHost, 0))
      return Fail(u"OpenPassive: cannot listen: %1"_s.arg(passiveServer->errorString()));
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
    SendControl(u"227 Entering Passive Mode (127,0,0,1,%1,%2).\r\n"_s.arg(port >> 8).arg(port & 0xff).toLatin1());
  }

  // Connects to the address of the last PORT command; the script waits until the connection is up.
  void ConnectActive() {
    ResetDataState();
    const auto command = std::find_if(commands.crbegin(), commands.crend(),
                                      [](const QString& c) { return c.startsWith("PORT "_L1, Qt::CaseInsensitive); });
    if (command == commands.crend()) return Fail(u"ConnectActive: no PORT command received"_s);
    QList<int> n;  // h1,h2,h3,h4,p1,p2; -1 for a part that is not a number from 0 to 255
    for (const QString& part : command->mid(5).trimmed().split(u',')) {
      bool ok = false;
      const int value = part.trimmed().toInt(&ok);
      n << (ok && value >= 0 && value <= 255 ? value : -1);
    }
    if (n.size() != 6 || n.contains(-1)) return Fail(u"ConnectActive: malformed PORT command: %1"_s.arg(*command));
    const QString host = u"%1.%2.%3.%4"_s.arg(n[0]).arg(n[1]).arg(n[2]).arg(n[3]);
    const auto port = static_cast<quint16>(n[4] * 256 + n[5]);
    auto* socket = new QTcpSocket(&context);
    AdoptData(socket);
    QObject::connect(socket, &QTcpSocket::connected, &context, [this] { dataConnected = true; Pump(); });
    QObject::connect(socket, &QTcpSocket::errorOccurred, &context, [this, socket, host, port] {
      if (dataConnected) return;  // errors after the connect are the client's close or reset
      Fail(u"ConnectActive: cannot connect to %1:%2: %3"_s.arg(host).arg(port).arg(socket->errorString()));
      Pump();
    });
    socket->connectToHost(QHostAddress(host), port);
    waitFor = [this] { return dataConnected; };
  }

  // ---- the script

  // Runs one action. An action that has to wait sets waitFor; one that fails stops the script.
  void Perform(const ScriptAction& action) {
    switch (action.kind) {
      case Kind::Send:
        return SendControl(action.bytes);
      case Kind::Delay:
        delayTimer.start(std::max(0, action.milliseconds));
        waitFor = [this] { return !delayTimer.isActive(); };
        return;
      case Kind::CloseControl:
        if (control) control->disconnectFromHost();
        return;
      case Kind::ResetControl:
        if (control) AbortWithReset(control);
        return;
      case Kind::OpenPassive:
        return OpenPassive();
      case Kind::ConnectActive:
        return ConnectActive();
      default:  // a data action
        break;
    }
    // Data actions need a data connection that an earlier action opened.
    if (!data && !passiveServer)
      return Fail(u"data action without a data connection (OpenPassive or ConnectActive first)"_s);
    if (action.kind == Kind::DataReceiveAll) {
      waitFor = [this] {
        if (!dataConnected || (data && data->state() != QAbstractSocket::UnconnectedState && !dataPeerClosed))
          return false;
        if (data) dataBuffer += TakeBytes(data);
        received << std::exchange(dataBuffer, {});
        return true;
      };
    } else if (!dataConnected) {  // the others wait until the connection is up, and then run
      if (action.kind != Kind::WaitDataConnected) --nextAction;
      waitFor = [this] { return dataConnected; };
    } else if (data && data->state() == QAbstractSocket::ConnectedState) {
      if (action.kind == Kind::DataSend) {
        data->write(action.bytes);
        data->flush();
      } else if (action.kind == Kind::DataClose) {
        data->disconnectFromHost();  // after the written bytes have gone out
      } else if (action.kind == Kind::DataReset) {
        AbortWithReset(data);
      }
    }
  }

  // Takes the next step for a command line, or for a new connection (no command); stops the script
  // when it does not fit.
  void Match(const std::optional<QString>& command) {
    if (nextStep >= steps.size()) {
      if (command) mismatches << u"expected end of script, got %1"_s.arg(*command);
      return;
    }
    const Step& step = steps[nextStep];
    using enum Step::Match;
    if (!command && step.match != Connection) return;  // a reconnect between commands: the script goes on
    if (command && step.match == Connection) {
      Fail(u"expected a new connection, got %1"_s.arg(*command));
    } else if (command && (step.match == Exact ? *command != step.text : !command->startsWith(step.text))) {
      Fail(u"expected %1%2, got %3"_s.arg(step.text, step.match == Prefix ? u"..."_s : u""_s, *command));
    } else {
      actions = step.actions;
      nextAction = 0;
      ++nextStep;
    }
  }

  // Moves the script as far as it can go now. Every event ends up here. A call made while it runs
  // (a socket signal raised by an action) returns at once: the loop looks at everything again
  // after each action.
  void Pump() {
    if (pumping) return;
    pumping = true;
    while (!stopped && (!waitFor || waitFor())) {
      waitFor = nullptr;
      if (nextAction < actions.size())
        Perform(actions[nextAction++]);
      else if (!queue.isEmpty())
        Match(queue.takeFirst());
      else
        break;
    }
    pumping = false;
  }
};

ScriptedFtpServer::ScriptedFtpServer() : impl_(std::make_unique<Impl>()) {}

ScriptedFtpServer::~ScriptedFtpServer() { impl_->Shutdown(); }

quint16 ScriptedFtpServer::Port() const { return impl_->controlServer.serverPort(); }

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

QStringList ScriptedFtpServer::Commands() const { return impl_->commands; }
QStringList ScriptedFtpServer::Mismatches() const { return impl_->mismatches; }
bool ScriptedFtpServer::ScriptDone() const {
  return !impl_->stopped && !impl_->waitFor && impl_->nextAction >= impl_->actions.size() &&
         impl_->nextStep >= impl_->steps.size();
}
QList<QByteArray> ScriptedFtpServer::ReceivedData() const { return impl_->received; }
int ScriptedFtpServer::ConnectionCount() const { return impl_->connectionCount; }
bool ScriptedFtpServer::ClientConnected() const {
  return impl_->control && impl_->control->state() == QAbstractSocket::ConnectedState;
}

}  // namespace velmar::test
