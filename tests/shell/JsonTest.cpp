// JSON values of value/result lines, the parser used for list words, and the escaping of
// report texts.
#include "shell/Json.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

#include <limits>

namespace velmar::test {
namespace {

QString S(const char* utf8) { return QString::fromUtf8(utf8); }

TEST(JsonValue, SerializesScalarsStringsArraysAndObjects) {
  Json object = Json::Object();
  object.Insert("Name", Json::String("/pub"));
  object.Insert("Files", Json::Array({Json::String("a"), Json::String("b")}));
  object.Insert("CurrentSubDirectory", Json::Integer(-1));
  object.Insert("Name", Json::String("/pub/x"));  // replaced in place
  const std::pair<Json, QString> cases[] = {
      {Json(), "null"},
      {Json::Bool(true), "true"},
      {Json::Bool(false), "false"},
      {Json::Integer(21), "21"},
      {Json::Integer(-2147483648LL), "-2147483648"},
      {Json::Number(3.0), "3"},
      {Json::Number(0.1), "0.1"},
      {Json::Number(-2.5e-7), "-2.5e-07"},
      {Json::Number(1700000000123456.0), "1700000000123456"},
      {Json::Number(std::numeric_limits<double>::quiet_NaN()), "null"},
      {Json::Number(std::numeric_limits<double>::infinity()), "null"},
      {Json::String(""), R"("")"},
      {Json::String("say \"hi\" \\ /"), R"("say \"hi\" \\ /")"},
      {Json::String("a\r\n\tb\b\f"), R"("a\r\n\tb\b\f")"},
      {Json::String(QString(QChar(0x01)) + QChar(0x1F) + QChar(0x7F) + QChar(0x85)), R"("\u0001\u001f\u007f\u0085")"},
      // Printable non-ASCII text stays as it is; a lone surrogate is escaped, a pair kept.
      {Json::String(S("Grüße ÿ €")), S("\"Grüße ÿ €\"")},
      {Json::String(QString(QChar(0xD800))), R"("\ud800")"},
      {Json::String(S("\xF0\x9F\x98\x80")), S("\"\xF0\x9F\x98\x80\"")},
      {object, R"({"Name":"/pub/x","Files":["a","b"],"CurrentSubDirectory":-1})"},
      {Json::Array(), "[]"},
      {Json::Object(), "{}"},
      {Json::Array({Json(), Json::Array({Json::Bool(true)})}), "[null,[true]]"},
  };
  for (const auto& [value, json] : cases) EXPECT_EQ(value.Serialize(), json);
}

TEST(JsonValue, ParsesWhatItWritesAndStandardJson) {
  Json object = Json::Object();
  object.Insert("text", Json::String(S("a\"b\\c\r\n\t\x01 Grüße")));
  object.Insert("list", Json::Array({Json::Integer(-7), Json::Number(2.5), Json::Bool(false), Json()}));
  object.Insert("empty", Json::Object());
  const auto parsed = Json::Parse(object.Serialize());
  ASSERT_TRUE(parsed.has_value());
  EXPECT_TRUE(*parsed == object);
  EXPECT_EQ(parsed->Serialize(), object.Serialize());

  const auto value = Json::Parse(R"(  { "a" : [ 1 , -0.5e1, "\u00e9\ud83d\ude00\/" ], "b": true, "c": null }  )");
  ASSERT_TRUE(value.has_value());
  EXPECT_EQ(value->Serialize(), S("{\"a\":[1,-5,\"é\xF0\x9F\x98\x80/\"],\"b\":true,\"c\":null}"));
  EXPECT_TRUE(value->Member("a")->Items()[0].IsInteger());
  EXPECT_EQ(value->Member("d"), nullptr);
}

TEST(JsonValue, RejectsMalformedTextWithAPosition) {
  const char* bad[] = {"",         "[",         "[1,]",     "[1 2]",   "{\"a\" 1}", "{a:1}",      "\"open",
                       "\"\\q\"",  "\"\\u12\"", "01",       "1.",      "-",          "tru",        "[1] x",
                       "\"a\tb\"", "1e",        "{\"a\":}", "[\"a\",", "nul"};
  for (const char* text : bad) {
    QString error;
    EXPECT_FALSE(Json::Parse(S(text), &error).has_value()) << text;
    EXPECT_TRUE(error.contains("at column")) << text << " -> " << error.toStdString();
  }
  QString error;
  EXPECT_FALSE(Json::Parse("[1,\n2,,3]", &error).has_value());
  EXPECT_TRUE(error.endsWith("at column 7")) << error.toStdString();
  // Deep nesting is an error, not a crash.
  EXPECT_FALSE(Json::Parse(QString(100000, u'[') + QString(100000, u']'), &error).has_value());
  EXPECT_TRUE(error.contains("nesting too deep")) << error.toStdString();
  EXPECT_TRUE(Json::Parse(QString(50, u'[') + QString(50, u']')).has_value());
}

TEST(TextEscaping, EscapesBackslashAndControlCharacters) {
  const std::pair<QString, QString> cases[] = {
      {"plain text", "plain text"},
      {QString(QChar(0)) + QChar(0x1B) + QChar(0x7F) + QChar(0x9F), "\\x00\\x1B\\x7F\\x9F"},
      // Quotes and printable non-ASCII text are left alone.
      {S("\"Grüße\" ÿ"), S("\"Grüße\" ÿ")},
      // An escaped backslash cannot be mistaken for an escape: "\n" as two characters.
      {"\\n", "\\\\n"},
  };
  for (const auto& [text, escaped] : cases) EXPECT_EQ(EscapeText(text), escaped);
}

}  // namespace
}  // namespace velmar::test
