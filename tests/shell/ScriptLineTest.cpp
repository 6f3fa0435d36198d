// Splitting script lines into words: blanks, quoted words and their escapes, comments,
// and the errors that must stop a script. The other words of the shell: the addresses of the
// one-line commands and the logins of a netrc file.
#include "shell/FtpUrl.h"
#include "shell/Netrc.h"
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

// An address as "tls user password host port path" (a missing part as "-"), or its error.
QString Parts(const QString& text) {
  QString error;
  const auto url = FtpUrl::Parse(text, &error);
  if (!url) return "error: " + error;
  return QStringLiteral("%1 %2 %3 %4 %5 %6")
      .arg(url->tls)
      .arg(url->user.value_or("-"), url->password.value_or("-"), url->host)
      .arg(url->port)
      .arg(url->path);
}

TEST(FtpUrlParse, AddressesGiveTheirPartsOrAnError) {
  const std::pair<const char*, const char*> cases[] = {
      {"ftp://example.org", "0 - - example.org 21 /"},
      {"FTP://h:2121/pub/a.txt", "0 - - h 2121 /pub/a.txt"},
      {"ftps://bob@h/", "1 bob - h 21 /"},
      // Escapes decode as UTF-8; an escaped '@' or ':' belongs to the password; the last '@' ends it.
      {"ftp://b%40x:p%3Aw@d@h/a%20b/%C3%A9", "0 b@x p:w@d h 21 /a b/\u00e9"},
      {"ftp://bob:@h/", "0 bob  h 21 /"},
      {"ftp://[::1]:2121/x", "0 - - ::1 2121 /x"},
      {"http://h/", "error: 'http://h/' is not an ftp:// or ftps:// address"},
      {"ftp:///pub", "error: no host in the address 'ftp:///pub'"},
      {"ftp://h:/", "error: empty port in the address"},
      {"ftp://h:70000/", "error: '70000' is not a port (1 to 65535)"},
      {"ftp://h:+21/", "error: '+21' is not a port (1 to 65535)"},
      {"ftp://:pw@h/", "error: empty user name in the address"},
      {"ftp://h/a%2", "error: bad percent escape in the path of the address"},
      {"ftp://h/a%zz", "error: bad percent escape in the path of the address"},
      {"ftp://[::1/", "error: unclosed [ in the host of the address"},
  };
  for (const auto& [text, parts] : cases)
    EXPECT_EQ(Parts(text), QString::fromUtf8(parts)) << text;
  const auto url = FtpUrl::Parse("ftp://h/pub/a.txt", nullptr);
  EXPECT_EQ(url->Directory() + " " + url->Name(), "/pub/ a.txt");
}

TEST(NetrcFind, TheFirstEntryOfTheHostOrTheDefault) {
  const QString netrc =
      "macdef init\nmachine evil login x password y\n\n"
      "machine a.org login ann password \"two words\"\n"
      "machine b.org\n  login bob\n  account acc\n  password b\\ pw\n"
      "machine a.org login second password no\n"
      "default login anonymous password me@\n";
  const std::pair<const char*, const char*> cases[] = {
      {"a.org", "ann two words"}, {"A.ORG", "ann two words"}, {"b.org", "bob b pw"},
      {"evil", "anonymous me@"},  {"c.org", "anonymous me@"},
  };
  for (const auto& [host, login] : cases) {
    const auto found = Netrc::Find(netrc, host);
    ASSERT_TRUE(found) << host;
    EXPECT_EQ(found->login + " " + found->password.value_or("-"), login) << host;
  }
  EXPECT_FALSE(Netrc::Find("machine a.org login ann", "b.org"));
  EXPECT_FALSE(Netrc::Find("machine a.org login ann", "a.org")->password);
}

}  // namespace
}  // namespace velmar::test
