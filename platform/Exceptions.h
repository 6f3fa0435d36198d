#pragma once
// Runtime exceptions of the platform layer, and the boundary at which an exception
// leaving an event handler is stopped and reported instead of ending the program.
#include <QList>
#include <QString>
#include <QByteArray>
#include <exception>
#include <functional>

namespace velmar {

class RuntimeException : public std::exception {
public:
  explicit RuntimeException(QString message) : message_(std::move(message)), utf8_(message_.toUtf8()) {}
  const char* what() const noexcept override { return utf8_.constData(); }
  const QString& Message() const { return message_; }

private:
  QString message_;
  QByteArray utf8_;
};

// Raised by a read past the end of an array (see At()).
class OutOfBoundsException : public RuntimeException {
public:
  using RuntimeException::RuntimeException;
};

// Raised where a nil object is used.
class NilObjectException : public RuntimeException {
public:
  using RuntimeException::RuntimeException;
};

// Bounds-checked element access with the framework's semantics: a bad index raises.
template <class List>
auto& At(List& list, qsizetype index) {
  if (index < 0 || index >= list.size())
    throw OutOfBoundsException(QStringLiteral("OutOfBoundsException: index %1 of an array of %2 elements")
                                   .arg(index)
                                   .arg(list.size()));
  return list[index];
}

// The object behind a reference, or the framework's nil-object exception.
template <class Pointer>
auto& Deref(const Pointer& pointer, const char* what) {
  if (!pointer) throw NilObjectException(QStringLiteral("NilObjectException: %1 is nil").arg(QLatin1String(what)));
  return *pointer;
}

// The hook that receives exceptions stopped at the event boundary. The default prints to stderr.
using ExceptionHook = std::function<void(const QString& description)>;
void SetExceptionHook(ExceptionHook hook);
void ReportException(const QString& description);

// Runs an event handler; an exception that leaves it is reported and swallowed.
template <class F>
void RunGuarded(F&& handler) {
  try {
    handler();
  } catch (const std::exception& e) {
    ReportException(QString::fromUtf8(e.what()));
  } catch (...) {
    ReportException(QStringLiteral("unknown exception"));
  }
}

}  // namespace velmar
