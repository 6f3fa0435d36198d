#pragma once
// What the tables of operation rows (support/OperationRow.h) of the batches, walks and
// listings share: common exchanges, active ports, served listings, the walks' message boxes,
// and the suites that run a table on a connection of the row's own or on a logged-on session
// (a file that instantiates only one allows the other with GTEST_ALLOW_UNINSTANTIATED_...).
#include "platform/MsgBox.h"
#include "support/OperationRow.h"

namespace velmar::test {

using S = FTPSessionClass;

inline Exchange Ok(const QString& command, const char* reply = "250 ok") { return {command, {Line(reply)}}; }
inline Exchange Pwd(const QString& path) { return {"PWD", {Line("257 \"" + path + "\" is cwd")}}; }
inline const Exchange kPasv = {"PASV", {OpenPassive()}}, kQuit = Ok("QUIT", "221 bye");
inline const Exchange kTypeI = Ok("TYPE I", "200 ok"), kTypeA = Ok("TYPE A", "200 ok");
// An accepted PORT naming `port` on loopback.
inline Exchange Port(int port) { return Ok(QString("PORT 127,0,0,1,%1,%2").arg(port / 256).arg(port % 256), "200 ok"); }

// Active mode with the port at the end of a two-port range, so that the second round wraps.
// Each row has a range of its own, clear of the other tests' ranges, as rows run side by side,
// and below the kernel's ephemeral ports (32768 and up), which outgoing connections take.
inline std::function<void(S&)> ActiveAtRangeEnd(int first) {
  return [first](S& s) {
    s.PassiveMode = false;
    s.SetDataPortRange(first, first + 1);
    s.DataPort = first + 1;
  };
}

// Starts `start` after adding `names` in order and setting the server directory.
inline auto Batch(void (S::*start)(), QStringList names, const QString& directory = {},
                  std::function<void(S&)> prepare = {}) {
  return [=](S& s, const QString&) {
    for (const QString& name : names) s.AddFileName(name);
    s.SetServerDirectoryPathName(directory);
    if (prepare) prepare(s);
    (s.*start)();
  };
}
inline auto FilesLeft(QStringList expected) {
  return [=](S& s, const QString&, const ScriptedFtpServer&) { EXPECT_EQ(s.Files, expected); };
}

// Listing lines, and a listing served in reads split at '|', closed before the 226.
inline QByteArray File(const char* name) { return QByteArray("-rw-r--r-- 1 o g 1 Jan 1 10:00 ") + name + "\r\n"; }
inline QByteArray Folder(const char* name) { return QByteArray("drwxr-xr-x 2 o g 1 Jan 1 10:00 ") + name + "\r\n"; }
inline QList<ScriptAction> Listing(const QByteArray& text) {
  QList<ScriptAction> actions{Line("150 go"), WaitDataConnected()};
  for (const QByteArray& read : text.split('|')) actions << DataSend(read) << Delay(30);
  return actions << DataClose() << Delay(30) << Line("226 ok");
}

// The message boxes of a walk: collected from a row's start on, checked by its after.
inline QStringList gBoxes;
inline void CollectBoxes() {
  gBoxes.clear();
  SetMsgBoxHook([](const QString& text) { gBoxes.append(text); });
}
inline auto BoxesWere(QStringList expected) {
  return [=](S&, const QString&, const ScriptedFtpServer&) {
    SetMsgBoxHook({});
    EXPECT_EQ(gBoxes, expected);
  };
}

// A row of an operation that makes its own connection. A first exchange without a command
// holds the greeting, and the logon is then the row's own; else the usual logon comes first.
inline void RunConnecting(LoggedOnFixture& f, OperationRow row) {
  if (row.script.isEmpty() || !row.script.first().command.isEmpty()) return RunConnectingRow(f, row);
  f.server.OnConnect(row.script.takeFirst().actions);
  PlayRow(f, row, 0);
  if (!row.ends.isEmpty()) {
    EXPECT_EQ(f.session->CommandSocket, nullptr);
  }
}

struct ConnectingRows : LoggedOnFixture, ::testing::WithParamInterface<OperationRow> {};
TEST_P(ConnectingRows, Run) { RunConnecting(*this, GetParam()); }
struct ResidentRows : LoggedOnFixture, ::testing::WithParamInterface<OperationRow> {};
TEST_P(ResidentRows, Run) { RunOperationRow(*this, GetParam()); }
inline std::string RowName(const ::testing::TestParamInfo<OperationRow>& info) { return info.param.name; }

}  // namespace velmar::test
