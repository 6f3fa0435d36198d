#pragma once
// A text file read line by line.
#include "platform/TextEncoding.h"

#include <QFile>
#include <QString>
#include <memory>

// <cstdio>'s macro EOF would swallow the method EOF(); see BinaryStream.h.
#include <cstdio>
#undef EOF

namespace velmar {

class TextInputStream {
public:
  // Takes a file open for reading.
  explicit TextInputStream(std::unique_ptr<QFile> file);
  ~TextInputStream();
  TextInputStream(const TextInputStream&) = delete;
  TextInputStream& operator=(const TextInputStream&) = delete;

  // The encoding of the file's bytes, UTF-8 unless set otherwise. A change applies to the
  // bytes not yet read from the file (the stream reads ahead in blocks of 64 KiB).
  TextEncoding Encoding = TextEncoding::UTF8();

  // The next line without its end (LF or CR LF); "" at the end. A lone CR stays in the text.
  QString ReadLine();
  // Everything not yet read, line ends as they are.
  QString ReadAll();
  // True when nothing is left to read, and on a closed stream.
  bool EOF();
  void Close();

  // The description of the last failed read, empty when none failed.
  QString LastError() const { return lastError_; }

private:
  // Decodes the next block of the file into text_; false when the file has nothing more.
  bool Fill();
  // Drops the part of text_ already handed out once it is large, so text_ stays small.
  void Compact();

  std::unique_ptr<QFile> file_;
  std::unique_ptr<TextDecoder> decoder_;
  TextEncoding decoderEncoding_;
  QString text_;        // decoded, not yet returned from text_.mid(consumed_)
  qsizetype consumed_ = 0;
  bool fileDone_ = false;
  QString lastError_;
};

}  // namespace velmar
