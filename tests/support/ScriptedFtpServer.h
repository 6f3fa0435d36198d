#pragma once
// An in-process FTP server that follows a script, for exact reply sequences that a real
// server will not produce. It runs on the test's own event loop (Qt sockets, not the
// library's), listens on 127.0.0.1 on a free port, serves one control connection at a
// time, and records every command line it receives.
//
// A script is a list of steps. The first step runs when a client connects (usually the
// greeting); each further step waits for one command line, checks it, then runs its
// actions in order. Actions may wait (a delay, the data connection to open, the client to
// close the data connection), so replies can be split across reads, delayed, or ordered
// against the data connection's close.
//
// Bytes and text: a received command line becomes a QString one character per byte (ISO
// Latin 1), and Line() sends its text as Latin 1, so a test sees and sends exact bytes. To
// expect UTF-8 from the client, write Expect(QString::fromLatin1(QString("STOR \u00fc").toUtf8())),
// and send UTF-8 with Raw(). A new connection while the script waits for a command is taken
// as it comes (the script goes on); an OnConnect step later in the script waits for a
// reconnect. A script error (mismatch, ConnectActive without PORT, data action without a data
// connection) stops the script and is listed in Mismatches().
#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>

namespace velmar::test {

struct ScriptAction {
  enum class Kind {
    Send,              // write bytes on the control connection (as one write)
    Delay,             // wait milliseconds before the next action
    CloseControl,      // close the control connection in order
    ResetControl,      // abort it with a TCP reset
    OpenPassive,       // listen for a data connection and reply "227 ... (h1,h2,h3,h4,p1,p2)."
    ConnectActive,     // connect to the address of the last PORT command
    WaitDataConnected, // wait until the data connection is up
    DataSend,          // write bytes on the data connection
    DataClose,         // close the data connection in order
    DataReset,         // abort the data connection with a TCP reset
    DataReceiveAll,    // wait until the client closes the data connection; keep the bytes
  };
  Kind kind;
  QByteArray bytes;
  int milliseconds = 0;
};

// Builders for actions. Line() appends CR LF.
ScriptAction Line(const QString& text);
ScriptAction Raw(const QByteArray& bytes);
ScriptAction Delay(int milliseconds);
ScriptAction CloseControl();
ScriptAction ResetControl();
ScriptAction OpenPassive();   // sends the 227 line itself
ScriptAction ConnectActive();
ScriptAction WaitDataConnected();
ScriptAction DataSend(const QByteArray& bytes);
ScriptAction DataClose();
ScriptAction DataReset();
ScriptAction DataReceiveAll();

class ScriptedFtpServer : public QObject {
public:
  ScriptedFtpServer();
  ~ScriptedFtpServer() override;

  quint16 Port() const;

  // Runs when a client connects: usually OnConnect({Line("220 ready")}). No step: silent.
  ScriptedFtpServer& OnConnect(QList<ScriptAction> actions);
  // The next command must equal `command` (exactly, without CR LF); then the actions run.
  // A command that differs is recorded as a mismatch and the server stops answering.
  ScriptedFtpServer& Expect(const QString& command, QList<ScriptAction> actions);
  // Like Expect, for any command that starts with `prefix`.
  ScriptedFtpServer& ExpectPrefix(const QString& prefix, QList<ScriptAction> actions);
  // Called with every command received, before it is matched (for tests that look at
  // timing or state at the moment a command arrives).
  void SetCommandObserver(std::function<void(const QString& command)> observer);

  // Every command line received, in order, without CR LF.
  QStringList Commands() const;
  // Every script error (unexpected command, command after the script's end), or empty.
  QStringList Mismatches() const;
  // True when every step of the script has run to its end.
  bool ScriptDone() const;
  // Bytes received by DataReceiveAll actions, one entry per data connection.
  QList<QByteArray> ReceivedData() const;
  // Number of control connections accepted so far.
  int ConnectionCount() const;
  // True while a client holds the control connection open.
  bool ClientConnected() const;

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace velmar::test
