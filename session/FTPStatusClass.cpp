#include "session/FTPStatusClass.h"

#include "platform/Strings.h"

namespace velmar {

namespace {
FTPStatusClass::Factory& InstalledFactory() {
  static FTPStatusClass::Factory factory;
  return factory;
}
}  // namespace

FTPStatusClass::FTPStatusClass(FTPSessionClass* session) : Session(session) {}

FTPStatusClass::~FTPStatusClass() = default;

void FTPStatusClass::Error_FTP(const QString&) {}
void FTPStatusClass::Progress_FTP(qint32) {}
void FTPStatusClass::Successful_FTP(const QString&) {}
void FTPStatusClass::Response_FTP(const QString&) {}
void FTPStatusClass::Status_FTP(const QString&) {}

QString FTPStatusClass::FormatBytes(qint32 bytes) {
  if (bytes > 1048576) return Format(bytes / 1048576.0, QStringLiteral("0.0")) + QStringLiteral(" MB");
  if (bytes > 1024) return Format(bytes / 1024.0, QStringLiteral("0")) + QStringLiteral(" KB");
  return Format(bytes, QStringLiteral("0")) + QStringLiteral(" bytes");
}

void FTPStatusClass::SetFactory(Factory factory) { InstalledFactory() = std::move(factory); }

std::shared_ptr<FTPStatusClass> FTPStatusClass::Make(FTPSessionClass* session) {
  if (InstalledFactory()) return InstalledFactory()(session);
  return std::make_shared<FTPStatusClass>(session);
}

}  // namespace velmar
