#pragma once
// Asks for a password at the terminal of stdin, without echo.
#include <QString>
#include <optional>

namespace velmar {

class PasswordPrompt {
public:
  // True when stdin is a terminal, so that a person can be asked.
  static bool Possible();
  // Shows `prompt` on stderr and reads one line with echo off; nothing at end of input.
  static std::optional<QString> Ask(const QString& prompt);
};

}  // namespace velmar
