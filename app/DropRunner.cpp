#include "app/DropRunner.h"

#include "app/AppStatus.h"
#include "app/CommandLine.h"
#include "app/Globals.h"
#include "app/Listbox.h"
#include "app/MainWindow.h"
#include "app/PreferencesWindow.h"
#include "session/FTPSessionClass.h"

#include <QCoreApplication>
#include <QPixmap>
#include <QTimer>
#include <QUrl>
#include <QWidget>

#include <cstdio>

namespace velmar {

DropRunner::DropRunner(Output out) : out_(std::move(out)) {
  MainWindow::SetRowObserver([this](int, const QString& id, const QString& text) {
    if (out_) out_(QStringLiteral("row\t") + EscapeText(id) + u'\t' + EscapeText(text));
  });
  AppStatus::SetEndObserver([this](FTPSessionClass* session, const QString&) { SessionEnded(session); });
}

DropRunner::~DropRunner() {
  MainWindow::SetRowObserver(nullptr);
  AppStatus::SetEndObserver(nullptr);
}

void DropRunner::Start(const QStringList& paths) {
  QList<QUrl> urls;
  for (const QString& path : paths) urls.append(QUrl::fromLocalFile(path));
  ended_.clear();
  finished_ = false;
  started_ = false;
  MainWindow::Instance()->DropUrls(urls);
  started_ = true;
  CheckFinished();
}

void DropRunner::SessionEnded(FTPSessionClass* session) {
  ended_.insert(session);
  CheckFinished();
}

void DropRunner::CheckFinished() {
  // Sessions may end while the drop is still starting the others: wait for its end.
  if (!started_ || finished_) return;
  for (const std::shared_ptr<FTPSessionClass>& session : Globals::Session)
    if (!ended_.contains(session.get())) return;
  finished_ = true;
  exitStatus_ = RowsStatus();
  if (onFinished_) onFinished_();
}

int DropRunner::RowsStatus() const {
  const MainWindow* window = MainWindow::Existing();
  if (!window || window->StatusListBox->ListCount() == 0 || Globals::Session.isEmpty()) return 1;
  const Listbox& rows = *window->StatusListBox;
  for (int row = 0; row < rows.ListCount(); ++row)
    if (!Globals::Session.first()->SuccessfulMessage(rows.Cell(row, 2))) return 1;
  return 0;
}

int DropRunner::Run(const CommandLine& options) {
  MainWindow* window = MainWindow::Instance();
  if (options.Show) window->show();
  picturesFailed_ = false;
  SetFinishedCallback([this, &options] {
    QTimer::singleShot(options.LingerMs, [this, &options] {
      if (!options.Screenshot.isEmpty() && !SaveScreenshot(*MainWindow::Instance(), options.Screenshot))
        picturesFailed_ = true;
      if (!options.PreferencesScreenshot.isEmpty()) {
        PreferencesWindow* preferences = PreferencesWindow::Instance();
        if (options.Show) preferences->show();
        if (!SaveScreenshot(*preferences, options.PreferencesScreenshot)) picturesFailed_ = true;
        preferences->close();
      }
      QCoreApplication::exit(0);
    });
  });
  Start(options.Paths);
  QCoreApplication::exec();
  // Ended before the drop did (the window's "Finish"), or a picture asked for was not made.
  if (!finished_ || picturesFailed_) return 1;
  return exitStatus_;
}

QString DropRunner::EscapeText(const QString& text) {
  QString escaped;
  escaped.reserve(text.size());
  for (const QChar c : text) {
    switch (c.unicode()) {
      case u'\\': escaped += QStringLiteral("\\\\"); break;
      case u'\r': escaped += QStringLiteral("\\r"); break;
      case u'\n': escaped += QStringLiteral("\\n"); break;
      case u'\t': escaped += QStringLiteral("\\t"); break;
      default:
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
          escaped += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
          escaped += c;
    }
  }
  return escaped;
}

QString DropRunner::MissingSettings() {
  QStringList missing;
  if (Globals::Server.isEmpty()) missing.append(QStringLiteral("Server"));
  if (Globals::LoginID.isEmpty()) missing.append(QStringLiteral("LoginID"));
  if (Globals::Password.isEmpty()) missing.append(QStringLiteral("Password"));
  return missing.join(QStringLiteral(", "));
}

bool DropRunner::SaveScreenshot(QWidget& widget, const QString& path) {
  const QPixmap picture = widget.grab();
  if (picture.isNull() || !picture.save(path, "PNG")) {
    std::fprintf(stderr, "thornquill-upload: cannot save the picture %s\n", path.toLocal8Bit().constData());
    return false;
  }
  return true;
}

}  // namespace velmar
