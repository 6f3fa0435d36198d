#pragma once
// One line of a directory listing, parsed: a plain record. A line that fits no form comes
// back with neither kind flag set; that is how a line is rejected.
#include <QString>

namespace velmar {

class FTPParsedDirListLineClass {
public:
  // Fields, in declared order.
  QString Name;
  bool IsDir = false;
  bool IsFile = false;  // both flags: a symbolic link
  qint32 Size = 0;
  QString ModTime;
  QString ModDate;
  QString Permissions;
};

}  // namespace velmar
