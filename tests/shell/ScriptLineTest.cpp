// Splitting script lines into words: blanks, quoted words and their escapes, comments,
// and the errors that must stop a script.
#include "shell/ScriptError.h"
#include "shell/ScriptLine.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

namespace velmar::test {
namespace {

QString ErrorOf(const QString& line) {
  try {
    ScriptLine::Split(line);
  } catch (const ScriptError& e) {
    return e.Message();
  }
  return QStringLiteral("<no error>");
}

TEST(ScriptLineSplit, BlanksSeparateWords) {
  EXPECT_EQ(ScriptLine::Split("Squeeze a b"), (QStringList{"Squeeze", "a", "b"}));
  EXPECT_EQ(ScriptLine::Split("  set\t\tCommandPort   21  "), (QStringList{"set", "CommandPort", "21"}));
  EXPECT_EQ(ScriptLine::Split("quit"), (QStringList{"quit"}));
}

TEST(ScriptLineSplit, BlankAndCommentLinesGiveNoWords) {
  EXPECT_TRUE(ScriptLine::Split("").isEmpty());
  EXPECT_TRUE(ScriptLine::Split("   \t ").isEmpty());
  EXPECT_TRUE(ScriptLine::Split("# print CommandPort").isEmpty());
  EXPECT_TRUE(ScriptLine::Split("   # indented comment \"unterminated").isEmpty());
  // A # inside a line is an ordinary character.
  EXPECT_EQ(ScriptLine::Split("AddFileName #1"), (QStringList{"AddFileName", "#1"}));
}

TEST(ScriptLineSplit, QuotedWordsHoldBlanksAndEscapes) {
  EXPECT_EQ(ScriptLine::Split(R"(Squeeze "a   b" " ")"), (QStringList{"Squeeze", "a   b", " "}));
  EXPECT_EQ(ScriptLine::Split(R"(x "say \"hi\"" "back\\slash")"), (QStringList{"x", "say \"hi\"", "back\\slash"}));
  EXPECT_EQ(ScriptLine::Split(R"(x "\r\n\t")"), (QStringList{"x", "\r\n\t"}));
  EXPECT_EQ(ScriptLine::Split(R"(x "# not a comment")"), (QStringList{"x", "# not a comment"}));
}

TEST(ScriptLineSplit, EmptyQuotesAreAnEmptyWordThatCounts) {
  const QStringList words = ScriptLine::Split(R"(NextFTPStep "" "" "")");
  ASSERT_EQ(words.size(), 4);
  EXPECT_TRUE(words[1].isEmpty());
  EXPECT_TRUE(words[3].isEmpty());
}

TEST(ScriptLineSplit, UnquotedWordsAreLiteral) {
  // A JSON array needs no quoting, and a backslash outside quotes is not an escape.
  EXPECT_EQ(ScriptLine::Split(R"(set Files ["a","b"])"), (QStringList{"set", "Files", R"(["a","b"])"}));
  EXPECT_EQ(ScriptLine::Split(R"(x a\nb)"), (QStringList{"x", R"(a\nb)"}));
}

TEST(ScriptLineSplit, TrailingCarriageReturnIsDropped) {
  EXPECT_EQ(ScriptLine::Split("print ID\r"), (QStringList{"print", "ID"}));
  EXPECT_EQ(ScriptLine::Split("x \"a b\"\r"), (QStringList{"x", "a b"}));
}

TEST(ScriptLineSplit, MalformedQuotesAreScriptErrors) {
  EXPECT_TRUE(ErrorOf(R"(print "ID)").contains("unterminated quote")) << ErrorOf(R"(print "ID)").toStdString();
  EXPECT_TRUE(ErrorOf(R"(x "ends in a backslash\)").contains("unterminated quote"));
  EXPECT_TRUE(ErrorOf(R"(x "\q")").contains("unknown escape \\q"));
  EXPECT_TRUE(ErrorOf(R"(x "\x41")").contains("unknown escape \\x"));
  EXPECT_TRUE(ErrorOf(R"(x "a"b)").contains("after the closing quote"));
  EXPECT_TRUE(ErrorOf(R"(x "a""b")").contains("after the closing quote"));
}

}  // namespace
}  // namespace velmar::test
