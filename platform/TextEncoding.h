#pragma once
// Text encodings of the control connection: sending converts, receiving labels bytes.
#include <QByteArray>
#include <QString>
#include <QStringDecoder>
#include <optional>

namespace velmar {

class TextEncoding {
public:
  // ISO Latin 1, the default of a session.
  TextEncoding();

  static TextEncoding ISOLatin1();
  static TextEncoding UTF8();
  // By name, ignoring case: "ISO-8859-1" (also "Latin1", "ISOLatin1"), "UTF-8" (also "UTF8").
  static std::optional<TextEncoding> FromName(const QString& name);

  // The canonical name: "ISO-8859-1" or "UTF-8".
  QString Name() const;

  // Converts text to bytes of this encoding.
  QByteArray Encode(const QString& text) const;
  // Reads bytes as text of this encoding (the framework's DefineEncoding).
  QString Decode(const QByteArray& bytes) const;

  bool operator==(const TextEncoding& other) const { return encoding_ == other.encoding_; }

private:
  explicit TextEncoding(QStringConverter::Encoding encoding) : encoding_(encoding) {}
  QStringConverter::Encoding encoding_;
  friend class TextDecoder;
};

// Decodes a byte stream that arrives in pieces: a multi-byte character split across two
// pieces comes out whole, with the second piece.
class TextDecoder {
public:
  explicit TextDecoder(const TextEncoding& encoding);
  QString Decode(const QByteArray& piece);

private:
  QStringDecoder decoder_;
};

}  // namespace velmar
