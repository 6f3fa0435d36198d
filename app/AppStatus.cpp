#include "app/AppStatus.h"

#include "app/ChasingArrows.h"
#include "app/MainWindow.h"
#include "session/FTPSessionClass.h"

namespace velmar {

namespace {

AppStatus::EndObserver& EndObserverSlot() {
  static AppStatus::EndObserver observer;
  return observer;
}

}  // namespace

void AppStatus::Install() {
  FTPStatusClass::SetFactory([](FTPSessionClass* session) { return std::make_shared<AppStatus>(session); });
}

void AppStatus::SetEndObserver(EndObserver observer) { EndObserverSlot() = std::move(observer); }

void AppStatus::Status_FTP(const QString& text) {
  if (!Session) return;
  const QString id = Session->ID;
  MainWindow::Instance()->UpdateStatus(id, text);
}

void AppStatus::Progress_FTP(qint32 bytes) {
  if (!Session) return;
  const QString id = Session->ID;
  MainWindow::Instance()->UpdateStatus(id, QStringLiteral("Transferring: ") + FormatBytes(bytes));
}

void AppStatus::Successful_FTP(const QString& text) { ShowEnd(text); }

void AppStatus::Error_FTP(const QString& text) { ShowEnd(text); }

void AppStatus::Response_FTP(const QString&) {}

void AppStatus::ShowEnd(const QString& text) {
  FTPSessionClass* const session = Session;
  if (!session) return;
  const QString id = session->ID;
  MainWindow::Instance()->UpdateStatus(id, text);
  // One indicator for all sessions: the first to end hides it.
  MainWindow::Instance()->ChasingArrows1->setVisible(false);
  if (EndObserverSlot()) EndObserverSlot()(session, text);
}

}  // namespace velmar
