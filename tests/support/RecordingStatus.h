#pragma once
// A status receiver that records every report as "kind<TAB>text", for assertions on the
// exact report stream of a session.
#include "session/FTPSessionClass.h"
#include "session/FTPStatusClass.h"
#include "support/QtPrinters.h"

#include <QStringList>
#include <memory>

namespace velmar::test {

class RecordingStatus : public FTPStatusClass {
public:
  explicit RecordingStatus(FTPSessionClass* session, std::shared_ptr<QStringList> log)
      : FTPStatusClass(session), log_(std::move(log)) {}

  void Error_FTP(const QString& text) override { Add("error", text); }
  void Progress_FTP(qint32 bytes) override { Add("progress", QString::number(bytes)); }
  void Successful_FTP(const QString& text) override { Add("success", text); }
  void Response_FTP(const QString& text) override { Add("response", text); }
  void Status_FTP(const QString& text) override { Add("status", text); }

  // Installs a receiver for `session` that writes into a fresh log, and returns the log.
  static std::shared_ptr<QStringList> Attach(FTPSessionClass& session) {
    auto log = std::make_shared<QStringList>();
    session.FTPStatusInstance = std::make_shared<RecordingStatus>(&session, log);
    return log;
  }

  // The reports of the kinds named, in order (e.g. {"success", "error"}).
  static QStringList Only(const QStringList& log, const QStringList& kinds) {
    QStringList kept;
    for (const QString& entry : log)
      if (kinds.contains(entry.section(u'\t', 0, 0))) kept.append(entry);
    return kept;
  }

  // The end reports (success and error), in order.
  static QStringList Ends(const QStringList& log) { return Only(log, {"success", "error"}); }

private:
  void Add(const char* kind, const QString& text) { log_->append(QString::fromLatin1(kind) + u'\t' + text); }
  std::shared_ptr<QStringList> log_;
};

}  // namespace velmar::test
