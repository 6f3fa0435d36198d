#pragma once
// Splits one line of a script into words.
//
// Blanks (spaces, tabs) separate words. A word that starts with a double quote runs to
// the closing quote, may hold blanks and the escapes \" \\ \r \n \t, and must be followed
// by a blank or the end of the line; "" is the empty word. An unquoted word is taken
// literally, quotes and backslashes included (so `["a","b"]` needs no quoting). A line
// whose first non-blank character is # is a comment; comment and blank lines give no
// words. A CR at the end of the line (a script with CR LF line ends) is dropped.
#include <QString>
#include <QStringList>

namespace velmar {

class ScriptLine {
public:
  // The words of `line`; throws ScriptError for an unterminated quote, an unknown
  // escape, or text glued to a closing quote.
  static QStringList Split(const QString& line);
};

}  // namespace velmar
