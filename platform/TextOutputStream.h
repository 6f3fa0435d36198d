#pragma once
// A text file written line by line.
#include "platform/TextEncoding.h"

#include <QFile>
#include <QString>
#include <memory>

namespace velmar {

class TextOutputStream {
public:
  // Takes a file open for writing.
  explicit TextOutputStream(std::unique_ptr<QFile> file);
  ~TextOutputStream();
  TextOutputStream(const TextOutputStream&) = delete;
  TextOutputStream& operator=(const TextOutputStream&) = delete;

  // The encoding the text is written in, UTF-8 unless set otherwise; applies to each write.
  TextEncoding Encoding = TextEncoding::UTF8();

  // The text followed by LF.
  bool WriteLine(const QString& text);
  // The text as it is. False (with LastError) when not every byte could be written, also on a
  // closed stream, which is otherwise left alone.
  bool Write(const QString& text);
  // Writes what is still buffered and closes; false when that failed.
  bool Close();
  bool IsOpen() const;

  // The description of the last failure, empty when none failed.
  QString LastError() const { return lastError_; }

private:
  std::unique_ptr<QFile> file_;
  QString lastError_;
};

}  // namespace velmar
