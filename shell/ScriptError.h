#pragma once
// A fault of the script itself (unknown instruction, field or method, bad argument): the
// shell reports it as "velmar: line N: message" and stops, or, at a terminal, goes on.
#include <QByteArray>
#include <QString>
#include <exception>

namespace velmar {

class ScriptError : public std::exception {
public:
  explicit ScriptError(QString message) : message_(std::move(message)), utf8_(message_.toUtf8()) {}
  const char* what() const noexcept override { return utf8_.constData(); }
  const QString& Message() const { return message_; }

private:
  QString message_;
  QByteArray utf8_;
};

}  // namespace velmar
