#pragma once
// A file opened for reading or writing bytes at 64-bit positions.
#include <QByteArray>
#include <QFile>
#include <QString>
#include <memory>

// <cstdio> defines EOF as a macro, which would swallow the EOF() methods of the streams. It is
// included here first so that no later include brings the macro back in this translation
// unit; code that compares with the C constant uses std::char_traits<char>::eof() instead.
#include <cstdio>
#undef EOF

namespace velmar {

class BinaryStream {
public:
  // Takes an open file. The file is unbuffered, so every Write reaches the OS at once and a
  // failure (disk full) is known when Write returns.
  explicit BinaryStream(std::unique_ptr<QFile> file);
  ~BinaryStream();
  BinaryStream(const BinaryStream&) = delete;
  BinaryStream& operator=(const BinaryStream&) = delete;

  // Up to count bytes from the position on: fewer at the end, none at the end or when closed.
  QByteArray Read(qint64 count);
  // True when every byte went to the file. On a closed stream it writes nothing and
  // returns false; the reason of a failure is in LastError().
  bool Write(const QByteArray& data);
  void Close();
  bool IsOpen() const;

  // True when the position is at or past the end, and on a closed stream.
  bool EOF() const;
  qint64 Length() const;
  qint64 Position() const;
  // A position past the end is allowed: a write there leaves a gap of zero bytes. A negative
  // position is refused (false).
  bool SetPosition(qint64 position);

  // True while a stream of this process has the file at `absolutePath` open for writing.
  static bool IsOpenForWriting(const QString& absolutePath);

  // The description of the last failed operation, empty when none failed.
  QString LastError() const { return lastError_; }

private:
  // Streams opened for reading only read ahead; writers write through at once, so that a
  // failed write is known when Write returns.
  static constexpr qint64 kReadAhead = 64 * 1024;
  bool ReadsAhead() const { return !file_->isWritable() && !file_->isSequential(); }
  qint64 BufferedBytes() const { return readAhead_.size() - readAheadOffset_; }
  QByteArray ReadFromFile(qint64 count);

  std::unique_ptr<QFile> file_;
  QByteArray readAhead_;
  qint64 readAheadOffset_ = 0;
  QString lastError_;
  QString writingPath_;  // registered while open for writing
  qint64 knownLength_ = 0;
};

}  // namespace velmar
