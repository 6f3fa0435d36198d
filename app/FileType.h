#pragma once
// A kind of file that a window accepts for drops. The code "????" in MacType or MacCreator
// means no restriction; Extensions lists endings such as "txt" (empty: any ending).
#include <QString>
#include <QStringList>

namespace velmar {

class FolderItem;

class FileType {
public:
  QString Name;
  QStringList Extensions;
  QString MacType;
  QString MacCreator;

  // True when the local item is of this type. A type without restrictions takes every file
  // and every folder. This platform has no type or creator codes: a type that names one
  // other than "????" takes nothing.
  bool Accepts(const FolderItem& item) const;
};

}  // namespace velmar
