#pragma once
// The shell's status receiver: each report of a session becomes a line on stdout
// (status, response, progress, success, error). FormatBytes stays the library's.
// Success and error reports are also handed to the shell, which counts them for `wait`
// and the exit status. Implemented in Shell.cpp.
#include "session/FTPStatusClass.h"

#include <functional>
#include <memory>

namespace velmar {

class ShellStatus : public FTPStatusClass {
public:
  // Told of every success (true) or error (false) report and the session it came from.
  // Shared with the shell, which empties it when it goes away.
  using ReportHandler = std::function<void(FTPSessionClass* session, bool success)>;

  ShellStatus(FTPSessionClass* session, bool showProgress, std::shared_ptr<ReportHandler> onReport);

  void Error_FTP(const QString& text) override;
  void Progress_FTP(qint32 bytes) override;
  void Successful_FTP(const QString& text) override;
  void Response_FTP(const QString& text) override;
  void Status_FTP(const QString& text) override;

private:
  void Final(bool success);

  bool showProgress_;
  std::shared_ptr<ReportHandler> onReport_;
};

}  // namespace velmar
