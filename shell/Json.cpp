#include "shell/Json.h"

#include <cctype>
#include <charconv>
#include <cmath>

namespace velmar {

namespace {

constexpr double kLargestExactInteger = 9007199254740992.0;  // 2^53

// \u00XX for a character below U+0100.
void AppendEscape(std::string& out, unsigned code) {
  static constexpr char kHex[] = "0123456789abcdef";
  out += "\\u00";
  out += kHex[(code >> 4) & 15];
  out += kHex[code & 15];
}

// The string's UTF-8 as it is, but for quotes, backslashes and control characters.
void AppendString(std::string& out, const std::string& text) {
  out += '"';
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    switch (byte) {
      case '"': out += "\\\""; continue;
      case '\\': out += "\\\\"; continue;
      case '\b': out += "\\b"; continue;
      case '\f': out += "\\f"; continue;
      case '\n': out += "\\n"; continue;
      case '\r': out += "\\r"; continue;
      case '\t': out += "\\t"; continue;
      default: break;
    }
    if (byte < 0x20 || byte == 0x7F) {
      AppendEscape(out, byte);
    } else if (byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0) {
      // U+0080 to U+009F (C1 controls) are two bytes, C2 80 to C2 9F.
      AppendEscape(out, static_cast<unsigned char>(text[++i]));
    } else {
      out += static_cast<char>(byte);
    }
  }
  out += '"';
}

void AppendNumber(std::string& out, double value) {
  if (!std::isfinite(value)) {
    out += "null";
  } else if (value == std::trunc(value) && std::fabs(value) <= kLargestExactInteger) {
    out += std::to_string(static_cast<qint64>(value));
  } else {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, result.ptr);
  }
}

void Append(std::string& out, const Json& value) {
  switch (value.type()) {
    case Json::value_t::null:
    case Json::value_t::discarded: out += "null"; return;
    case Json::value_t::boolean: out += value.get<bool>() ? "true" : "false"; return;
    case Json::value_t::number_integer: out += std::to_string(value.get<qint64>()); return;
    case Json::value_t::number_unsigned: out += std::to_string(value.get<quint64>()); return;
    case Json::value_t::number_float: AppendNumber(out, value.get<double>()); return;
    case Json::value_t::string: AppendString(out, value.get_ref<const std::string&>()); return;
    case Json::value_t::binary: out += "null"; return;
    case Json::value_t::array: {
      out += '[';
      bool first = true;
      for (const Json& item : value) {
        if (!first) out += ',';
        first = false;
        Append(out, item);
      }
      out += ']';
      return;
    }
    case Json::value_t::object: {
      out += '{';
      bool first = true;
      for (const auto& [key, member] : value.items()) {
        if (!first) out += ',';
        first = false;
        AppendString(out, key);
        out += ':';
        Append(out, member);
      }
      out += '}';
      return;
    }
  }
}

// The parser's diagnosis in the shell's words: what is wrong, without the library's prefix.
QString Diagnosis(const std::string& what) {
  struct Phrase {
    const char* found;
    const char* said;
  };
  static const Phrase phrases[] = {
      {"unexpected end of input", "unexpected end of text"},
      {"missing closing quote", "unterminated string"},
      {"control character", "control character in a string"},
      {"must be followed by 4 hex digits", "bad \\u escape"},
      {"surrogate", "bad \\u escape: a surrogate without its pair"},
      {"forbidden character after backslash", "unknown escape"},
      {"expected digit after '.'", "bad number: digits must follow '.'"},
      {"after exponent", "bad number: digits must follow the exponent"},
      {"invalid number", "bad number"},
      {"expected end of input", "unexpected text after the value"},
      {"expected string literal", "expected a member name in quotes"},
      {"expected ':'", "expected ':'"},
      {"expected ']'", "expected ',' or ']'"},
      {"expected '}'", "expected ',' or '}'"},
  };
  for (const Phrase& phrase : phrases)
    if (what.find(phrase.found) != std::string::npos) return QString::fromUtf8(phrase.said);
  return QStringLiteral("not JSON");
}

}  // namespace

Json JsonString(const QString& text) { return Json(text.toStdString()); }

QString JsonToQString(const Json& value) { return QString::fromStdString(value.get_ref<const std::string&>()); }

QString JsonText(const Json& value) {
  std::string out;
  Append(out, value);
  return QString::fromStdString(out);
}

std::optional<Json> ParseJson(const QString& text, QString* error) {
  const std::string utf8 = text.toStdString();
  try {
    return Json::parse(utf8);
  } catch (const Json::parse_error& failure) {
    if (!error) return std::nullopt;
    // The byte where the parser stopped, as a column of characters.
    const size_t stop = std::min<size_t>(failure.byte, utf8.size() + 1);
    QString said = Diagnosis(failure.what());
    qsizetype column = QString::fromUtf8(utf8.data(), static_cast<qsizetype>(stop > 0 ? stop - 1 : 0)).size() + 1;
    const std::string what = failure.what();
    if (what.find("invalid literal") != std::string::npos && what.find("expected end of input") == std::string::npos) {
      // A word that is no JSON value: named by its first character, where the word starts.
      size_t start = std::min(stop > 0 ? stop - 1 : 0, utf8.size());
      const auto letter = [&](size_t i) { return i < utf8.size() && std::isalpha(static_cast<unsigned char>(utf8[i])); };
      if (!letter(start) && start > 0 && letter(start - 1)) --start;
      while (start > 0 && letter(start - 1)) --start;
      const auto rest = static_cast<qsizetype>(std::min<size_t>(4, utf8.size() - start));
      said = QStringLiteral("unexpected character '%1'").arg(QString::fromUtf8(utf8.data() + start, rest).left(1));
      column = QString::fromUtf8(utf8.data(), static_cast<qsizetype>(start)).size() + 1;
    }
    *error = QStringLiteral("%1 at column %2").arg(said).arg(column);
    return std::nullopt;
  } catch (const Json::exception& failure) {
    // A number beyond the range of a double: "number overflow parsing '1e400'".
    if (!error) return std::nullopt;
    const std::string what = failure.what();
    const size_t quote = what.find('\'');
    const size_t at = quote == std::string::npos ? 0 : utf8.find(what.substr(quote + 1, what.rfind('\'') - quote - 1));
    *error = QStringLiteral("number out of range at column %1")
                 .arg(QString::fromUtf8(utf8.data(), static_cast<qsizetype>(at == std::string::npos ? 0 : at)).size() + 1);
    return std::nullopt;
  }
}

QString EscapeText(const QString& text) {
  QString out;
  out.reserve(text.size());
  for (const QChar c : text) {
    const ushort u = c.unicode();
    if (u == '\\') out += QLatin1String("\\\\");
    else if (u == '\r') out += QLatin1String("\\r");
    else if (u == '\n') out += QLatin1String("\\n");
    else if (u == '\t') out += QLatin1String("\\t");
    else if (u < 0x20 || u == 0x7F || (u >= 0x80 && u < 0xA0))
      out += QLatin1String("\\x") + QString::number(u, 16).toUpper().rightJustified(2, u'0');
    else out += c;
  }
  return out;
}

}  // namespace velmar
