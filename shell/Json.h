#pragma once
// JSON values as the shell prints them in `value` and `result` lines, and the parser for
// words that carry JSON (`set Files ["a","b"]`). Objects keep their members in the order
// they were inserted, so a dump lists fields in declared order.
#include <QList>
#include <QPair>
#include <QString>
#include <optional>

namespace velmar {

class Json {
public:
  enum class Kind { Null, Bool, Number, String, Array, Object };

  // Null.
  Json() = default;
  static Json Bool(bool value);
  // A whole number; printed without a fraction.
  static Json Integer(qint64 value);
  // Any number; whole numbers print without a fraction, NaN and infinities as null.
  static Json Number(double value);
  static Json String(const QString& value);
  static Json Array(QList<Json> items = {});
  static Json Object();

  Kind GetKind() const { return kind_; }
  bool IsNull() const { return kind_ == Kind::Null; }
  bool AsBool() const { return bool_; }
  double AsNumber() const { return number_; }
  bool IsInteger() const { return kind_ == Kind::Number && integer_; }
  const QString& AsString() const { return string_; }
  const QList<Json>& Items() const { return items_; }
  const QList<QPair<QString, Json>>& Members() const { return members_; }
  // The member named `key`, or nullptr.
  const Json* Member(const QString& key) const;

  // Appends to an array.
  Json& Append(Json item);
  // Adds a member to an object, or replaces the member of that name in place.
  Json& Insert(const QString& key, Json value);

  // Compact JSON text on one line: every control character inside strings is escaped,
  // so the text never holds a TAB, CR or LF.
  QString Serialize() const;

  // Parses a complete JSON text (surrounding white space allowed). On failure returns
  // nothing and, when `error` is given, says what is wrong and where.
  static std::optional<Json> Parse(const QString& text, QString* error = nullptr);

  bool operator==(const Json& other) const;

private:
  void SerializeTo(QString& out) const;

  Kind kind_ = Kind::Null;
  bool bool_ = false;
  bool integer_ = false;
  double number_ = 0;
  QString string_;
  QList<Json> items_;
  QList<QPair<QString, Json>> members_;
};

// Escapes a report text for an output line: \ -> \\, CR -> \r, LF -> \n, TAB -> \t, any
// other control character (C0, DEL, C1) -> \xHH. The result holds no line break or TAB.
QString EscapeText(const QString& text);

}  // namespace velmar
