#pragma once
// Drives the event loop in tests: every wait is bounded in time.
#include <functional>

namespace velmar::test {

// Runs the event loop until `done` returns true or `timeoutMs` has passed; returns done().
bool RunUntil(const std::function<bool()>& done, int timeoutMs = 10000);
// Runs the event loop for `milliseconds`.
void RunFor(int milliseconds);

}  // namespace velmar::test
