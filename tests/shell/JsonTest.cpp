// JSON values of value/result lines, the parser used for list words, and the escaping of
// report texts.
#include "shell/Json.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace velmar::test {
namespace {

TEST(JsonValue, SerializesScalars) {
  EXPECT_EQ(Json().Serialize(), "null");
  EXPECT_EQ(Json::Bool(true).Serialize(), "true");
  EXPECT_EQ(Json::Bool(false).Serialize(), "false");
  EXPECT_EQ(Json::Integer(21).Serialize(), "21");
  EXPECT_EQ(Json::Integer(-2147483648LL).Serialize(), "-2147483648");
  EXPECT_EQ(Json::Number(3.0).Serialize(), "3");
  EXPECT_EQ(Json::Number(0.1).Serialize(), "0.1");
  EXPECT_EQ(Json::Number(-2.5e-7).Serialize(), "-2.5e-07");
  EXPECT_EQ(Json::Number(1700000000123456.0).Serialize(), "1700000000123456");
  EXPECT_EQ(Json::Number(std::numeric_limits<double>::quiet_NaN()).Serialize(), "null");
  EXPECT_EQ(Json::Number(std::numeric_limits<double>::infinity()).Serialize(), "null");
}

TEST(JsonValue, StringsEscapeEveryControlCharacter) {
  EXPECT_EQ(Json::String("").Serialize(), "\"\"");
  EXPECT_EQ(Json::String("say \"hi\" \\ /").Serialize(), R"("say \"hi\" \\ /")");
  EXPECT_EQ(Json::String("a\r\n\tb\b\f").Serialize(), R"("a\r\n\tb\b\f")");
  EXPECT_EQ(Json::String(QString(QChar(0x01)) + QChar(0x1F) + QChar(0x7F) + QChar(0x85)).Serialize(),
            R"("\u0001\u001f\u007f\u0085")");
  // Printable non-ASCII text stays as it is (written as UTF-8 on the line).
  EXPECT_EQ(Json::String(QString::fromUtf8("Grüße ÿ €")).Serialize(), QString::fromUtf8("\"Grüße ÿ €\""));
  // A lone surrogate is escaped, a pair is kept.
  EXPECT_EQ(Json::String(QString(QChar(0xD800))).Serialize(), R"("\ud800")");
  EXPECT_EQ(Json::String(QString::fromUtf8("\xF0\x9F\x98\x80")).Serialize(), QString::fromUtf8("\"\xF0\x9F\x98\x80\""));
  // Whatever the text, the JSON stays on one line without TABs.
  const QString all = [] {
    QString s;
    for (ushort u = 0; u < 0x100; ++u) s += QChar(u);
    return s;
  }();
  const QString json = Json::String(all).Serialize();
  EXPECT_FALSE(json.contains(u'\n'));
  EXPECT_FALSE(json.contains(u'\r'));
  EXPECT_FALSE(json.contains(u'\t'));
}

TEST(JsonValue, ArraysAndObjectsKeepTheirOrder) {
  Json object = Json::Object();
  object.Insert("Name", Json::String("/pub"));
  object.Insert("Files", Json::Array({Json::String("a"), Json::String("b")}));
  object.Insert("CurrentSubDirectory", Json::Integer(-1));
  object.Insert("Name", Json::String("/pub/x"));  // replaced in place
  EXPECT_EQ(object.Serialize(), R"({"Name":"/pub/x","Files":["a","b"],"CurrentSubDirectory":-1})");
  EXPECT_EQ(Json::Array().Serialize(), "[]");
  EXPECT_EQ(Json::Object().Serialize(), "{}");
  EXPECT_EQ(Json::Array({Json(), Json::Array({Json::Bool(true)})}).Serialize(), "[null,[true]]");
}

TEST(JsonValue, ParsesWhatItWrites) {
  Json object = Json::Object();
  object.Insert("text", Json::String(QString::fromUtf8("a\"b\\c\r\n\t\x01 Grüße")));
  object.Insert("list", Json::Array({Json::Integer(-7), Json::Number(2.5), Json::Bool(false), Json()}));
  object.Insert("empty", Json::Object());
  const auto parsed = Json::Parse(object.Serialize());
  ASSERT_TRUE(parsed.has_value());
  EXPECT_TRUE(*parsed == object);
  EXPECT_EQ(parsed->Serialize(), object.Serialize());
}

TEST(JsonValue, ParsesStandardJson) {
  const auto value = Json::Parse(R"(  { "a" : [ 1 , -0.5e1, "\u00e9\ud83d\ude00\/" ], "b": true, "c": null }  )");
  ASSERT_TRUE(value.has_value());
  ASSERT_EQ(value->GetKind(), Json::Kind::Object);
  const Json* a = value->Member("a");
  ASSERT_NE(a, nullptr);
  ASSERT_EQ(a->Items().size(), 3);
  EXPECT_TRUE(a->Items()[0].IsInteger());
  EXPECT_EQ(a->Items()[0].AsNumber(), 1);
  EXPECT_EQ(a->Items()[1].AsNumber(), -5);
  EXPECT_EQ(a->Items()[2].AsString(), QString::fromUtf8("é\xF0\x9F\x98\x80/"));
  EXPECT_TRUE(value->Member("b")->AsBool());
  EXPECT_TRUE(value->Member("c")->IsNull());
  EXPECT_EQ(value->Member("d"), nullptr);
}

TEST(JsonValue, RejectsMalformedTextWithAPosition) {
  const char* bad[] = {"",         "[",         "[1,]",     "[1 2]",   "{\"a\" 1}", "{a:1}",      "\"open",
                       "\"\\q\"",  "\"\\u12\"", "01",       "1.",      "-",          "tru",        "[1] x",
                       "\"a\tb\"", "1e",        "{\"a\":}", "[\"a\",", "nul"};
  for (const char* text : bad) {
    QString error;
    EXPECT_FALSE(Json::Parse(QString::fromUtf8(text), &error).has_value()) << text;
    EXPECT_TRUE(error.contains("at column")) << text << " -> " << error.toStdString();
  }
  QString error;
  EXPECT_FALSE(Json::Parse("[1,\n2,,3]", &error).has_value());
  EXPECT_TRUE(error.endsWith("at column 7")) << error.toStdString();
}

TEST(JsonValue, DeepNestingIsAnErrorNotACrash) {
  const QString deep = QString(100000, u'[') + QString(100000, u']');
  QString error;
  EXPECT_FALSE(Json::Parse(deep, &error).has_value());
  EXPECT_TRUE(error.contains("nesting too deep")) << error.toStdString();
  const QString fine = QString(50, u'[') + QString(50, u']');
  EXPECT_TRUE(Json::Parse(fine).has_value());
}

TEST(TextEscaping, EscapesBackslashAndControlCharacters) {
  EXPECT_EQ(EscapeText("plain text"), "plain text");
  EXPECT_EQ(EscapeText("C:\\dir"), "C:\\\\dir");
  EXPECT_EQ(EscapeText("Error: 550 no\r\nmore\tto say"), "Error: 550 no\\r\\nmore\\tto say");
  EXPECT_EQ(EscapeText(QString(QChar(0)) + QChar(0x1B) + QChar(0x7F) + QChar(0x9F)), "\\x00\\x1B\\x7F\\x9F");
  // Quotes and printable non-ASCII text are left alone.
  EXPECT_EQ(EscapeText(QString::fromUtf8("\"Grüße\" ÿ")), QString::fromUtf8("\"Grüße\" ÿ"));
  // An escaped backslash cannot be mistaken for an escape: "\n" as two characters.
  EXPECT_EQ(EscapeText("\\n"), "\\\\n");
}

}  // namespace
}  // namespace velmar::test
