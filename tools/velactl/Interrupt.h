// Ctrl-C. Where velactl waits on purpose (listen, a callback, await, sleep) SIGINT ends the
// wait and the command cleans up and answers kExitInterrupted; anywhere else, a library call
// blocked on a vanished service for instance, velactl leaves at once with that code.
#pragma once

namespace velactl {

// Once, at start.
void installInterruptHandler();

// While one lives, SIGINT is noted for interrupted() instead of ending the process.
class InterruptScope {
public:
    InterruptScope();
    ~InterruptScope();
    InterruptScope(const InterruptScope&) = delete;
    InterruptScope& operator=(const InterruptScope&) = delete;
};

// SIGINT arrived since the outermost InterruptScope began.
bool interrupted();

// Says so on stderr and leaves with kExitInterrupted; async-signal-safe, for handlers.
[[noreturn]] void leaveInterrupted();

}  // namespace velactl
