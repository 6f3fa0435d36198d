#pragma once
// A status receiver for Qt programs: each report of the session becomes a signal, so a
// program connects functions or lambdas instead of writing a subclass of FTPStatusClass.
//
//   auto session = std::make_shared<velmar::FTPSessionClass>();
//   auto reports = velmar::FTPStatusSignals::Attach(*session);
//   QObject::connect(reports.get(), &velmar::FTPStatusSignals::succeeded,
//                    [](const QString& text) { qInfo() << "done:" << text; });
//
// The receiver belongs to its session (FTPStatusInstance): a connected lambda that needs the
// session takes it by plain or weak pointer, as a shared_ptr kept there would keep the session,
// and everything it holds, alive for good.
//
// The signals carry the texts exactly as the reports do. `succeeded` and `failed` end an
// operation; `status` names each step, `response` shows the dialogue with the server (the
// password left out), and `progress` gives the bytes moved so far by a transfer.
#include "session/FTPStatusClass.h"

#include <QObject>
#include <QString>
#include <memory>

namespace velmar {

class FTPStatusSignals : public QObject, public FTPStatusClass {
  Q_OBJECT

public:
  explicit FTPStatusSignals(FTPSessionClass* session);

  // Makes a receiver for `session`, puts it into the session's FTPStatusInstance and
  // returns it; the session holds it from then on.
  static std::shared_ptr<FTPStatusSignals> Attach(FTPSessionClass& session);

  void Error_FTP(const QString& text) override;
  void Progress_FTP(qint32 bytes) override;
  void Successful_FTP(const QString& text) override;
  void Response_FTP(const QString& text) override;
  void Status_FTP(const QString& text) override;

Q_SIGNALS:
  void status(const QString& text);
  void response(const QString& text);
  void progress(qint32 bytes);
  void succeeded(const QString& text);
  void failed(const QString& text);
};

}  // namespace velmar
