// The engine's cost per reply: one line through ParseCommandBuffer, with and without a step
// of a machine behind it, and a whole logon (connect, greeting, USER, PASS) against the
// in-process scripted server over loopback.
// Run by bench/run.sh; alone: velmar-reply-bench [--benchmark_filter=...].
#include "session/FTPSessionClass.h"
#include "session/FTPStatusClass.h"
#include "platform/SocketCore.h"
#include "support/ScriptedFtpServer.h"

#include <QEventLoop>
#include <QTimer>

#include <benchmark/benchmark.h>

namespace {

using velmar::FTPSessionClass;

// A continuation line of a multi-line greeting: parsed, shown, no step runs.
void BM_ReplyLineWithoutStep(benchmark::State& state) {
  auto session = std::make_shared<FTPSessionClass>();
  session->FTPSessionType = QStringLiteral("Logon");
  session->CurrentFTPStep = QStringLiteral("CONNECT");
  const QByteArray line = "220-Welcome to the file server of the example company.\r\n";
  for (auto _ : state) {
    session->Buffer = line;
    session->ParseCommandBuffer();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ReplyLineWithoutStep);

// The final line of a reply that moves Logon from USER to PASS: the step's code test, the
// next command (there is no connection, so it goes nowhere) and its reports.
void BM_ReplyLineWithStep(benchmark::State& state) {
  auto session = std::make_shared<FTPSessionClass>();
  session->SetLoginInfo(QStringLiteral("127.0.0.1"), QStringLiteral("alice"), QStringLiteral("s3cret"));
  session->FTPSessionType = QStringLiteral("Logon");
  const QByteArray line = "331 Password required for alice.\r\n";
  for (auto _ : state) {
    session->CurrentFTPStep = QStringLiteral("USER");
    session->Buffer = line;
    session->ParseCommandBuffer();
  }
  if (session->CurrentFTPStep != QStringLiteral("PASS")) state.SkipWithError("the step did not advance");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ReplyLineWithStep);

// Ends the event loop at the session's success or error report.
class EndOfSession : public velmar::FTPStatusClass {
public:
  EndOfSession(FTPSessionClass* session, QEventLoop* loop, bool* succeeded)
      : FTPStatusClass(session), loop_(loop), succeeded_(succeeded) {}
  void Successful_FTP(const QString&) override {
    *succeeded_ = true;
    loop_->quit();
  }
  void Error_FTP(const QString&) override { loop_->quit(); }

private:
  QEventLoop* loop_;
  bool* succeeded_;
};

// A whole logon on a fresh session and connection each round; the server and the client share
// the one thread, so the figure is the cost of both sides, as a bound for the client's.
void BM_LogonScripted(benchmark::State& state) {
  using namespace velmar::test;
  QEventLoop loop;
  QTimer limit;  // a bound, should the server not answer
  limit.setSingleShot(true);
  QObject::connect(&limit, &QTimer::timeout, &loop, &QEventLoop::quit);
  for (auto _ : state) {
    ScriptedFtpServer server;
    server.OnConnect({Line(QStringLiteral("220 ready"))})
        .Expect(QStringLiteral("USER alice"), {Line(QStringLiteral("331 Password required for alice."))})
        .Expect(QStringLiteral("PASS s3cret"), {Line(QStringLiteral("230 Logged in."))});
    auto session = std::make_shared<FTPSessionClass>();
    bool succeeded = false;
    session->FTPStatusInstance = std::make_shared<EndOfSession>(session.get(), &loop, &succeeded);
    session->SetLoginInfo(QStringLiteral("127.0.0.1"), QStringLiteral("alice"), QStringLiteral("s3cret"));
    session->CommandPort = server.Port();
    session->Logon();
    limit.start(10000);
    loop.exec();
    limit.stop();
    if (!succeeded) {
      state.SkipWithError("the logon did not succeed");
      break;
    }
    velmar::SocketCore::CloseAll();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LogonScripted)->Unit(benchmark::kMicrosecond);

}  // namespace
