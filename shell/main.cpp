// velmar [--no-progress] [-e INSTRUCTION]... [SCRIPT], or
// velmar [--no-progress] [--insecure] [--cacert FILE] COMMAND ARG...
#include "session/FTPSessionClass.h"
#include "shell/OneLineCommand.h"
#include "shell/ProgressBar.h"
#include "shell/Shell.h"
#include "shell/ShellApplication.h"
#include "shell/ShellOutput.h"

#include <QAbstractEventDispatcher>

#include <csignal>
#include <cstdio>
#include <memory>
#include <unistd.h>

using velmar::OneLineCommand;
using velmar::ProgressBar;
using velmar::Shell;
using velmar::ShellApplication;
using velmar::ShellOutput;

namespace velmar {

int ShellApplication::depth_ = 0;

ShellApplication::ShellApplication(int& argc, char** argv) : QCoreApplication(argc, argv) {}

bool ShellApplication::notify(QObject* receiver, QEvent* event) {
  struct Nesting {
    Nesting() { ++depth_; }
    ~Nesting() { --depth_; }
  } nesting;
  return QCoreApplication::notify(receiver, event);
}

}  // namespace velmar

namespace {

int UsageError(const QString& message) {
  ShellOutput::Error(message);
  ShellOutput::Error(QStringLiteral("try 'velmar --help'"));
  return 2;
}

void PrintOut(const QString& text) {
  const QByteArray bytes = text.toUtf8();
  std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  // A reader that goes away must not kill the shell in the middle of a line.
  std::signal(SIGPIPE, SIG_IGN);
  // A console program has no use for the GLib main loop; Qt's own dispatcher costs fewer
  // system calls per socket event. A caller's own choice of QT_NO_GLIB stands.
  if (!qEnvironmentVariableIsSet("QT_NO_GLIB")) qputenv("QT_NO_GLIB", "1");
  ShellApplication app(argc, argv);
  // Report lines are written out in bursts: whenever the loop is about to wait, and at exit.
  static char outputBuffer[1 << 16];
  std::setvbuf(stdout, outputBuffer, _IOFBF, sizeof outputBuffer);
  QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, &app,
                   [] { ShellOutput::Flush(); });

  Shell::Options options;
  QStringList command;  // a one-line transfer: COMMAND ARG...
  bool insecure = false;
  QString trustedCertificateFile;
  bool help = false;
  bool version = false;
  const QStringList arguments = QCoreApplication::arguments().mid(1);
  for (qsizetype i = 0; i < arguments.size(); ++i) {
    const QString& argument = arguments[i];
    if (argument == u"--help" || argument == u"-h") {
      help = true;
    } else if (argument == u"--version") {
      version = true;
    } else if (argument == u"--no-progress") {
      options.showProgress = false;
    } else if (argument == u"--insecure" || argument == u"-k") {
      insecure = true;
    } else if (argument == u"--cacert") {
      if (i + 1 >= arguments.size()) return UsageError(QStringLiteral("--cacert needs a FILE"));
      trustedCertificateFile = arguments[++i];
    } else if (argument == u"-e") {
      if (i + 1 >= arguments.size()) return UsageError(QStringLiteral("-e needs an INSTRUCTION"));
      options.instructions.append(arguments[++i]);
    } else if (argument == u"--") {
      if (i + 2 < arguments.size()) return UsageError(QStringLiteral("only one SCRIPT may be given"));
      if (i + 1 < arguments.size()) options.script = arguments[i + 1];
      break;
    } else if (argument.startsWith(u'-') && argument != u"-") {
      return UsageError(QStringLiteral("unknown option %1").arg(argument));
    } else if (options.instructions.isEmpty() && !options.script && OneLineCommand::Names(arguments.mid(i))) {
      command = arguments.mid(i);
      break;
    } else {
      if (options.script) return UsageError(QStringLiteral("only one SCRIPT may be given"));
      options.script = argument;
    }
  }

  if (help) {
    PrintOut(Shell::Usage() + u'\n' + OneLineCommand::Usage());
    return 0;
  }
  if (version) {
    PrintOut(QStringLiteral("velmar %1\n").arg(std::make_shared<velmar::FTPSessionClass>()->GetVelmarVersion()));
    return 0;
  }

  int status = 2;
  // At a terminal, transfers show a bar instead of progress lines.
  std::unique_ptr<ProgressBar> bar;
  if (options.showProgress && ::isatty(STDOUT_FILENO) == 1) bar = std::make_unique<ProgressBar>();
  if (!command.isEmpty()) {
    OneLineCommand transfer(options.showProgress, bar.get());
    transfer.SetCertificateCheck(insecure, trustedCertificateFile);
    if (!transfer.Start(command)) return 2;
    status = QCoreApplication::exec();
  } else {
    Shell shell(std::move(options));
    if (!shell.Start()) return 2;
    status = QCoreApplication::exec();
  }
  // Objects released with deleteLater() at the end are freed before exit.
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  return status;
}
