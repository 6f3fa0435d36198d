#pragma once
// Hand-made yields to the one event loop, for long local work and for loops that wait.

namespace velmar {

// Lets the event loop deliver what is pending. Throttled to about once a millisecond,
// so a loop that yields per line or per file stays fast.
void Yield();

// Sleeps in the event loop until at least one event has been delivered (or about
// 100 ms have passed); for loops that wait on a condition without spinning a core.
void WaitForEvents();

}  // namespace velmar
