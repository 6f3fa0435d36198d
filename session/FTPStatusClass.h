#pragma once
// The one channel by which a session speaks to its owner. The library's own receiver
// does nothing but format sizes; a program installs its own receiver class with
// SetFactory(), and every session made afterwards reports through it.
#include <QString>
#include <functional>
#include <memory>

namespace velmar {

class FTPSessionClass;

class FTPStatusClass {
public:
  // Back reference to the reporting session, written again before each report.
  FTPSessionClass* Session = nullptr;

  explicit FTPStatusClass(FTPSessionClass* session);
  virtual ~FTPStatusClass();

  virtual void Error_FTP(const QString& text);
  virtual void Progress_FTP(qint32 bytes);
  virtual void Successful_FTP(const QString& text);
  virtual void Response_FTP(const QString& text);
  virtual QString FormatBytes(qint32 bytes);
  virtual void Status_FTP(const QString& text);

  // "A new FTPStatusClass" of this program: the constructors of the session and
  // SetStatusReporting(true) make receivers through this factory.
  using Factory = std::function<std::shared_ptr<FTPStatusClass>(FTPSessionClass* session)>;
  static void SetFactory(Factory factory);
  static std::shared_ptr<FTPStatusClass> Make(FTPSessionClass* session);
};

}  // namespace velmar
