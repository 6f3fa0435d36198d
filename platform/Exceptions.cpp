#include "platform/Exceptions.h"

#include <cstdio>

namespace velmar {

namespace {
ExceptionHook& Hook() {
  static ExceptionHook hook;
  return hook;
}
}  // namespace

void SetExceptionHook(ExceptionHook hook) { Hook() = std::move(hook); }

void ReportException(const QString& description) {
  if (Hook()) {
    Hook()(description);
    return;
  }
  std::fprintf(stderr, "exception: %s\n", description.toUtf8().constData());
}

}  // namespace velmar
