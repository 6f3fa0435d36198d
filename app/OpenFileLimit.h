#pragma once
// Every dropped item has a session with a control and a data connection of its own, so a
// large drop needs far more descriptors than the usual soft limit of 1024.
#include <QtGlobal>

namespace velmar {

class OpenFileLimit {
public:
  // Raises the soft limit of open files to the hard limit; returns the soft limit now in
  // force (-1 when it cannot be read).
  static qint64 Raise();
  static qint64 Current();
};

}  // namespace velmar
