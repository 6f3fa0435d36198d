#pragma once
// The app's status receiver: every report of a session goes into its row of the main window.
// The dialogue with the server (Response_FTP) stays unseen.
//
// Progress comes once per block sent (thousands a second): the first report of a burst is
// shown at once, later ones at most every kProgressIntervalMs, the newest then. Any other
// report of the session first shows a progress figure still waiting, so the row goes
// through the newest figure before the next text and never back to a figure after it.
#include "session/FTPStatusClass.h"

#include <QString>
#include <QTimer>
#include <functional>
#include <optional>

namespace velmar {

class AppStatus : public FTPStatusClass {
public:
  static constexpr int kProgressIntervalMs = 33;

  explicit AppStatus(FTPSessionClass* session);

  void Error_FTP(const QString& text) override;
  void Progress_FTP(qint32 bytes) override;
  void Successful_FTP(const QString& text) override;
  void Response_FTP(const QString& text) override;
  void Status_FTP(const QString& text) override;

  // Makes every session created from now on report through an AppStatus.
  static void Install();

  // Called after a session's end has been shown (success or error), with that session.
  using EndObserver = std::function<void(FTPSessionClass* session, const QString& text)>;
  static void SetEndObserver(EndObserver observer);

private:
  void ShowEnd(const QString& text);
  void ShowText(const QString& text, const QString& hint = QString());
  void ShowWaitingProgress();

  QTimer progressTimer_;
  QString progressId_;
  std::optional<qint32> waitingProgress_;
};

}  // namespace velmar
