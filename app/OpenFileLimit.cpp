#include "app/OpenFileLimit.h"

#include <QFile>

#include <sys/resource.h>

namespace velmar {

qint64 OpenFileLimit::Current() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return -1;
  return limit.rlim_cur == RLIM_INFINITY ? -1 : static_cast<qint64>(limit.rlim_cur);
}

qint64 OpenFileLimit::Raise() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return -1;
  rlim_t wanted = limit.rlim_max;
  // An unlimited hard limit cannot be the soft limit of open files: the kernel's ceiling is.
  if (wanted == RLIM_INFINITY) {
    QFile ceiling(QStringLiteral("/proc/sys/fs/nr_open"));
    bool ok = false;
    const qint64 value = ceiling.open(QIODevice::ReadOnly) ? ceiling.readAll().trimmed().toLongLong(&ok) : 0;
    wanted = ok && value > 0 ? static_cast<rlim_t>(value) : 1048576;
  }
  if (wanted > limit.rlim_cur) {
    limit.rlim_cur = wanted;
    ::setrlimit(RLIMIT_NOFILE, &limit);
  }
  return Current();
}

}  // namespace velmar
