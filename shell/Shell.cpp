#include "shell/Shell.h"

#include "platform/SocketCore.h"

#include "data/FTPDataSocket.h"
#include "platform/Exceptions.h"
#include "platform/MsgBox.h"
#include "session/FTPCommandSocket.h"
#include "session/FTPConnectionTimer.h"
#include "session/FTPSessionClass.h"
#include "session/SocketErrorHint.h"
#include "shell/Json.h"
#include "shell/ScriptError.h"
#include "shell/ScriptLine.h"
#include "shell/ShellApplication.h"
#include "shell/ShellOperations.h"
#include "shell/ShellOutput.h"
#include "shell/ShellStatus.h"
#include "shell/TerminalLine.h"
#include "shell/TerminalPrompt.h"

#include <QCoreApplication>
#include <QFile>
#include <QSocketNotifier>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velmar {

// ---------------------------------------------------------------------------------------
// ShellOutput

namespace {

TerminalLine* kept = nullptr;
bool keptShown = false;
std::function<void(qint64)> progressDisplay;

void ClearKept() {
  if (kept && keptShown) kept->Clear();
  keptShown = false;
}

void Write(FILE* stream, const QString& text) {
  ClearKept();
  const QByteArray bytes = text.toUtf8();
  std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
}

// stderr lines are flushed at once, after what stdout holds, so the two keep their order on a
// terminal.
void WriteFlushed(FILE* stream, const QString& text) {
  std::fflush(stdout);
  Write(stream, text);
  std::fflush(stream);
}

}  // namespace

void ShellOutput::Report(const QString& kind, const QString& text) {
  Write(stdout, kind + u'\t' + EscapeText(text) + u'\n');
  if (kept && kept->EndsAtReport() && (kind == u"success" || kind == u"error")) Release(kept);
}

void ShellOutput::Value(const QString& kind, const QString& name, const Json& value) {
  Write(stdout, kind + u'\t' + EscapeText(name) + u'\t' + JsonText(value) + u'\n');
}

void ShellOutput::Flush() {
  std::fflush(stdout);
  if (kept && !keptShown) {
    kept->Draw();
    keptShown = true;
  }
}

void ShellOutput::Progress(qint64 bytes) {
  if (progressDisplay)
    progressDisplay(bytes);
  else
    Report(QStringLiteral("progress"), QString::number(bytes));
}

void ShellOutput::SetProgressDisplay(std::function<void(qint64)> display) { progressDisplay = std::move(display); }

void ShellOutput::Keep(TerminalLine* line, bool shown) {
  if (kept == line) return;
  ClearKept();
  if (kept) kept->Released();
  kept = line;
  keptShown = shown;
}

void ShellOutput::Release(TerminalLine* line) {
  if (kept != line || !line) return;
  ClearKept();
  kept = nullptr;
  line->Released();
}

TerminalLine* ShellOutput::Kept() { return kept; }

void ShellOutput::Repaint() { ClearKept(); }

namespace {
// Messages for people: control characters (from the script's words) are escaped so that
// a message stays on its line, backslashes are left as they are.
QString OneLine(const QString& message) {
  QString out;
  for (const QChar c : message) out += (c == u'\\') ? QString(c) : EscapeText(QString(c));
  return out;
}
}  // namespace

void ShellOutput::ScriptError(int line, const QString& message) {
  WriteFlushed(stderr, QStringLiteral("velmar: line %1: %2\n").arg(line).arg(OneLine(message)));
}

void ShellOutput::Error(const QString& message) { WriteFlushed(stderr, QStringLiteral("velmar: %1\n").arg(OneLine(message))); }

void ShellOutput::Prompt(const QString& text) { WriteFlushed(stderr, text); }

// ---------------------------------------------------------------------------------------
// ShellStatus

ShellStatus::ShellStatus(FTPSessionClass* session, bool showProgress, std::shared_ptr<ReportHandler> onReport)
    : FTPStatusClass(session), showProgress_(showProgress), onReport_(std::move(onReport)) {}

void ShellStatus::Error_FTP(const QString& text) {
  ShellOutput::Report(QStringLiteral("error"), text);
  if (Session) {
    const QString hint = SocketErrorHint::For(text, Session->ServerAddress, Session->CommandPort);
    if (!hint.isEmpty()) ShellOutput::Report(QStringLiteral("hint"), hint);
  }
  Final(false);
}

void ShellStatus::Progress_FTP(qint32 bytes) {
  if (showProgress_) ShellOutput::Progress(bytes);
}

void ShellStatus::Successful_FTP(const QString& text) {
  ShellOutput::Report(QStringLiteral("success"), text);
  Final(true);
}

void ShellStatus::Response_FTP(const QString& text) { ShellOutput::Report(QStringLiteral("response"), text); }

void ShellStatus::Status_FTP(const QString& text) { ShellOutput::Report(QStringLiteral("status"), text); }

void ShellStatus::Final(bool success) {
  if (onReport_ && *onReport_) (*onReport_)(Session, success);
}

// ---------------------------------------------------------------------------------------
// Shell

namespace {

constexpr double kDefaultWaitSeconds = 30;
// How soon to try again when the next line would run inside another event handler.
constexpr int kNestedRetryMs = 5;

QString WrapNames(const QStringList& names, const QString& indent) {
  QString out;
  QString line = indent;
  for (qsizetype i = 0; i < names.size(); ++i) {
    const QString item = names[i] + (i + 1 < names.size() ? QStringLiteral(",") : QString());
    if (line.size() > indent.size() && line.size() + 1 + item.size() > 78) {
      out += line + u'\n';
      line = indent;
    }
    if (line.size() > indent.size()) line += u' ';
    line += item;
  }
  return out + line + u'\n';
}

void CheckCount(const QStringList& arguments, int least, int most, const char* usage) {
  if (arguments.size() < least || arguments.size() > most)
    throw ScriptError(QStringLiteral("usage: %1").arg(QLatin1String(usage)));
}

}  // namespace

Shell::Shell(Options options)
    : options_(std::move(options)),
      reportHandler_(std::make_shared<std::function<void(FTPSessionClass*, bool)>>()) {
  *reportHandler_ = [this](FTPSessionClass* session, bool success) { OnReport(session, success); };

  InstallReceivers(options_.showProgress, reportHandler_);

  blockTimer_.setSingleShot(true);
  QObject::connect(&blockTimer_, &QTimer::timeout, [this] { OnBlockTimeout(); });
  pumpTimer_.setSingleShot(true);
  QObject::connect(&pumpTimer_, &QTimer::timeout, [this] { Pump(); });

  NewSession(nullptr);
}

Shell::~Shell() {
  *reportHandler_ = nullptr;
  if (stdinNotifier_) stdinNotifier_->setEnabled(false);
  CloseSessions();
  session_.reset();
  RemoveReceivers();
}

void Shell::InstallReceivers(bool showProgress, std::shared_ptr<std::function<void(FTPSessionClass*, bool)>> onReport) {
  FTPStatusClass::SetFactory([showProgress, onReport](FTPSessionClass* session) -> std::shared_ptr<FTPStatusClass> {
    return std::make_shared<ShellStatus>(session, showProgress, onReport);
  });
  SetMsgBoxHook([](const QString& text) { ShellOutput::Report(QStringLiteral("msgbox"), text); });
  SetExceptionHook([](const QString& description) { ShellOutput::Report(QStringLiteral("exception"), description); });
}

void Shell::RemoveReceivers() {
  SetMsgBoxHook({});
  SetExceptionHook({});
}

bool Shell::Start() {
  int number = 0;
  for (const QString& instruction : options_.instructions) queue_.push_back({instruction, ++number, false});

  // The script: a file, or stdin when named "-" or when nothing else was given.
  int fd = -1;
  if (options_.script && *options_.script != u"-") {
    const QByteArray path = QFile::encodeName(*options_.script);
    fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
      ShellOutput::Error(QStringLiteral("cannot read %1: %2").arg(*options_.script, QString::fromLocal8Bit(std::strerror(errno))));
      return false;
    }
  } else if (options_.script || options_.instructions.isEmpty()) {
    fd = STDIN_FILENO;
  }

  if (fd >= 0) {
    struct stat info {};
    const bool known = ::fstat(fd, &info) == 0;
    if (known && S_ISDIR(info.st_mode)) {
      ShellOutput::Error(QStringLiteral("cannot read %1: it is a directory").arg(options_.script.value_or(QStringLiteral("-"))));
      if (fd != STDIN_FILENO) ::close(fd);
      return false;
    }
    if (known && S_ISREG(info.st_mode)) {
      // A regular file is complete: read it at once.
      QFile file;
      const auto handle = fd == STDIN_FILENO ? QFileDevice::DontCloseHandle : QFileDevice::AutoCloseHandle;
      if (!file.open(fd, QIODevice::ReadOnly, handle) && fd != STDIN_FILENO) ::close(fd);
      stdinPending_ = file.readAll();
      TakeLines(true);
    } else {
      // A pipe, terminal or socket: lines are taken as they arrive, the loop runs meanwhile.
      stdinOpen_ = true;
      interactive_ = ::isatty(fd) == 1;
      stdinNotifier_ = std::make_unique<QSocketNotifier>(fd, QSocketNotifier::Read);
      if (interactive_ && fd == STDIN_FILENO) {
        // Keystrokes go to the line editor, and only while it asks for a line.
        prompt_ = std::make_unique<TerminalPrompt>([this](std::optional<QString> line) { OnTypedLine(std::move(line)); });
        stdinNotifier_->setEnabled(false);
        QObject::connect(stdinNotifier_.get(), &QSocketNotifier::activated, [this] { prompt_->ReadAvailable(); });
      } else {
        QObject::connect(stdinNotifier_.get(), &QSocketNotifier::activated, [this] { OnStdinReadable(); });
      }
    }
  }
  SchedulePump();
  return true;
}

void Shell::OnStdinReadable() {
  if (!stdinNotifier_) return;
  char buffer[65536];
  const ssize_t count = ::read(static_cast<int>(stdinNotifier_->socket()), buffer, sizeof buffer);
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
  if (count > 0) {
    stdinPending_.append(buffer, count);
    TakeLines(false);
  } else {
    if (count < 0) ShellOutput::Error(QStringLiteral("cannot read the script: %1").arg(QString::fromLocal8Bit(std::strerror(errno))));
    stdinOpen_ = false;
    stdinNotifier_->setEnabled(false);
    const int fd = static_cast<int>(stdinNotifier_->socket());
    // The notifier is inside its own signal: let the loop delete it.
    stdinNotifier_.release()->deleteLater();
    if (fd != STDIN_FILENO) ::close(fd);
    TakeLines(true);
  }
  SchedulePump();
}

void Shell::OnTypedLine(std::optional<QString> line) {
  stdinNotifier_->setEnabled(false);
  if (line)
    queue_.push_back({*line, ++stdinLineNumber_, true});
  else
    stdinOpen_ = false;
  SchedulePump();
}

void Shell::TakeLines(bool atEnd) {
  qsizetype start = 0;
  for (;;) {
    const qsizetype end = stdinPending_.indexOf('\n', start);
    if (end < 0) break;
    queue_.push_back({QString::fromUtf8(stdinPending_.constData() + start, end - start), ++stdinLineNumber_, interactive_});
    start = end + 1;
  }
  stdinPending_.remove(0, start);
  if (atEnd && !stdinPending_.isEmpty()) {
    queue_.push_back({QString::fromUtf8(stdinPending_), ++stdinLineNumber_, interactive_});
    stdinPending_.clear();
  }
}

void Shell::SchedulePump() {
  if (!finished_) pumpTimer_.start(0);
}

void Shell::Pump() {
  if (finished_) return;
  if (pumping_ || ShellApplication::EventDepth() > 1) {
    // Inside a handler that lets the loop run (or inside a line): come back after it.
    pumpTimer_.start(kNestedRetryMs);
    return;
  }
  pumping_ = true;
  while (!finished_ && block_ == Block::None) {
    if (queue_.empty()) {
      if (!stdinOpen_) {
        Finish(Status());
      } else if (interactive_ && !prompted_) {
        if (prompt_) {
          prompt_->Ask("velmar> ");
          stdinNotifier_->setEnabled(true);
        } else {
          ShellOutput::Prompt(QStringLiteral("velmar> "));
        }
        prompted_ = true;
      }
      break;
    }
    const Line line = queue_.front();
    queue_.pop_front();
    prompted_ = false;
    try {
      const QStringList words = ScriptLine::Split(line.text);
      if (!words.isEmpty()) Execute(words);
    } catch (const ScriptError& error) {
      ShellOutput::ScriptError(line.number, error.Message());
      if (!line.interactive) Finish(2);
    }
  }
  pumping_ = false;
}

void Shell::Execute(const QStringList& words) {
  const QString& name = words.front();
  const QStringList arguments = words.mid(1);
  try {
    if (name == u"new") {
      CheckCount(arguments, 0, 1, "new [ID]");
      NewSession(arguments.isEmpty() ? nullptr : &arguments.front());
    } else if (name == u"set") {
      CheckCount(arguments, 2, 2, "set FIELD VALUE");
      ShellOperations::Set(*session_, arguments[0], arguments[1]);
    } else if (name == u"print") {
      CheckCount(arguments, 1, 1, "print FIELD");
      ShellOutput::Value(QStringLiteral("value"), arguments[0], ShellOperations::Get(*session_, arguments[0]));
    } else if (name == u"wait") {
      CheckCount(arguments, 0, 1, "wait [SECONDS]");
      double seconds = kDefaultWaitSeconds;
      if (!arguments.isEmpty()) {
        bool ok = false;
        seconds = arguments[0].toDouble(&ok);
        if (!ok || !std::isfinite(seconds) || seconds < 0 || arguments[0].trimmed() != arguments[0])
          throw ScriptError(QStringLiteral("wait: '%1' is not a number of seconds").arg(arguments[0]));
      }
      StartWait(seconds);
    } else if (name == u"sleep") {
      CheckCount(arguments, 1, 1, "sleep MS");
      bool ok = false;
      const int milliseconds = arguments[0].toInt(&ok, 10);
      if (!ok || milliseconds < 0 || arguments[0].trimmed() != arguments[0] || arguments[0].startsWith(u'+'))
        throw ScriptError(QStringLiteral("sleep: '%1' is not a number of milliseconds").arg(arguments[0]));
      StartSleep(milliseconds);
    } else if (name == u"quit") {
      CheckCount(arguments, 0, 0, "quit");
      Finish(Status());
    } else if (ShellOperations::HasOperation(name)) {
      // Keep the session alive through the call even if something inside lets go of it.
      const std::shared_ptr<FTPSessionClass> session = session_;
      if (const auto result = ShellOperations::Call(*session, name, arguments))
        ShellOutput::Value(QStringLiteral("result"), name, *result);
    } else {
      throw ScriptError(QStringLiteral("unknown instruction or method %1").arg(name));
    }
  } catch (const ScriptError&) {
    throw;
  } catch (const std::exception& error) {
    // An exception of the session reaching the shell is reported like one stopped at an
    // event handler: the run goes on.
    ReportException(QString::fromUtf8(error.what()));
  }
}

void Shell::NewSession(const QString* id) {
  std::erase_if(sessions_, [](const std::weak_ptr<FTPSessionClass>& weak) { return weak.expired(); });
  session_ = id ? std::make_shared<FTPSessionClass>(*id) : std::make_shared<FTPSessionClass>();
  sessions_.push_back(session_);
  unconsumedReports_ = 0;
}

void Shell::StartWait(double seconds) {
  if (unconsumedReports_ > 0) {
    --unconsumedReports_;
    return;
  }
  block_ = Block::Wait;
  blockTimer_.start(static_cast<int>(std::min(std::ceil(seconds * 1000), static_cast<double>(INT_MAX))));
}

void Shell::StartSleep(qint32 milliseconds) {
  block_ = Block::Sleep;
  blockTimer_.start(milliseconds);
}

void Shell::OnReport(FTPSessionClass* session, bool success) {
  if (finished_) return;
  lastReportSucceeded_ = success;
  waitTimedOut_ = false;
  if (session != session_.get()) return;
  ++unconsumedReports_;
  if (block_ == Block::Wait) {
    --unconsumedReports_;
    block_ = Block::None;
    blockTimer_.stop();
    SchedulePump();
  }
}

void Shell::OnBlockTimeout() {
  if (block_ == Block::Wait) {
    ShellOutput::Report(QStringLiteral("wait"), QStringLiteral("timeout"));
    waitTimedOut_ = true;
  }
  block_ = Block::None;
  SchedulePump();
}

int Shell::Status() const {
  if (waitTimedOut_) return 3;
  if (!lastReportSucceeded_) return 0;
  return *lastReportSucceeded_ ? 0 : 1;
}

void Shell::Finish(int status) {
  if (finished_) return;
  finished_ = true;
  blockTimer_.stop();
  pumpTimer_.stop();
  if (stdinNotifier_) stdinNotifier_->setEnabled(false);
  QCoreApplication::exit(status);
}

void Shell::CloseSessions() {
  // Running sessions keep themselves alive through their open connections; the shell
  // does not wait for them at the end, so it closes those connections.
  SocketCore::CloseAll();
  sessions_.clear();
}

QString Shell::Usage() {
  QString text = QStringLiteral(
      "Usage: velmar [--no-progress] [-e INSTRUCTION]... [SCRIPT]\n"
      "\n"
      "Runs instructions on an FTP session: each -e first, then SCRIPT (a file, or - for\n"
      "standard input). With no SCRIPT and no -e it reads standard input, prompting on a\n"
      "terminal. Each instruction runs as soon as its line has been read.\n"
      "\n"
      "Options:\n"
      "  -e INSTRUCTION   run INSTRUCTION (may be given more than once)\n"
      "  --no-progress    leave out progress lines\n"
      "  --help           show this text\n"
      "  --version        show the version\n"
      "\n"
      "Instructions, one per line; words are separated by blanks, \"...\" quotes a word\n"
      "(escapes \\\" \\\\ \\r \\n \\t), \"\" is the empty word, # starts a comment line:\n"
      "  new [ID]            replace the session with a new one\n"
      "  set FIELD VALUE     assign a field: true/false, decimal integers, encodings by\n"
      "                      name (ISO-8859-1, UTF-8), lists as JSON arrays, objects null\n"
      "  print FIELD         print a field as JSON; FIELD may be a dotted path such as\n"
      "                      DataSocket.FileData or ConnectionTimer.Mode\n"
      "  METHOD [ARG]...     call an operation of the session; FormatBytes N asks the\n"
      "                      status receiver\n"
      "  wait [SECONDS]      run until the session's next success or error report, or\n"
      "                      SECONDS (default 30) have passed: then 'wait<TAB>timeout'\n"
      "  sleep MS            run the event loop for MS milliseconds\n"
      "  quit                end the script\n"
      "\n"
      "Output on stdout, one line per event: KIND<TAB>TEXT with KIND one of status,\n"
      "response, progress, success, error, hint (after an error that is a socket code:\n"
      "what it means, what to check), msgbox, exception; value<TAB>FIELD<TAB>JSON\n"
      "and result<TAB>METHOD<TAB>JSON. In texts \\ is written \\\\, CR \\r, LF \\n, TAB \\t,\n"
      "other control characters \\xHH. ServerPassword always prints as \"********\".\n"
      "DataSocket, CommandSocket and ConnectionTimer print as objects of the fields\n"
      "listed below, FTPStatusInstance as {\"Session\":ID}, DirList as an array of\n"
      "directory objects, bytes (FileData) as a string of one character per byte, a\n"
      "nil object as null; `set NAME null` lets go of an object.\n"
      "\n"
      "Exit status: 0 if the last success/error report was a success or none came, 1 if\n"
      "it was an error, 2 for a script error (reported as 'velmar: line N: message';\n"
      "at a terminal the shell reports it and reads on), 3 if a wait ended by its time\n"
      "limit and no success or error report came after it.\n"
      "\n"
      "Methods:\n");
  text += WrapNames(ShellOperations::OperationNames(), QStringLiteral("  "));
  text += QStringLiteral("\nFields:\n");
  text += WrapNames(ShellOperations::FieldNames(), QStringLiteral("  "));
  return text;
}

}  // namespace velmar
