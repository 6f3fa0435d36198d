#pragma once
// Drives the event loop in tests: every wait is bounded in time.
#include <ctime>
#include <functional>

namespace velmar::test {

// Runs the event loop until `done` returns true or `timeoutMs` has passed; returns done().
bool RunUntil(const std::function<bool()>& done, int timeoutMs = 10000);
// Runs the event loop for `milliseconds`.
void RunFor(int milliseconds);
// The processor time of this process so far, to tell a wait that sleeps from one that spins.
inline double CpuSeconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

}  // namespace velmar::test
