#pragma once
// One directory of a walked server tree: its files still to handle and a cursor over
// its subdirectories. Found in the session's DirList by its full path.
//
// The rules fix the order of a walk: files are fetched from the last listed to the first
// (GetNextFileName does not advance, DeleteFile does), and subdirectories are visited from
// the last listed to the first, each once. The ...Count operations return the last index.
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

  FTPDirectoryClass(const QString& name, const QString& parentName);

  void AddFile(const QString& name);
  // Removes the first entry equal to name (ignoring case), if any.
  void DeleteFile(const QString& name);
  // The last entry, which stays; empty when there is none.
  QString GetNextFileName() const;
  qint32 GetFileCount() const;
  // Appends, and puts the cursor on the new entry.
  void AddSubDirectory(const QString& path);
  qint32 GetSubDirectoryCount() const;
  // The entry at the cursor, which then moves down; empty below the first entry.
  QString GetNextSubDirectoryName();
  // Removes the first entry equal to path (ignoring case). The cursor is left as it was.
  void DeleteSubDirectory(const QString& path);
  QString GetCurrentSubDirectoryName() const;
  QString GetName() const { return Name; }
  QString GetParentDirectoryName() const { return ParentDirectory; }
};

}  // namespace velmar
