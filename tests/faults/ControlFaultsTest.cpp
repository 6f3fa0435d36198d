// Fault injection, generated from two tables: the connecting machines with the script of a
// clean run, and the ways a server or a network can break a step where the server speaks.
// Every step of every machine meets every fault; each case must end once, with the message
// that belongs to the fault, before its timer has long passed, without a success where the
// work is not done, without the password in any report, and without spinning a core while it
// waits.
#include "platform/FolderItem.h"
#include "support/OperationRow.h"

#include <QElapsedTimer>

#include <algorithm>
#include <iostream>
#include <span>

namespace velmar::test {
namespace {

constexpr int kTimeoutMs = 1500;
const QString kPassword = "pw-0ff1ce-7";  // may appear in no report of any case
const QString kTimedOut = "error\tError: The connection timed out. Ending session.";
const QByteArray kFileBytes = RandomBytes(50000, 7);

// The machines that connect: each row's script follows the logon, which is faulted too; its
// after checks that the work is there (the downloaded file, the uploaded bytes, the listing).
using Machine = OperationRow;

const Machine kMachines[] = {
    {"Logon", [](S& s, const QString&) { s.Logon(); }, {}, {"success\tLogon Complete."}},
    {"GetFile", Start(&S::StartGetFile, {"f"}, "/pub"),
     {Ok("CWD /pub"), kPasv, kTypeI, {"RETR f", Served(kFileBytes)}, kQuit}, {kTransferred}, {},
     LocalFiles({{"f", kFileBytes}})},
    {"PutFile",
     Start(&S::StartPutFile, {"f"}, "/in", [](S& s) { WriteFile(s.GetLocalDirectoryPathName() + "f", kFileBytes); }),
     {Ok("CWD /in"), kTypeI, kPasv, {"STOR f", kStored}, kQuit}, {kTransferred}, {}, ServerReceived({kFileBytes})},
    {"GetDirList", Start(&S::StartGetDirList), {kTypeA, kPasv, Pwd("/"), {"LIST", Served(File("a"))}, kQuit},
     {"success\tThe file list has been transferred."}, {},
     OnSession([](S& s) { EXPECT_EQ(s.DirectoryFileList, File("a")); })},
    {"DeleteFile", Start(&S::StartDeleteFile, {"f"}), {kPasv, kTypeI, Ok("DELE f"), kQuit},
     {"success\tFile has been deleted."}},
    {"RenameFile", Start(&S::StartRenameFile, {"n", "o"}), {kPasv, kTypeI, Ok("RNFR o", "350 go"), Ok("RNTO n"), kQuit},
     {"success\tFile Rename Complete."}},
    {"PutDir", Start(&S::StartPutDir, {}, "/up", [](S& s) {
       WriteFile(s.GetLocalDirectoryPathName() + "top/f", kFileBytes);
       s.SetLocalFolderItem(GetFolderItem(s.GetLocalDirectoryPathName() + "top/"));
     }),
     {Ok("CWD /up"), kTypeI, kPasv, {"STOR f", kStored}, kPasv, Ok("CDUP"), kQuit},
     {"success\tDirectory Transfer Complete."}, {}, ServerReceived({kFileBytes})},
    {"DeleteDir", Start(&S::StartDeleteDir, {}, "/t"),
     {kTypeA, kPasv, Ok("CWD /t"), Pwd("/t"), {"LIST -a", Served(File("f"))}, Ok("DELE /t/f"), Ok("CDUP"), Ok("RMD /t"),
      kQuit},
     {"success\tThe directory has been deleted."}},
    {"GetDir", Start(&S::StartGetDir, {}, "/t"),
     {kTypeA, kPasv, Ok("CWD /t"), Pwd("/t"), {"LIST -a", Served(File("f"))}, kTypeI, kPasv,
      {"RETR /t/f", Served(kFileBytes)}, Ok("CDUP"), kQuit},
     {"success\tDirectory Transfer Complete."}, {}, LocalFiles({{"t/f", kFileBytes}})},
};

// What a fault does in place of the server's answer at one step, and how the case must end.
enum class Target { AnyStep, Transfer, PassiveOfTransfer };
struct Fault {
  const char* name;
  QList<ScriptAction> actions;
  QString end;  // the end report; empty: an error of the machine's error branch; "done": the machine's success
  Target target = Target::AnyStep;
  // Makes the actions from the clean answer's, where they depend on it.
  std::function<QList<ScriptAction>(QList<ScriptAction>)> reorder = {};
};

const Fault kFaults[] = {
    {"Close", {CloseControl()}, "error\tError: 102"},
    {"Reset", {ResetControl()}, "error\tError: 106"},
    {"Stall", {}, kTimedOut},
    {"Garbage", {Line("what is this")}, {}},
    {"NulBytes", {Raw(QByteArray("2\0\0 ok\r\n", 8))}, {}},
    {"MegabyteLine", {Line(QString(1 << 20, 'x'))}, {}},
    {"NoCarriageReturn", {Raw("200 ok\n")}, kTimedOut},
    {"LineWithoutEnd", {Raw(QByteArray(5 << 20, '9'))}, "error\tError: a reply line of more than 4194304 bytes"},
    // The data connection: reset or closed before the end (the server then says 426), or
    // never opened; and a 226 long before the close, which must still end well.
    {"DataReset",
     {Line("150 go"), WaitDataConnected(), DataSend("part"), DataReset(), Delay(50), Line("426 reset")},
     {}, Target::Transfer},
    {"DataClosedEarly",
     {Line("150 go"), WaitDataConnected(), DataSend("part"), DataClose(), Delay(50), Line("426 cut")},
     {}, Target::Transfer},
    // With WaitForDataClose, a download that the 226 overtakes polls with a NOOP until the close.
    {"Early226", {}, "done", Target::Transfer, [](QList<ScriptAction> clean) {
       clean.insert(1, clean.takeLast());  // the 226 right behind the 150, the data later
       clean.insert(2, Delay(300));
       return clean;
     }},
    {"DataNeverOpened", {Raw("227 Entering Passive Mode (127,0,0,1,0,1).\r\n")}, {}, Target::PassiveOfTransfer},
};

struct Case {
  QString name;
  const Machine* machine;
  QString expectedEnd;  // empty: any error
  bool mayFinish = false;  // the fault hits an answer that the machine does not look at
  ScriptedFtpServer server;
  QTemporaryDir local;
  std::shared_ptr<S> session = std::make_shared<S>();
  std::shared_ptr<QStringList> log = RecordingStatus::Attach(*session);

  Case(const Machine& m, QList<Exchange> script) : machine(&m) {
    server.OnConnect(script.takeFirst().actions);
    for (const Exchange& exchange : script) server.Expect(exchange.command, exchange.actions);
    session->SetLoginInfo("127.0.0.1", "u", kPassword);
    session->CommandPort = server.Port();
    session->SetLocalDirectoryPathName(local.path() + "/");
    session->Timeout = kTimeoutMs;
  }
  QStringList Ends() const { return RecordingStatus::Ends(*log); }
};

QList<Exchange> CleanScript(const Machine& machine) {
  const QList<Exchange> logon = {{"", {Line("220 ready")}}, Ok("USER u", "331 ok"), Ok("PASS " + kPassword, "230 in")};
  return logon + machine.script;
}

bool IsTransfer(const Exchange& exchange) {
  for (const ScriptAction& action : exchange.actions)
    if (action.kind == ScriptAction::Kind::WaitDataConnected || action.kind == ScriptAction::Kind::DataReceiveAll)
      return true;
  return false;
}

Target TargetOf(const QList<Exchange>& script, qsizetype step) {
  if (IsTransfer(script[step])) return Target::Transfer;
  for (qsizetype next = step + 1; script[step].command == "PASV" && next < script.size(); ++next)
    if (IsTransfer(script[next])) return Target::PassiveOfTransfer;
  return Target::AnyStep;
}

// Every case of one machine: each fault at each step, and the right answer split in two at
// each byte boundary.
std::vector<std::unique_ptr<Case>> CasesOf(const Machine& machine) {
  std::vector<std::unique_ptr<Case>> cases;
  const QList<Exchange> clean = CleanScript(machine);
  for (qsizetype step = 0; step < clean.size(); ++step) {
    const Exchange& at = clean[step];
    // QUIT and RNTO: the machine goes on whatever the answer.
    const bool ignored = at.command == "QUIT" || at.command.startsWith("RNTO");
    for (const Fault& fault : kFaults) {
      if (fault.target != Target::AnyStep && fault.target != TargetOf(clean, step)) continue;
      QList<Exchange> script = clean.mid(0, step);
      script.append({at.command, fault.reorder ? fault.reorder(at.actions) : fault.actions});
      // (The tree walk files its listing at the close by itself, without a NOOP.)
      const bool download = fault.reorder && at.command != "LIST -a" &&
                            std::none_of(at.actions.begin(), at.actions.end(), [](const auto& a) {
                              return a.kind == ScriptAction::Kind::DataReceiveAll;
                            });
      if (download) script.append({"NOOP", {Delay(100), Line("200 ok")}});
      if (fault.reorder) script.append(clean.mid(step + 1));
      auto& c = cases.emplace_back(std::make_unique<Case>(machine, script));
      c->session->WaitForDataClose = download;
      c->name = QString("%1 step %2 (%3): %4").arg(machine.name).arg(step).arg(at.command).arg(fault.name);
      // After QUIT a lost connection is the normal end and says nothing: the timer ends it.
      c->expectedEnd = at.command == "QUIT" && fault.end.startsWith("error\tError: 10") ? kTimedOut : fault.end;
      if (fault.end == "done") c->expectedEnd = machine.ends.first();
      c->mayFinish = ignored;
    }
    const qsizetype line = std::find_if(at.actions.begin(), at.actions.end(),
                                        [](const ScriptAction& a) { return a.kind == ScriptAction::Kind::Send; }) -
                           at.actions.begin();
    for (qsizetype cut = 1; line < at.actions.size() && cut < at.actions[line].bytes.size(); ++cut) {
      QList<Exchange> script = clean;
      const QByteArray bytes = at.actions[line].bytes;
      script[step].actions.replace(line, Raw(bytes.left(cut)));
      script[step].actions.insert(line + 1, Delay(5));
      script[step].actions.insert(line + 2, Raw(bytes.mid(cut)));
      auto& c = cases.emplace_back(std::make_unique<Case>(machine, script));
      c->name = QString("%1 step %2 (%3): split at %4").arg(machine.name).arg(step).arg(at.command).arg(cut);
      c->expectedEnd = machine.ends.first();
    }
  }
  return cases;
}

struct ControlFaults : ::testing::TestWithParam<Machine> {};

TEST_P(ControlFaults, EachStepMeetsEachFault) {
  std::vector<std::unique_ptr<Case>> all = CasesOf(GetParam());
  // The cases that wait for the timer run together, so that the suite waits for it once.
  std::stable_partition(all.begin(), all.end(), [](const auto& c) { return c->expectedEnd != kTimedOut; });
  std::cout << GetParam().name << ": " << all.size() << " cases\n";
  for (size_t first = 0; first < all.size(); first += 40) {
    const auto batch = std::span(all).subspan(first, std::min<size_t>(40, all.size() - first));
    const bool waiting =
        std::all_of(batch.begin(), batch.end(), [](const auto& c) { return c->expectedEnd == kTimedOut; });
    const double cpuBefore = CpuSeconds();
    QElapsedTimer wall;
    wall.start();
    for (const auto& c : batch) c->machine->start(*c->session, c->local.path() + "/");
    RunUntil([&] {
      return std::all_of(batch.begin(), batch.end(), [](const auto& c) { return !c->Ends().isEmpty(); });
    },
             kTimeoutMs + 10000);
    // Waiting for a server that says nothing costs no CPU: no loop polls in the meantime.
    if (waiting) {
      EXPECT_LT(CpuSeconds() - cpuBefore, 0.5 * wall.elapsed() / 1000.0) << GetParam().name;
    }
    RunFor(50);  // nothing may follow the end
    for (const auto& c : batch) {
      SCOPED_TRACE(c->name.toStdString());
      const QStringList ends = c->Ends();
      ASSERT_EQ(ends.size(), 1) << c->log->join('\n').toStdString();
      EXPECT_FALSE(c->log->join('\n').contains(kPassword));
      const QString &end = ends.first(), &success = c->machine->ends.first();
      if (!c->expectedEnd.isEmpty() && !(c->mayFinish && end == success)) {
        EXPECT_EQ(end, c->expectedEnd) << c->server.Mismatches().join('|').toStdString();
      } else if (c->expectedEnd.isEmpty() && !c->mayFinish) {
        EXPECT_TRUE(end.startsWith("error\t")) << end.toStdString();
      }
      if (end == success && c->machine->after) c->machine->after(*c->session, c->local.path() + "/", c->server);
    }
    for (auto& c : batch) c.reset();
  }
}
INSTANTIATE_TEST_SUITE_P(Machines, ControlFaults, ::testing::ValuesIn(kMachines),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmar::test
