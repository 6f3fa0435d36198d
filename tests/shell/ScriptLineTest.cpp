// Splitting script lines into words: blanks, quoted words and their escapes, comments,
// and the errors that must stop a script.
#include "shell/ScriptError.h"
#include "shell/ScriptLine.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

// The words of a line, or one "error: MESSAGE" where the line is refused.
QStringList Words(const QString& line) {
  try {
    return ScriptLine::Split(line);
  } catch (const ScriptError& e) {
    return {"error: " + e.Message()};
  }
}

TEST(ScriptLineSplit, LinesGiveTheirWordsOrAnError) {
  const std::pair<const char*, QStringList> cases[] = {
      {"Squeeze a b", {"Squeeze", "a", "b"}},
      {"  set\t\tCommandPort   21  ", {"set", "CommandPort", "21"}},
      {"quit", {"quit"}},
      // Blank and comment lines give no words; a # inside a line is an ordinary character.
      {"", {}},
      {"   \t ", {}},
      {"# print CommandPort", {}},
      {"   # indented comment \"unterminated", {}},
      {"AddFileName #1", {"AddFileName", "#1"}},
      // Quoted words hold blanks and escapes; empty quotes are a word that counts.
      {R"(Squeeze "a   b" " ")", {"Squeeze", "a   b", " "}},
      {R"(x "say \"hi\"" "back\\slash")", {"x", "say \"hi\"", "back\\slash"}},
      {R"(x "\r\n\t")", {"x", "\r\n\t"}},
      {R"(x "# not a comment")", {"x", "# not a comment"}},
      {R"(NextFTPStep "" "" "")", {"NextFTPStep", "", "", ""}},
      // Unquoted words are literal: a JSON array needs no quoting, a backslash is no escape.
      {R"(set Files ["a","b"])", {"set", "Files", R"(["a","b"])"}},
      {R"(x a\nb)", {"x", R"(a\nb)"}},
      // A trailing CR is dropped.
      {"print ID\r", {"print", "ID"}},
      {"x \"a b\"\r", {"x", "a b"}},
      {R"(print "ID)", {"error: unterminated quote in word starting at column 7"}},
      {R"(x "ends in a backslash\)", {"error: unterminated quote (the line ends after a backslash)"}},
      {R"(x "\q")", {R"(error: unknown escape \q in a quoted word (use \" \\ \r \n \t))"}},
      {R"(x "\x41")", {R"(error: unknown escape \x in a quoted word (use \" \\ \r \n \t))"}},
      {R"(x "a"b)", {"error: text after the closing quote at column 5 (put a blank between words)"}},
      {R"(x "a""b")", {"error: text after the closing quote at column 5 (put a blank between words)"}},
  };
  for (const auto& [line, words] : cases) EXPECT_EQ(Words(QString::fromUtf8(line)), words) << line;
}

}  // namespace
}  // namespace velmar::test
