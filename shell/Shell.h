#pragma once
// The `velmar` shell: runs instructions against one session, line by line, as the lines
// arrive, on the one event loop, so sessions keep running between lines.
//
// Sources, in order: each -e instruction (line N = its position among the -e's), then the
// script (a file, or stdin; line N = the line in it). Stdin on a pipe or a terminal is
// read through a socket notifier without blocking the loop; a regular file is read at once.
//
// A script error stops the run with status 2. Lines typed at a terminal are the exception:
// the error is reported and the next line is read, so a person does not lose the session.
#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QSocketNotifier;

namespace velmar {

class FTPSessionClass;
class TerminalPrompt;

class Shell {
public:
  struct Options {
    bool showProgress = true;
    QStringList instructions;      // from -e, in order
    std::optional<QString> script;  // a path, or "-" for stdin
  };

  explicit Shell(Options options);
  ~Shell();
  Shell(const Shell&) = delete;
  Shell& operator=(const Shell&) = delete;

  // Loads the -e instructions and the script and starts reading stdin if needed; the
  // run then goes on in the event loop and ends with QCoreApplication::exit(status).
  // Returns false, after a message on stderr, when the script cannot be read.
  bool Start();

  // The usage text of --help.
  static QString Usage();

  // Every session made from now on reports through a ShellStatus (lines on stdout, success
  // and error also to `onReport`); message boxes and stopped exceptions become lines too.
  static void InstallReceivers(bool showProgress, std::shared_ptr<std::function<void(FTPSessionClass*, bool)>> onReport);
  static void RemoveReceivers();

  // The shell's own instructions (those that are not operations of the session).
  static QStringList Instructions() { return {"new", "set", "print", "wait", "sleep", "quit"}; }

private:
  struct Line {
    QString text;
    int number = 0;
    bool interactive = false;
  };
  enum class Block { None, Wait, Sleep };

  void SchedulePump();
  void Pump();
  void Execute(const QStringList& words);
  void NewSession(const QString* id);
  void StartWait(double seconds);
  void StartSleep(qint32 milliseconds);
  void OnReport(FTPSessionClass* session, bool success);
  void OnBlockTimeout();
  void OnStdinReadable();
  void OnTypedLine(std::optional<QString> line);
  void TakeLines(bool atEnd);
  int Status() const;
  void Finish(int status);
  void CloseSessions();

  Options options_;
  std::shared_ptr<FTPSessionClass> session_;
  // Every session made, to close the connections of those still running at the end.
  std::vector<std::weak_ptr<FTPSessionClass>> sessions_;
  std::shared_ptr<std::function<void(FTPSessionClass*, bool)>> reportHandler_;

  std::deque<Line> queue_;
  int stdinLineNumber_ = 0;
  QByteArray stdinPending_;
  bool stdinOpen_ = false;
  bool interactive_ = false;
  std::unique_ptr<QSocketNotifier> stdinNotifier_;
  std::unique_ptr<TerminalPrompt> prompt_;  // at a terminal

  Block block_ = Block::None;
  QTimer blockTimer_;
  QTimer pumpTimer_;
  // Success and error reports of the current session that no `wait` has consumed yet.
  int unconsumedReports_ = 0;
  std::optional<bool> lastReportSucceeded_;
  // A `wait` ran out of time and no success or error report has come since: exit status 3.
  bool waitTimedOut_ = false;
  bool pumping_ = false;
  bool prompted_ = false;
  bool finished_ = false;
};

}  // namespace velmar
