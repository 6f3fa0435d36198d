#pragma once
// The app's status receiver: every report of a session goes into its row of the main window.
// The dialogue with the server (Response_FTP) stays unseen.
#include "session/FTPStatusClass.h"

#include <functional>

namespace velmar {

class AppStatus : public FTPStatusClass {
public:
  using FTPStatusClass::FTPStatusClass;

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
};

}  // namespace velmar
