#include "app/CommandLine.h"

#include <QDir>
#include <QFileInfo>

namespace velmar {

namespace {

// "--name=value" or "--name value"; returns false when the value is missing.
bool TakeValue(const QStringList& arguments, qsizetype& index, const QString& name, QString& value) {
  const QString& argument = arguments.at(index);
  if (argument.startsWith(name + u'=')) {
    value = argument.mid(name.size() + 1);
    return true;
  }
  if (index + 1 >= arguments.size()) return false;
  value = arguments.at(++index);
  return true;
}

}  // namespace

CommandLine CommandLine::Parse(const QStringList& arguments, const QString& currentDirectory) {
  CommandLine line;
  bool drop = false;
  bool optionsEnded = false;
  QStringList given;
  for (qsizetype index = 0; index < arguments.size(); ++index) {
    const QString& argument = arguments.at(index);
    if (optionsEnded || !argument.startsWith(QStringLiteral("--"))) {
      if (!drop) {
        line.Error = QStringLiteral("unexpected argument '%1' (items to upload follow --drop)").arg(argument);
        return line;
      }
      given.append(argument);
      continue;
    }
    const QString name = argument.section(u'=', 0, 0);
    if (argument == QStringLiteral("--")) {
      optionsEnded = true;
    } else if (argument == QStringLiteral("--help")) {
      line.mode = Mode::Help;
      return line;
    } else if (argument == QStringLiteral("--version")) {
      line.mode = Mode::Version;
      return line;
    } else if (argument == QStringLiteral("--drop")) {
      drop = true;
    } else if (argument == QStringLiteral("--show")) {
      line.Show = true;
    } else if (name == QStringLiteral("--linger")) {
      QString value;
      bool ok = false;
      if (TakeValue(arguments, index, name, value)) line.LingerMs = value.toInt(&ok);
      if (!ok || line.LingerMs < 0) {
        line.Error = QStringLiteral("--linger wants a number of milliseconds (0 or more), got '%1'").arg(value);
        return line;
      }
    } else if (name == QStringLiteral("--screenshot") || name == QStringLiteral("--preferences-screenshot")) {
      QString value;
      if (!TakeValue(arguments, index, name, value) || value.isEmpty()) {
        line.Error = QStringLiteral("%1 wants a file name").arg(name);
        return line;
      }
      const QString path = QDir::cleanPath(QDir(currentDirectory).absoluteFilePath(value));
      (name == QStringLiteral("--screenshot") ? line.Screenshot : line.PreferencesScreenshot) = path;
    } else {
      line.Error = QStringLiteral("unknown option '%1'").arg(argument);
      return line;
    }
  }
  const bool dropOptions = line.Show || line.LingerMs > 0 || !line.Screenshot.isEmpty() ||
                           !line.PreferencesScreenshot.isEmpty();
  if (!drop) {
    if (dropOptions) line.Error = QStringLiteral("--show, --linger and the screenshots go with --drop");
    return line;
  }
  if (given.isEmpty()) {
    line.Error = QStringLiteral("--drop wants at least one file or folder");
    return line;
  }
  for (const QString& item : given) {
    const QFileInfo info(QDir(currentDirectory), item);
    if (item.isEmpty() || !info.exists()) {
      line.Error = QStringLiteral("no such file or folder: '%1'").arg(item);
      return line;
    }
    line.Paths.append(QDir::cleanPath(info.absoluteFilePath()));
  }
  line.mode = Mode::Drop;
  return line;
}

bool CommandLine::Mentions(const QStringList& arguments, const QString& option) {
  for (const QString& argument : arguments) {
    if (argument == QStringLiteral("--")) return false;
    if (argument == option || argument.startsWith(option + u'=')) return true;
  }
  return false;
}

bool CommandLine::ChoosesPlatform(const QStringList& arguments) {
  return Mentions(arguments, QStringLiteral("-platform")) || Mentions(arguments, QStringLiteral("--platform"));
}

QString CommandLine::Usage() {
  return QStringLiteral(
      "Usage: thornquill-upload\n"
      "       thornquill-upload --drop [--show] [--linger MS] [--screenshot FILE]\n"
      "                         [--preferences-screenshot FILE] [--] PATH...\n"
      "       thornquill-upload --help | --version\n"
      "\n"
      "Without arguments the upload window opens: drop files and folders on it, and each\n"
      "item is uploaded to the FTP server of the settings (\"Server Setup\").\n"
      "\n"
      "  --drop PATH...   upload these files and folders as a drop on the window would,\n"
      "                   without showing a window. Each change of a status row is printed\n"
      "                   as: row<TAB>ID<TAB>text (in the text \\ is \\\\, CR \\r, LF \\n,\n"
      "                   TAB \\t, other control characters \\xHH). Exit status 0 when every\n"
      "                   item ended in success, 1 when one did not, 2 for bad arguments\n"
      "                   or missing settings (server, user name or password).\n"
      "  --show           show the main window during the drop\n"
      "  --linger MS      stay MS milliseconds after the drop has ended\n"
      "  --screenshot FILE\n"
      "                   save a PNG picture of the main window when the drop has ended\n"
      "  --preferences-screenshot FILE\n"
      "                   save a PNG picture of the preferences window, likewise\n"
      "  --help           show this help\n"
      "  --version        show the version\n"
      "\n"
      "Settings are kept in $XDG_CONFIG_HOME/Skelvane (default ~/.config/Skelvane): four\n"
      "lines with server, server directory, user name and password.\n");
}

}  // namespace velmar
