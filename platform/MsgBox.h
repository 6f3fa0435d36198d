#pragma once
// The framework's message box as a hook: the app shows a modal box, the shell prints a line.
#include <QString>
#include <functional>

namespace velmar {

using MsgBoxHook = std::function<void(const QString& text)>;
void SetMsgBoxHook(MsgBoxHook hook);
void MsgBox(const QString& text);

}  // namespace velmar
