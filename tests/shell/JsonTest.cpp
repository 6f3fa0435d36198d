// The JSON of value/result lines, the reading of list words, and the escaping of report texts.
#include "shell/Json.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

#include <limits>

namespace velmar::test {
namespace {

QString S(const char* utf8) { return QString::fromUtf8(utf8); }

TEST(JsonText, TheShellsCompactForm) {
  Json object = Json::object();
  object["Name"] = JsonString("/pub");
  object["Files"] = Json::array({JsonString("a"), JsonString("b")});
  object["CurrentSubDirectory"] = -1;
  object["Name"] = JsonString("/pub/x");  // replaced in place
  const std::pair<Json, QString> cases[] = {
      {Json(), "null"}, {Json(true), "true"}, {Json(qint64(-2147483648LL)), "-2147483648"},
      // Whole doubles print as integers, others in their shortest exact form; no NaN in JSON.
      {Json(3.0), "3"}, {Json(-0.0), "0"}, {Json(0.1), "0.1"}, {Json(-2.5e-7), "-2.5e-07"}, {Json(1e20), "1e+20"},
      {Json(1700000000123456.0), "1700000000123456"}, {Json(std::numeric_limits<double>::quiet_NaN()), "null"},
      {Json(std::numeric_limits<double>::infinity()), "null"},
      {JsonString(""), R"("")"}, {JsonString("say \"hi\" \\ /"), R"("say \"hi\" \\ /")"},
      {JsonString("a\r\n\tb\b\f"), R"("a\r\n\tb\b\f")"},
      // Every control character is escaped, DEL and C1 included; other text stays as it is.
      {JsonString(QString(QChar(0x01)) + QChar(0x1F) + QChar(0x7F) + QChar(0x80) + QChar(0x9F) + QChar(0xA0)),
       S("\"\\u0001\\u001f\\u007f\\u0080\\u009f\xC2\xA0\"")},
      {JsonString(S("Grüße ÿ € \xF0\x9F\x98\x80")), S("\"Grüße ÿ € \xF0\x9F\x98\x80\"")},
      {object, R"({"Name":"/pub/x","Files":["a","b"],"CurrentSubDirectory":-1})"},
      {Json::array({Json(), Json::array({true}), Json::object()}), "[null,[true],{}]"},
  };
  for (const auto& [value, text] : cases) EXPECT_EQ(JsonText(value), text);
}

TEST(ParseJson, ReadsStandardJsonAndNamesWhatIsWrongAndWhere) {
  const auto value = ParseJson(R"(  { "a" : [ 1 , -0.5e1, "\u00e9\ud83d\ude00\/" ], "b": true, "c": null }  )");
  ASSERT_TRUE(value.has_value());
  EXPECT_EQ(JsonText(*value), S("{\"a\":[1,-5,\"é\xF0\x9F\x98\x80/\"],\"b\":true,\"c\":null}"));
  const std::pair<const char*, const char*> bad[] = {
      {"notjson", "unexpected character 'n' at column 1"},
      {"[1, tru]", "unexpected character 't' at column 5"},
      {"", "unexpected end of text at column 1"},
      {"[\"a\",", "unexpected end of text at column 6"},
      {"[1 2]", "expected ',' or ']' at column 4"},
      {"{\"a\" 1}", "expected ':' at column 6"},
      {"{a:1}", "unexpected character 'a' at column 2"},
      {"{1:1}", "expected a member name in quotes at column 2"},
      {"\"open", "unterminated string at column 6"},
      {"\"\\q\"", "unknown escape at column 3"},
      {"\"\\u12\"", "bad \\u escape at column 6"},
      {"\"\\ud800\"", "bad \\u escape: a surrogate without its pair at column 8"},
      {"\"a\tb\"", "control character in a string at column 3"},
      {"1.", "bad number: digits must follow '.' at column 3"},
      {"1e", "bad number: digits must follow the exponent at column 3"},
      {"-", "bad number at column 2"},
      {"[1] x", "unexpected text after the value at column 5"},
      {"[1, 1e400]", "number out of range at column 5"},
  };
  for (const auto& [text, said] : bad) {
    QString error;
    EXPECT_FALSE(ParseJson(S(text), &error).has_value()) << text;
    EXPECT_EQ(error, said) << text;
  }
  // Deep nesting is no crash.
  EXPECT_TRUE(ParseJson(QString(100000, u'[') + QString(100000, u']')).has_value());
}

TEST(TextEscaping, EscapesBackslashAndControlCharacters) {
  const std::pair<QString, QString> cases[] = {
      {"plain text", "plain text"},
      {QString(QChar(0)) + QChar(0x1B) + QChar(0x7F) + QChar(0x9F), "\\x00\\x1B\\x7F\\x9F"},
      {S("\"Grüße\" ÿ"), S("\"Grüße\" ÿ")},
      {"\\n", "\\\\n"},  // an escaped backslash cannot be mistaken for an escape
  };
  for (const auto& [text, escaped] : cases) EXPECT_EQ(EscapeText(text), escaped);
}

}  // namespace
}  // namespace velmar::test
