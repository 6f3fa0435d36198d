#pragma once
// An in-process FTP server that follows a script, for exact reply sequences that a real server
// will not produce. It runs on the test's own event loop (Qt sockets, not the library's), listens
// on 127.0.0.1 on a free port, serves one control connection at a time, and records every
// command line it receives.
//
// A script is a list of steps. An OnConnect step waits for a client to connect, any other step
// for one command line, which it checks; then the step runs its actions in order. Actions may
// wait (a delay, the data connection to open, the client to close it), so replies can be split
// across reads, delayed, or ordered against the data connection's close. A new connection while
// the script waits for a command is taken as it comes (the script goes on).
//
// Bytes: a command line becomes a QString one character per byte (Latin 1), and Line() sends
// Latin 1, so a test sees and sends exact bytes. To expect UTF-8 from the client, write
// Expect(QString::fromLatin1(QString("STOR \u00fc").toUtf8())), and send UTF-8 with Raw().
#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <memory>

namespace velmar::test {

struct ScriptAction {
  enum class Kind { Send, Delay, CloseControl, ResetControl, OpenPassive, ConnectActive, WaitDataConnected,
                    DataSend, DataClose, DataReset, DataReceiveAll };
  Kind kind;
  QByteArray bytes;
  int milliseconds = 0;
};

// The actions of a step, each run when the one before has ended.
ScriptAction Line(const QString& text);          // sends the text, and CR LF, on the control connection
ScriptAction Raw(const QByteArray& bytes);       // sends the bytes as they are (as one write)
ScriptAction Delay(int milliseconds);            // waits before the next action
ScriptAction CloseControl();                     // closes the control connection in order
ScriptAction ResetControl();                     // aborts it with a TCP reset
ScriptAction OpenPassive();                      // listens for a data connection, replies "227 ... (h1,...,p2)."
ScriptAction ConnectActive();                    // connects to the address of the last PORT command
ScriptAction WaitDataConnected();                // waits until the data connection is up
ScriptAction DataSend(const QByteArray& bytes);  // writes bytes on the data connection, once it is up
ScriptAction DataClose();                        // closes the data connection in order
ScriptAction DataReset();                        // aborts the data connection with a TCP reset
ScriptAction DataReceiveAll();  // waits until the client closes the data connection; keeps the bytes

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

  // Every command line received, in order, without CR LF.
  QStringList Commands() const;
  // Every script error, or empty. An unexpected command, ConnectActive without PORT, or a data
  // action without a data connection stops the script; a command after its end does not.
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
