#include "platform/TextEncoding.h"

#include <QStringEncoder>

namespace velmar {

TextEncoding::TextEncoding() : encoding_(QStringConverter::Latin1) {}

TextEncoding TextEncoding::ISOLatin1() { return TextEncoding(QStringConverter::Latin1); }
TextEncoding TextEncoding::UTF8() { return TextEncoding(QStringConverter::Utf8); }

std::optional<TextEncoding> TextEncoding::FromName(const QString& name) {
  const QString key = name.toLower().remove(QLatin1Char('-')).remove(QLatin1Char('_')).remove(QLatin1Char(' '));
  if (key == u"iso88591" || key == u"latin1" || key == u"isolatin1") return ISOLatin1();
  if (key == u"utf8") return UTF8();
  return std::nullopt;
}

QString TextEncoding::Name() const {
  return encoding_ == QStringConverter::Utf8 ? QStringLiteral("UTF-8") : QStringLiteral("ISO-8859-1");
}

QByteArray TextEncoding::Encode(const QString& text) const {
  if (encoding_ == QStringConverter::Latin1) return text.toLatin1();
  return text.toUtf8();
}

QString TextEncoding::Decode(const QByteArray& bytes) const {
  if (encoding_ == QStringConverter::Latin1) return QString::fromLatin1(bytes);
  return QString::fromUtf8(bytes);
}

TextDecoder::TextDecoder(const TextEncoding& encoding) : decoder_(encoding.encoding_) {}

QString TextDecoder::Decode(const QByteArray& piece) { return decoder_.decode(piece); }

}  // namespace velmar
