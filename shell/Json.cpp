#include "shell/Json.h"

#include <cctype>
#include <charconv>
#include <cmath>

namespace velmar {

namespace {

constexpr double kLargestExactInteger = 9007199254740992.0;  // 2^53
constexpr int kMaxDepth = 200;

void AppendHex4(QString& out, ushort code) {
  out += QStringLiteral("\\u%1").arg(code, 4, 16, QLatin1Char('0'));
}

void SerializeString(QString& out, const QString& text) {
  out += u'"';
  const qsizetype n = text.size();
  for (qsizetype i = 0; i < n; ++i) {
    const QChar c = text[i];
    const ushort u = c.unicode();
    switch (u) {
      case '"': out += QLatin1String("\\\""); continue;
      case '\\': out += QLatin1String("\\\\"); continue;
      case '\b': out += QLatin1String("\\b"); continue;
      case '\f': out += QLatin1String("\\f"); continue;
      case '\n': out += QLatin1String("\\n"); continue;
      case '\r': out += QLatin1String("\\r"); continue;
      case '\t': out += QLatin1String("\\t"); continue;
      default: break;
    }
    if (u < 0x20 || u == 0x7F || (u >= 0x80 && u < 0xA0)) {
      AppendHex4(out, u);
    } else if (c.isHighSurrogate() && i + 1 < n && text[i + 1].isLowSurrogate()) {
      out += c;
      out += text[++i];
    } else if (c.isSurrogate()) {
      // A lone surrogate cannot be written as UTF-8; the escape keeps it exact.
      AppendHex4(out, u);
    } else {
      out += c;
    }
  }
  out += u'"';
}

class Parser {
public:
  explicit Parser(const QString& text) : text_(text) {}

  std::optional<Json> ParseDocument(QString* error) {
    std::optional<Json> value;
    SkipBlanks();
    value = ParseValue(0);
    if (value) {
      SkipBlanks();
      if (pos_ < text_.size()) {
        Fail(QStringLiteral("unexpected text after the value"));
        value.reset();
      }
    }
    if (!value && error) *error = QStringLiteral("%1 at column %2").arg(error_).arg(errorPos_ + 1);
    return value;
  }

private:
  bool AtEnd() const { return pos_ >= text_.size(); }
  QChar Peek() const { return AtEnd() ? QChar() : text_[pos_]; }

  void SkipBlanks() {
    while (!AtEnd()) {
      const QChar c = text_[pos_];
      if (c != u' ' && c != u'\t' && c != u'\n' && c != u'\r') break;
      ++pos_;
    }
  }

  std::nullopt_t Fail(const QString& message) {
    if (error_.isEmpty()) {
      error_ = message;
      errorPos_ = pos_;
    }
    return std::nullopt;
  }

  bool Literal(QLatin1String word) {
    if (QStringView(text_).mid(pos_).startsWith(word)) {
      pos_ += word.size();
      return true;
    }
    return false;
  }

  std::optional<Json> ParseValue(int depth) {
    if (depth > kMaxDepth) return Fail(QStringLiteral("nesting too deep"));
    if (AtEnd()) return Fail(QStringLiteral("unexpected end of text"));
    const QChar c = Peek();
    if (c == u'{') return ParseObject(depth);
    if (c == u'[') return ParseArray(depth);
    if (c == u'"') {
      auto s = ParseString();
      if (!s) return std::nullopt;
      return Json::String(*s);
    }
    if (c == u'-' || (c >= u'0' && c <= u'9')) return ParseNumber();
    if (Literal(QLatin1String("true"))) return Json::Bool(true);
    if (Literal(QLatin1String("false"))) return Json::Bool(false);
    if (Literal(QLatin1String("null"))) return Json();
    return Fail(QStringLiteral("unexpected character '%1'").arg(c));
  }

  std::optional<Json> ParseArray(int depth) {
    ++pos_;  // [
    Json array = Json::Array();
    SkipBlanks();
    if (Peek() == u']') {
      ++pos_;
      return array;
    }
    for (;;) {
      SkipBlanks();
      auto item = ParseValue(depth + 1);
      if (!item) return std::nullopt;
      array.Append(std::move(*item));
      SkipBlanks();
      if (Peek() == u',') {
        ++pos_;
        continue;
      }
      if (Peek() == u']') {
        ++pos_;
        return array;
      }
      return Fail(AtEnd() ? QStringLiteral("unterminated array") : QStringLiteral("expected ',' or ']'"));
    }
  }

  std::optional<Json> ParseObject(int depth) {
    ++pos_;  // {
    Json object = Json::Object();
    SkipBlanks();
    if (Peek() == u'}') {
      ++pos_;
      return object;
    }
    for (;;) {
      SkipBlanks();
      if (Peek() != u'"') return Fail(QStringLiteral("expected a member name in quotes"));
      auto key = ParseString();
      if (!key) return std::nullopt;
      SkipBlanks();
      if (Peek() != u':') return Fail(QStringLiteral("expected ':'"));
      ++pos_;
      SkipBlanks();
      auto value = ParseValue(depth + 1);
      if (!value) return std::nullopt;
      object.Insert(*key, std::move(*value));
      SkipBlanks();
      if (Peek() == u',') {
        ++pos_;
        continue;
      }
      if (Peek() == u'}') {
        ++pos_;
        return object;
      }
      return Fail(AtEnd() ? QStringLiteral("unterminated object") : QStringLiteral("expected ',' or '}'"));
    }
  }

  std::optional<ushort> ParseHex4() {
    if (pos_ + 4 > text_.size()) return Fail(QStringLiteral("incomplete \\u escape"));
    bool ok = false;
    const uint code = text_.mid(pos_, 4).toUInt(&ok, 16);
    for (qsizetype k = pos_; k < pos_ + 4; ++k)
      if (!isxdigit(text_[k].toLatin1())) ok = false;
    if (!ok) return Fail(QStringLiteral("bad \\u escape"));
    pos_ += 4;
    return static_cast<ushort>(code);
  }

  std::optional<QString> ParseString() {
    ++pos_;  // opening quote
    QString out;
    while (!AtEnd()) {
      const QChar c = text_[pos_];
      if (c == u'"') {
        ++pos_;
        return out;
      }
      if (c.unicode() < 0x20) return Fail(QStringLiteral("control character in a string"));
      if (c != u'\\') {
        out += c;
        ++pos_;
        continue;
      }
      ++pos_;
      if (AtEnd()) break;
      const QChar e = text_[pos_++];
      switch (e.unicode()) {
        case '"': out += u'"'; break;
        case '\\': out += u'\\'; break;
        case '/': out += u'/'; break;
        case 'b': out += u'\b'; break;
        case 'f': out += u'\f'; break;
        case 'n': out += u'\n'; break;
        case 'r': out += u'\r'; break;
        case 't': out += u'\t'; break;
        case 'u': {
          auto code = ParseHex4();
          if (!code) return std::nullopt;
          out += QChar(*code);
          break;
        }
        default:
          --pos_;
          return Fail(QStringLiteral("unknown escape \\%1").arg(e));
      }
    }
    return Fail(QStringLiteral("unterminated string"));
  }

  std::optional<Json> ParseNumber() {
    const qsizetype start = pos_;
    auto digits = [this] {
      const qsizetype from = pos_;
      while (!AtEnd() && Peek() >= u'0' && Peek() <= u'9') ++pos_;
      return pos_ - from;
    };
    bool integral = true;
    if (Peek() == u'-') ++pos_;
    if (Peek() == u'0') {
      ++pos_;
    } else if (digits() == 0) {
      return Fail(QStringLiteral("bad number"));
    }
    if (Peek() == u'.') {
      integral = false;
      ++pos_;
      if (digits() == 0) return Fail(QStringLiteral("bad number: digits must follow '.'"));
    }
    if (Peek() == u'e' || Peek() == u'E') {
      integral = false;
      ++pos_;
      if (Peek() == u'+' || Peek() == u'-') ++pos_;
      if (digits() == 0) return Fail(QStringLiteral("bad number: digits must follow the exponent"));
    }
    const QString number = text_.mid(start, pos_ - start);
    bool ok = false;
    if (integral) {
      const qint64 value = number.toLongLong(&ok);
      if (ok) return Json::Integer(value);
    }
    const double value = number.toDouble(&ok);
    if (!ok || !std::isfinite(value)) {
      pos_ = start;
      return Fail(QStringLiteral("number out of range"));
    }
    return Json::Number(value);
  }

  const QString& text_;
  qsizetype pos_ = 0;
  QString error_;
  qsizetype errorPos_ = 0;
};

}  // namespace

Json Json::Bool(bool value) {
  Json j;
  j.kind_ = Kind::Bool;
  j.bool_ = value;
  return j;
}

Json Json::Integer(qint64 value) {
  Json j;
  j.kind_ = Kind::Number;
  j.integer_ = true;
  j.number_ = static_cast<double>(value);
  return j;
}

Json Json::Number(double value) {
  if (!std::isfinite(value)) return Json();
  if (value == std::trunc(value) && std::fabs(value) <= kLargestExactInteger)
    return Integer(static_cast<qint64>(value));
  Json j;
  j.kind_ = Kind::Number;
  j.number_ = value;
  return j;
}

Json Json::String(const QString& value) {
  Json j;
  j.kind_ = Kind::String;
  j.string_ = value;
  return j;
}

Json Json::Array(QList<Json> items) {
  Json j;
  j.kind_ = Kind::Array;
  j.items_ = std::move(items);
  return j;
}

Json Json::Object() {
  Json j;
  j.kind_ = Kind::Object;
  return j;
}

const Json* Json::Member(const QString& key) const {
  for (const auto& member : members_)
    if (member.first == key) return &member.second;
  return nullptr;
}

Json& Json::Append(Json item) {
  items_.append(std::move(item));
  return *this;
}

Json& Json::Insert(const QString& key, Json value) {
  for (auto& member : members_) {
    if (member.first == key) {
      member.second = std::move(value);
      return *this;
    }
  }
  members_.append({key, std::move(value)});
  return *this;
}

QString Json::Serialize() const {
  QString out;
  SerializeTo(out);
  return out;
}

void Json::SerializeTo(QString& out) const {
  switch (kind_) {
    case Kind::Null: out += QLatin1String("null"); return;
    case Kind::Bool: out += bool_ ? QLatin1String("true") : QLatin1String("false"); return;
    case Kind::Number: {
      if (integer_) {
        out += QString::number(static_cast<qint64>(number_));
        return;
      }
      // The shortest text that reads back as the same double.
      char buffer[64];
      const auto result = std::to_chars(buffer, buffer + sizeof buffer, number_);
      out += QString::fromLatin1(buffer, result.ptr - buffer);
      return;
    }
    case Kind::String: SerializeString(out, string_); return;
    case Kind::Array: {
      out += u'[';
      for (qsizetype i = 0; i < items_.size(); ++i) {
        if (i) out += u',';
        items_[i].SerializeTo(out);
      }
      out += u']';
      return;
    }
    case Kind::Object: {
      out += u'{';
      for (qsizetype i = 0; i < members_.size(); ++i) {
        if (i) out += u',';
        SerializeString(out, members_[i].first);
        out += u':';
        members_[i].second.SerializeTo(out);
      }
      out += u'}';
      return;
    }
  }
}

std::optional<Json> Json::Parse(const QString& text, QString* error) {
  return Parser(text).ParseDocument(error);
}

bool Json::operator==(const Json& other) const {
  if (kind_ != other.kind_) return false;
  switch (kind_) {
    case Kind::Null: return true;
    case Kind::Bool: return bool_ == other.bool_;
    case Kind::Number: return number_ == other.number_;
    case Kind::String: return string_ == other.string_;
    case Kind::Array: return items_ == other.items_;
    case Kind::Object: return members_ == other.members_;
  }
  return false;
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
