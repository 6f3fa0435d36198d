#pragma once
// Runs the built `velmar` binary for black-box tests. Every wait is bounded, and the
// event loop runs during the waits, so an in-process server can answer the shell.
#include "support/TestEventLoop.h"

#include <QProcess>
#include <QString>
#include <QStringList>

namespace velmar::test {

class ShellProcess {
public:
  struct Result {
    bool finished = false;
    int exitCode = -1;
    QString out;
    QString err;
    QStringList Lines() const { return out.split(u'\n', Qt::SkipEmptyParts); }
  };

  // Runs the shell with `arguments`, feeds `input` to stdin and closes it, and waits for
  // the end (at most `timeoutMs`; a shell still running then is killed).
  static Result Run(const QStringList& arguments, const QString& input = QString(), int timeoutMs = 20000) {
    ShellProcess shell;
    shell.Start(arguments);
    shell.Write(input);
    shell.CloseInput();
    return shell.Finish(timeoutMs);
  }

  ShellProcess() {
    QObject::connect(&process_, &QProcess::readyReadStandardOutput, [this] { Drain(); });
    QObject::connect(&process_, &QProcess::readyReadStandardError, [this] { Drain(); });
  }
  ~ShellProcess() {
    QObject::disconnect(&process_, nullptr, nullptr, nullptr);
    Kill();
  }

  // An environment variable of the shell to start.
  void SetEnv(const QString& name, const QString& value) {
    QProcessEnvironment environment = process_.processEnvironment();
    if (environment.isEmpty()) environment = QProcessEnvironment::systemEnvironment();
    environment.insert(name, value);
    process_.setProcessEnvironment(environment);
  }
  void Start(const QStringList& arguments, const QString& program = QStringLiteral(VELMAR_SHELL_BINARY)) {
    process_.start(program, arguments);
    started_ = process_.waitForStarted(10000);
  }
  bool Started() const { return started_; }
  void Write(const QString& text) {
    if (!text.isEmpty()) process_.write(text.toUtf8());
  }
  void CloseInput() { process_.closeWriteChannel(); }

  // Waits until stdout holds `text` (true), or the time is up or the shell has ended (false).
  bool WaitForOutput(const QString& text, int timeoutMs = 10000) {
    RunUntil([&] { return out_.contains(text) || process_.state() == QProcess::NotRunning; }, timeoutMs);
    return out_.contains(text);
  }

  Result Finish(int timeoutMs = 20000) {
    Result result;
    result.finished = RunUntil([&] { return process_.state() == QProcess::NotRunning; }, timeoutMs);
    Kill();
    Drain();
    result.exitCode = result.finished && process_.exitStatus() == QProcess::NormalExit ? process_.exitCode() : -1;
    result.out = out_;
    result.err = err_;
    return result;
  }

private:
  void Drain() {
    out_ += QString::fromUtf8(process_.readAllStandardOutput());
    err_ += QString::fromUtf8(process_.readAllStandardError());
  }
  void Kill() {
    if (process_.state() == QProcess::NotRunning) return;
    process_.kill();
    process_.waitForFinished(5000);
  }

  QProcess process_;
  QString out_;
  QString err_;
  bool started_ = false;
};

}  // namespace velmar::test
