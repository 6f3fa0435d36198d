#pragma once
// Local files for transfer tests: reproducible contents, written and read back whole.
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QString>

#include <gtest/gtest.h>

namespace velmar::test {

// Bytes that differ from block to block, the same for the same seed.
inline QByteArray RandomBytes(qsizetype size, quint32 seed) {
  QRandomGenerator generator(seed);
  QByteArray bytes(size, Qt::Uninitialized);
  for (qsizetype i = 0; i < size; ++i) bytes[i] = static_cast<char>(generator.generate() & 0xff);
  return bytes;
}

// Writes a file, making its folders.
inline void WriteFile(const QString& path, const QByteArray& bytes) {
  QDir().mkpath(QFileInfo(path).path());
  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
  file.write(bytes);
}

inline QByteArray ReadFile(const QString& path) {
  QFile file(path);
  return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

}  // namespace velmar::test
