#include "platform/BinaryStream.h"

#include <QFileInfo>
#include <QHash>

#include <algorithm>

namespace velmar {

namespace {
// Files that streams of this process write, with the number of such streams.
QHash<QString, int>& FilesOpenForWriting() {
  static QHash<QString, int> files;
  return files;
}
}  // namespace

BinaryStream::BinaryStream(std::unique_ptr<QFile> file) : file_(std::move(file)) {
  // The length is kept here rather than asked of the system at each block: streams are
  // read and written in blocks of a few KiB, and each question costs a system call.
  if (IsOpen() && !file_->isSequential()) knownLength_ = file_->size();
  if (IsOpen() && (file_->openMode() & QIODevice::WriteOnly)) {
    writingPath_ = QFileInfo(file_->fileName()).absoluteFilePath();
    ++FilesOpenForWriting()[writingPath_];
  }
}

bool BinaryStream::IsOpenForWriting(const QString& absolutePath) {
  return FilesOpenForWriting().contains(QFileInfo(absolutePath).absoluteFilePath());
}

BinaryStream::~BinaryStream() { Close(); }

QByteArray BinaryStream::Read(qint64 count) {
  if (!IsOpen() || count <= 0) return QByteArray();
  // Never allocate more than is left, so a caller may ask for "the rest" of a huge file
  // without reserving its size; a device such as a pipe has no length and is read as asked.
  if (!file_->isSequential()) count = std::min(count, knownLength_ - Position());
  if (count <= 0) return QByteArray();
  if (!ReadsAhead()) return ReadFromFile(count);
  // Uploads read blocks of a few KiB: serve them from one system read of kReadAhead.
  if (BufferedBytes() < count) {
    readAhead_.remove(0, readAheadOffset_);
    readAheadOffset_ = 0;
    const QByteArray more = ReadFromFile(std::max(count - readAhead_.size(), kReadAhead));
    readAhead_.append(more);
  }
  const qint64 take = std::min<qint64>(count, BufferedBytes());
  QByteArray block = readAhead_.mid(readAheadOffset_, take);
  readAheadOffset_ += take;
  if (readAheadOffset_ == readAhead_.size()) {
    readAhead_.clear();
    readAheadOffset_ = 0;
  }
  return block;
}

QByteArray BinaryStream::ReadFromFile(qint64 count) {
  if (!file_->isSequential()) count = std::min(count, knownLength_ - file_->pos());
  if (count <= 0) return QByteArray();
  QByteArray block(count, Qt::Uninitialized);
  const qint64 got = file_->read(block.data(), count);
  if (got < 0) {
    lastError_ = file_->errorString();
    return QByteArray();
  }
  // A short read means the file changed under the stream: learn its length again.
  if (got < count && !file_->isSequential()) knownLength_ = file_->size();
  block.truncate(got);
  return block;
}

bool BinaryStream::Write(const QByteArray& data) {
  if (!IsOpen()) {
    lastError_ = QStringLiteral("the stream is closed");
    return false;
  }
  if (!file_->isWritable()) {
    lastError_ = QStringLiteral("the stream is open for reading only");
    return false;
  }
  const char* next = data.constData();
  qint64 left = data.size();
  while (left > 0) {
    const qint64 written = file_->write(next, left);
    if (written <= 0) {
      lastError_ = file_->errorString();
      return false;
    }
    next += written;
    left -= written;
  }
  if (!file_->isSequential()) knownLength_ = std::max(knownLength_, file_->pos());
  return true;
}

void BinaryStream::Close() {
  if (IsOpen()) file_->close();
  readAhead_.clear();
  readAheadOffset_ = 0;
  if (!writingPath_.isEmpty()) {
    auto found = FilesOpenForWriting().find(writingPath_);
    if (found != FilesOpenForWriting().end() && --found.value() <= 0) FilesOpenForWriting().erase(found);
    writingPath_.clear();
  }
}

bool BinaryStream::IsOpen() const { return file_ && file_->isOpen(); }

// A device without a length (a pipe) is at its end when it has nothing more to give.
bool BinaryStream::EOF() const {
  if (!IsOpen()) return true;
  if (file_->isSequential()) return BufferedBytes() == 0 && file_->atEnd();
  return Position() >= knownLength_;
}

qint64 BinaryStream::Length() const { return IsOpen() ? knownLength_ : 0; }

qint64 BinaryStream::Position() const { return IsOpen() ? file_->pos() - BufferedBytes() : 0; }

bool BinaryStream::SetPosition(qint64 position) {
  if (!IsOpen() || position < 0) {
    lastError_ = IsOpen() ? QStringLiteral("negative position") : QStringLiteral("the stream is closed");
    return false;
  }
  readAhead_.clear();
  readAheadOffset_ = 0;
  if (!file_->seek(position)) {
    lastError_ = file_->errorString();
    return false;
  }
  return true;
}

}  // namespace velmar
