#include "session/FTPStatusSignals.h"

#include "session/FTPSessionClass.h"

namespace velmar {

FTPStatusSignals::FTPStatusSignals(FTPSessionClass* session) : FTPStatusClass(session) {}

std::shared_ptr<FTPStatusSignals> FTPStatusSignals::Attach(FTPSessionClass& session) {
  auto receiver = std::make_shared<FTPStatusSignals>(&session);
  session.FTPStatusInstance = receiver;
  return receiver;
}

void FTPStatusSignals::Error_FTP(const QString& text) { Q_EMIT failed(text); }
void FTPStatusSignals::Progress_FTP(qint32 bytes) { Q_EMIT progress(bytes); }
void FTPStatusSignals::Successful_FTP(const QString& text) { Q_EMIT succeeded(text); }
void FTPStatusSignals::Response_FTP(const QString& text) { Q_EMIT response(text); }
void FTPStatusSignals::Status_FTP(const QString& text) { Q_EMIT status(text); }

}  // namespace velmar
