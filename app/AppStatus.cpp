#include "app/AppStatus.h"

#include "app/ChasingArrows.h"
#include "app/MainWindow.h"
#include "session/FTPSessionClass.h"
#include "session/SocketErrorHint.h"

namespace velmar {

namespace {

AppStatus::EndObserver& EndObserverSlot() {
  static AppStatus::EndObserver observer;
  return observer;
}

}  // namespace

AppStatus::AppStatus(FTPSessionClass* session) : FTPStatusClass(session) {
  progressTimer_.setInterval(kProgressIntervalMs);
  QObject::connect(&progressTimer_, &QTimer::timeout, [this] { ShowWaitingProgress(); });
}

void AppStatus::Install() {
  FTPStatusClass::SetFactory([](FTPSessionClass* session) { return std::make_shared<AppStatus>(session); });
}

void AppStatus::SetEndObserver(EndObserver observer) { EndObserverSlot() = std::move(observer); }

void AppStatus::Status_FTP(const QString& text) { ShowText(text); }

void AppStatus::Progress_FTP(qint32 bytes) {
  if (!Session) return;
  progressId_ = Session->ID;
  waitingProgress_ = bytes;
  if (!progressTimer_.isActive()) {
    progressTimer_.start();  // first, so that reports during the row's yield wait their turn
    ShowWaitingProgress();
  }
}

void AppStatus::ShowWaitingProgress() {
  if (!waitingProgress_) {
    progressTimer_.stop();  // a quiet interval ends the burst
    return;
  }
  const qint32 bytes = *waitingProgress_;
  waitingProgress_.reset();
  if (MainWindow* window = MainWindow::Instance())
    window->UpdateStatus(progressId_, QStringLiteral("Transferring: ") + FormatBytes(bytes));
}

void AppStatus::ShowText(const QString& text, const QString& hint) {
  if (!Session) return;
  ShowWaitingProgress();
  const QString id = Session->ID;
  MainWindow::Instance()->UpdateStatus(id, text, hint);
}

void AppStatus::Successful_FTP(const QString& text) { ShowEnd(text); }

void AppStatus::Error_FTP(const QString& text) { ShowEnd(text); }

void AppStatus::Response_FTP(const QString&) {}

void AppStatus::ShowEnd(const QString& text) {
  FTPSessionClass* const session = Session;
  if (!session) return;
  // A socket failure's row keeps its text; what it means shows as the row's tooltip.
  ShowText(text, SocketErrorHint::For(text, session->ServerAddress, session->CommandPort));
  // One indicator for all sessions: the first to end hides it.
  MainWindow::Instance()->ChasingArrows1->setVisible(false);
  if (EndObserverSlot()) EndObserverSlot()(session, text);
}

}  // namespace velmar
