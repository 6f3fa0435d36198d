#pragma once
// A table row for an operation of a logged-on session against the scripted server: what
// the caller sets up and starts, the exact commands the server expects with its answers,
// and the end reports that must follow. RunOperationRow also checks that the session takes
// the next operation afterwards, whatever the outcome.
#include "support/LoggedOnFixture.h"

#include <functional>
#include <ostream>

namespace velmar::test {

// A command the server expects (a trailing '*' matches any command with that prefix) and
// what it does then.
struct Exchange {
  QString command;
  QList<ScriptAction> actions;
};

struct OperationRow {
  const char* name;
  std::function<void(FTPSessionClass&, const QString& localDir)> start;
  QList<Exchange> script;
  QStringList ends;          // the end reports (success, error) of the operation, in order
  QStringList reports = {};  // reports that must be among the others
  std::function<void(FTPSessionClass&, const QString& localDir, const ScriptedFtpServer&)> after = {};
};
inline void PrintTo(const OperationRow& row, std::ostream* out) { *out << row.name; }

inline const QString kPwd = QStringLiteral("success\tThe working directory has been transferred.");

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

// A row of an operation that makes its own connection: the logon comes first in the
// script, and the operation closes its connection when it ends.
inline void RunConnectingRow(LoggedOnFixture& f, const OperationRow& row) {
  f.server.OnConnect({Line("220 ready")}).Expect("USER u", {Line("331 ok")}).Expect("PASS p", {Line("230 in")});
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

}  // namespace velmar::test
