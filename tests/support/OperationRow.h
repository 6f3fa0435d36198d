#pragma once
// A table row for an operation against the scripted server: what the caller sets up and
// starts, the exact commands the server expects with its answers, and the end reports that
// must follow. The pieces the tables share, and the two suites that run a table: on a
// connection of the row's own (ConnectingRows), or on a logged-on session (ResidentRows),
// which must take the next operation afterwards, whatever the outcome.
#include "data/FTPDataSocket.h"
#include "platform/MsgBox.h"
#include "support/LoggedOnFixture.h"
#include "support/TestFiles.h"

#include <functional>
#include <ostream>

namespace velmar::test {

using S = FTPSessionClass;
using Prepare = std::function<void(S&)>;
using After = std::function<void(S&, const QString& localDir, const ScriptedFtpServer&)>;

// A command the server expects (a trailing '*' matches any command with that prefix) and
// what it does then.
struct Exchange {
  QString command;
  QList<ScriptAction> actions;
};

struct OperationRow {
  const char* name;
  std::function<void(S&, const QString& localDir)> start;
  QList<Exchange> script;  // a connecting row's first exchange without a command: the greeting, and its own logon
  QStringList ends;          // the end reports (success, error) of the operation, in order
  QStringList reports = {};  // reports that must be among the others
  After after = {};
};
inline void PrintTo(const OperationRow& row, std::ostream* out) { *out << row.name; }
inline std::string RowName(const ::testing::TestParamInfo<OperationRow>& info) { return info.param.name; }

inline const QString kTransferred = QStringLiteral("success\tFile Transfer Complete.");
inline const QString kPwd = QStringLiteral("success\tThe working directory has been transferred.");
inline QString Err(const QString& reply) { return "error\tError: " + reply + "\n"; }

// Exchanges that recur.
inline Exchange Ok(const QString& command, const char* reply = "250 ok") { return {command, {Line(reply)}}; }
inline Exchange Pwd(const QString& path) { return {"PWD", {Line("257 \"" + path + "\" is cwd")}}; }
inline const Exchange kPasv = {"PASV", {OpenPassive()}}, kQuit = Ok("QUIT", "221 bye");
inline const Exchange kTypeI = Ok("TYPE I", "200 ok"), kTypeA = Ok("TYPE A", "200 ok");
inline QList<Exchange> Pasv(const QList<Exchange>& rest) { return QList{kPasv} + rest; }
// An accepted PORT naming `port` on loopback, or any port.
inline Exchange Port(int port) { return Ok(QString("PORT 127,0,0,1,%1,%2").arg(port / 256).arg(port % 256), "200 ok"); }
inline const Exchange kAnyPort = Ok("PORT 127,0,0,1,*", "200 ok");
// A file served on the data connection, which the server opens itself in active mode; a file stored.
inline QList<ScriptAction> Served(const QByteArray& bytes, bool active = false) {
  auto actions = active ? QList{ConnectActive(), Line("150 go")} : QList{Line("150 go"), WaitDataConnected()};
  return actions << DataSend(bytes) << DataClose() << Line("226 done");
}
inline const QList<ScriptAction> kStored = {Line("150 go"), DataReceiveAll(), Line("226 done")};

// Listing lines, and a listing served in reads split at '|', closed before the 226.
inline QByteArray File(const char* name) { return QByteArray("-rw-r--r-- 1 o g 1 Jan 1 10:00 ") + name + "\r\n"; }
inline QByteArray Folder(const char* name) { return QByteArray("drwxr-xr-x 2 o g 1 Jan 1 10:00 ") + name + "\r\n"; }
inline QList<ScriptAction> Listing(const QByteArray& text) {
  QList<ScriptAction> actions{Line("150 go"), WaitDataConnected()};
  for (const QByteArray& read : text.split('|')) actions << DataSend(read) << Delay(30);
  return actions << DataClose() << Delay(30) << Line("226 ok");
}

// Starts `start` after adding `names` in order, storing the server directory (unless null)
// and any other preparation; or after writing a local file of that name.
inline auto Start(void (S::*start)(), QStringList names = {}, const QString& directory = {}, Prepare prepare = {}) {
  return [=](S& s, const QString&) {
    for (const QString& name : names) s.AddFileName(name);
    if (!directory.isNull()) s.SetServerDirectoryPathName(directory);
    if (prepare) prepare(s);
    (s.*start)();
  };
}
inline auto WithLocalFile(const QString& name, const QByteArray& bytes, void (S::*start)(), Prepare prepare = {}) {
  return [=](S& s, const QString& localDir) {
    WriteFile(localDir + name, bytes);
    Start(start, {name}, {}, prepare)(s, localDir);
  };
}
// Active mode with the port at the end of a two-port range, so that the second round wraps.
// Each row has a range of its own, clear of the other tests' ranges, as rows run side by side,
// and below the kernel's ephemeral ports (32768 and up), which outgoing connections take.
inline Prepare ActiveAtRangeEnd(int first) {
  return [first](S& s) {
    s.PassiveMode = false;
    s.SetDataPortRange(first, first + 1);
    s.DataPort = first + 1;
  };
}

// Checks after a row: the session alone, the names left (Files is a stack: GetFileCount is
// the index of its last name), the files at both ends, the data socket.
inline After OnSession(const Prepare& check) {
  return [=](S& s, const QString&, const ScriptedFtpServer&) { check(s); };
}
inline After FilesLeft(const QStringList& names) {
  return OnSession([=](S& s) {
    EXPECT_EQ(s.Files, names);
    EXPECT_EQ(s.GetFileCount(), names.size() - 1);
  });
}
inline After LocalFiles(const QList<std::pair<QString, QByteArray>>& files) {
  return [=](S&, const QString& localDir, const ScriptedFtpServer&) {
    for (const auto& [name, bytes] : files) EXPECT_TRUE(ReadFile(localDir + name) == bytes) << name.toStdString();
  };
}
inline After ServerReceived(const QList<QByteArray>& content) {
  return [=](S&, const QString&, const ScriptedFtpServer& server) {
    EXPECT_TRUE(server.ReceivedData() == content) << server.ReceivedData().size() << " connections";
  };
}
inline After DataSocketOnDataPort(bool listening) {
  return OnSession([=](S& s) {
    EXPECT_EQ(s.DataSocket->IsListening(), listening);
    EXPECT_EQ(s.DataSocket->Port, s.DataPort);
  });
}

// The message boxes of a walk: collected from a row's start on, checked by its after.
inline QStringList gBoxes;
inline void CollectBoxes() {
  gBoxes.clear();
  SetMsgBoxHook([](const QString& text) { gBoxes.append(text); });
}
inline After BoxesWere(QStringList expected) {
  return [=](S&, const QString&, const ScriptedFtpServer&) {
    SetMsgBoxHook({});
    EXPECT_EQ(gBoxes, expected);
  };
}

// Scripts the row, starts it and checks its end reports, the script and the other reports;
// `earlierEnds` end reports came before the row's.
inline void PlayRow(LoggedOnFixture& f, const OperationRow& row, qsizetype earlierEnds) {
  for (const Exchange& exchange : row.script) {
    if (exchange.command.endsWith('*'))
      f.server.ExpectPrefix(exchange.command.chopped(1), exchange.actions);
    else
      f.server.Expect(exchange.command, exchange.actions);
  }
  row.start(*f.session, f.local.path() + "/");
  if (row.ends.isEmpty()) {
    ASSERT_TRUE(RunUntil([&] { return f.server.ScriptDone(); }));
    RunFor(100);
  } else {
    ASSERT_TRUE(f.WaitForEnds(static_cast<int>(earlierEnds + row.ends.size()))) << f.log->join("\n").toStdString();
    RunFor(20);  // nothing more may follow
  }
  EXPECT_EQ(RecordingStatus::Ends(*f.log).mid(earlierEnds), row.ends);
  EXPECT_EQ(f.server.Mismatches(), QStringList());
  for (const QString& report : row.reports) EXPECT_TRUE(f.log->contains(report)) << report.toStdString();
  if (row.after) row.after(*f.session, f.local.path() + "/", f.server);
}

// An operation that makes its own connection closes it when it ends.
inline void RunConnecting(LoggedOnFixture& f, OperationRow row) {
  if (!row.script.isEmpty() && row.script.first().command.isEmpty())
    f.server.OnConnect(row.script.takeFirst().actions);
  else
    f.ScriptLogOn();
  PlayRow(f, row, 0);
  EXPECT_TRUE(row.ends.isEmpty() || f.session->CommandSocket == nullptr);
}

inline void RunOperationRow(LoggedOnFixture& f, const OperationRow& row) {
  f.LogOn();
  PlayRow(f, row, 1);
  f.server.Expect("PWD", {Line("257 \"/\"")});
  f.session->GetWorkingDir();
  ASSERT_TRUE(f.WaitForEnds(2 + row.ends.size()));
  EXPECT_EQ(RecordingStatus::Ends(*f.log).last(), kPwd);
}

struct ConnectingRows : LoggedOnFixture, ::testing::WithParamInterface<OperationRow> {};
TEST_P(ConnectingRows, Run) { RunConnecting(*this, GetParam()); }
struct ResidentRows : LoggedOnFixture, ::testing::WithParamInterface<OperationRow> {};
TEST_P(ResidentRows, Run) { RunOperationRow(*this, GetParam()); }
// A file may run one suite only.
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ConnectingRows);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ResidentRows);

}  // namespace velmar::test
