#pragma once
// Pieces of OperationRow tables shared by the single-command and single-transfer tests: how
// an operation starts, the exchanges that recur, and the checks after a row.
#include "data/FTPDataSocket.h"
#include "support/OperationRow.h"
#include "support/TestFiles.h"

namespace velmar::test {

using S = FTPSessionClass;
using Prepare = std::function<void(S&)>;
using After = std::function<void(S&, const QString& localDir, const ScriptedFtpServer&)>;

// Starts an operation after adding names to Files and any other preparation, after storing
// a server path, or after writing a local file.
inline auto WithNames(const QStringList& names, void (S::*operation)(), Prepare prepare = {}) {
  return [=](S& s, const QString&) {
    for (const QString& name : names) s.AddFileName(name);
    if (prepare) prepare(s);
    (s.*operation)();
  };
}
inline auto InDir(const QString& path, void (S::*operation)()) {
  return WithNames({}, operation, [=](S& s) { s.SetServerDirectoryPathName(path); });
}
inline auto WithLocalFile(const QString& name, const QByteArray& bytes, void (S::*operation)(), Prepare prepare = {}) {
  return [=](S& s, const QString& localDir) {
    WriteFile(localDir + name, bytes);
    WithNames({name}, operation, prepare)(s, localDir);
  };
}
// Active mode, on 100 data ports clear of the servers' passive ranges and of other tests.
inline auto Active(qint32 firstPort) {
  return [=](S& s) {
    s.PassiveMode = false;
    s.SetDataPortRange(firstPort, firstPort + 99);
  };
}

inline QString Err(const QString& reply) { return "error\tError: " + reply + "\n"; }
// One command answered with one line; the passive or the active data leg, then the rest.
inline QList<Exchange> One(const QString& command, const QString& reply) { return {{command, {Line(reply)}}}; }
inline QList<Exchange> Pasv(const QList<Exchange>& rest) { return QList<Exchange>{{"PASV", {OpenPassive()}}} + rest; }
inline const Exchange kPort = {"PORT 127,0,0,1,*", {Line("200 ok")}};
inline QList<Exchange> Port(const QList<Exchange>& rest) { return QList<Exchange>{kPort} + rest; }
inline const Exchange kType = {"TYPE I", {Line("200 ok")}};
inline const QString kTransferred = "success\tFile Transfer Complete.";

// Checks after a row: a check of the session alone, the files at both ends, the data socket.
inline After OnSession(const std::function<void(S&)>& check) {
  return [=](S& s, const QString&, const ScriptedFtpServer&) { check(s); };
}
inline After LocalFileHolds(const QString& name, const QByteArray& content) {
  return [=](S&, const QString& dir, const ScriptedFtpServer&) { EXPECT_TRUE(ReadFile(dir + name) == content); };
}
inline After ServerReceived(const QByteArray& content) {
  return [=](S&, const QString&, const ScriptedFtpServer& server) {
    EXPECT_TRUE(server.ReceivedData() == QList<QByteArray>{content}) << server.ReceivedData().size() << " connections";
  };
}
inline After DataSocketOnDataPort(bool listening) {
  return OnSession([=](S& s) {
    EXPECT_EQ(s.DataSocket->IsListening(), listening);
    EXPECT_EQ(s.DataSocket->Port, s.DataPort);
  });
}

}  // namespace velmar::test
