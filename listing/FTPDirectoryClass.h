#pragma once
// One directory of a walked server tree: its files still to handle and a cursor over
// its subdirectories. Found in the session's DirList by its full path.
#include <QString>
#include <QStringList>

namespace velmar {

class FTPDirectoryClass {
public:
  // Fields, in declared order.
  QStringList Files;
  QString Name;
  QStringList SubDirectories;
  qint32 CurrentSubDirectory = -1;
  QString ParentDirectory;

  FTPDirectoryClass(const QString& name, const QString& parentName)
      : Name(name), CurrentSubDirectory(static_cast<qint32>(SubDirectories.size()) - 1), ParentDirectory(parentName) {}
};

}  // namespace velmar
