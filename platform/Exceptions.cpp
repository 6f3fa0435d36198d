#include "platform/Exceptions.h"
#include "platform/MsgBox.h"

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

namespace {
MsgBoxHook& MsgHook() {
  static MsgBoxHook hook;
  return hook;
}
}  // namespace

void SetMsgBoxHook(MsgBoxHook hook) { MsgHook() = std::move(hook); }

void MsgBox(const QString& text) {
  if (MsgHook()) {
    MsgHook()(text);
    return;
  }
  std::fprintf(stderr, "%s\n", text.toUtf8().constData());
}

}  // namespace velmar
