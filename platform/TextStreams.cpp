#include "platform/TextInputStream.h"
#include "platform/TextOutputStream.h"

namespace velmar {

namespace {
constexpr qint64 kBlockSize = 64 * 1024;
}  // namespace

TextInputStream::TextInputStream(std::unique_ptr<QFile> file) : file_(std::move(file)) {}

TextInputStream::~TextInputStream() { Close(); }

bool TextInputStream::Fill() {
  while (!fileDone_ && file_ && file_->isOpen()) {
    // The decoder carries a character split between two blocks over to the next block; it is
    // made anew only when the encoding changes.
    if (!decoder_ || !(decoderEncoding_ == Encoding)) {
      decoder_ = std::make_unique<TextDecoder>(Encoding);
      decoderEncoding_ = Encoding;
    }
    QByteArray block(kBlockSize, Qt::Uninitialized);
    const qint64 got = file_->read(block.data(), kBlockSize);
    if (got <= 0) {
      if (got < 0) lastError_ = file_->errorString();
      fileDone_ = true;
      return false;
    }
    block.truncate(got);
    const QString text = decoder_->Decode(block);
    if (!text.isEmpty()) {
      text_ += text;
      return true;
    }
    // A block that only began a character decodes to nothing yet: read on.
  }
  return false;
}

void TextInputStream::Compact() {
  if (consumed_ == text_.size()) {
    text_.clear();
    consumed_ = 0;
  } else if (consumed_ > kBlockSize) {
    text_.remove(0, consumed_);
    consumed_ = 0;
  }
}

QString TextInputStream::ReadLine() {
  qsizetype searchFrom = consumed_;
  for (;;) {
    const qsizetype end = text_.indexOf(u'\n', searchFrom);
    if (end >= 0) {
      qsizetype lineEnd = end;
      if (lineEnd > consumed_ && text_.at(lineEnd - 1) == u'\r') --lineEnd;
      QString line = text_.mid(consumed_, lineEnd - consumed_);
      consumed_ = end + 1;
      Compact();
      return line;
    }
    searchFrom = text_.size();
    if (!Fill()) break;
  }
  // The last line of a file that does not end in a line end.
  QString line = text_.mid(consumed_);
  text_.clear();
  consumed_ = 0;
  return line;
}

QString TextInputStream::ReadAll() {
  while (Fill()) {
  }
  QString rest = text_.mid(consumed_);
  text_.clear();
  consumed_ = 0;
  return rest;
}

bool TextInputStream::EOF() {
  if (consumed_ < text_.size()) return false;
  return !Fill();
}

void TextInputStream::Close() {
  if (file_ && file_->isOpen()) file_->close();
  text_.clear();
  consumed_ = 0;
  fileDone_ = true;
}

TextOutputStream::TextOutputStream(std::unique_ptr<QFile> file) : file_(std::move(file)) {}

TextOutputStream::~TextOutputStream() { Close(); }

bool TextOutputStream::WriteLine(const QString& text) { return Write(text + u'\n'); }

bool TextOutputStream::Write(const QString& text) {
  if (!IsOpen()) {
    lastError_ = QStringLiteral("the stream is closed");
    return false;
  }
  const QByteArray bytes = Encoding.Encode(text);
  const char* next = bytes.constData();
  qint64 left = bytes.size();
  while (left > 0) {
    const qint64 written = file_->write(next, left);
    if (written <= 0) {
      lastError_ = file_->errorString();
      return false;
    }
    next += written;
    left -= written;
  }
  return true;
}

bool TextOutputStream::Close() {
  if (!IsOpen()) return true;
  const bool flushed = file_->flush();
  if (!flushed) lastError_ = file_->errorString();
  file_->close();
  return flushed;
}

bool TextOutputStream::IsOpen() const { return file_ && file_->isOpen(); }

}  // namespace velmar
