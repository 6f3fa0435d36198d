#include "listing/FTPDirectoryClass.h"

#include "platform/Exceptions.h"
#include "platform/Strings.h"

namespace velmar {

namespace {

void RemoveFirstEqual(QStringList& list, const QString& entry) {
  for (qsizetype i = 0; i < list.size(); ++i) {
    if (Same(list[i], entry)) {
      list.removeAt(i);
      return;
    }
  }
}

qint32 LastIndex(const QStringList& list) { return static_cast<qint32>(list.size()) - 1; }

}  // namespace

FTPDirectoryClass::FTPDirectoryClass(const QString& name, const QString& parentName)
    : Name(name), CurrentSubDirectory(LastIndex(SubDirectories)), ParentDirectory(parentName) {}

void FTPDirectoryClass::AddFile(const QString& name) { Files.append(name); }

void FTPDirectoryClass::DeleteFile(const QString& name) { RemoveFirstEqual(Files, name); }

QString FTPDirectoryClass::GetNextFileName() const { return Files.isEmpty() ? QString() : Files.last(); }

qint32 FTPDirectoryClass::GetFileCount() const { return LastIndex(Files); }

void FTPDirectoryClass::AddSubDirectory(const QString& path) {
  SubDirectories.append(path);
  CurrentSubDirectory = LastIndex(SubDirectories);
}

qint32 FTPDirectoryClass::GetSubDirectoryCount() const { return LastIndex(SubDirectories); }

QString FTPDirectoryClass::GetNextSubDirectoryName() {
  if (CurrentSubDirectory < 0) return QString();
  // A delete may have left the cursor past the end: the bounds check raises then.
  const QString name = At(SubDirectories, CurrentSubDirectory);
  CurrentSubDirectory -= 1;
  return name;
}

void FTPDirectoryClass::DeleteSubDirectory(const QString& path) { RemoveFirstEqual(SubDirectories, path); }

QString FTPDirectoryClass::GetCurrentSubDirectoryName() const {
  if (CurrentSubDirectory < 0) return QString();
  return At(SubDirectories, CurrentSubDirectory);
}

}  // namespace velmar
