#pragma once

#include <vector>

/// How this process ends, and what it does when it is asked to.
namespace veltry::ProcessEnd {

/// The number of the signal that Ctrl-C sends. A shell counts a process that a signal ended as 128 and its number.
inline constexpr int interrupt = 2;

/// Ends the process at once: no destructor runs and nothing that is to run at exit. May be called by a signal's
/// handler.
[[noreturn]] void leave(int status) noexcept;

/// From here on a write that nobody reads any more fails, and doesn't end the process.
void ignoreBrokenPipes() noexcept;

/// Ends the process by that signal itself, so that a shell's loop ends as well and the shell begins a new line. May be
/// called by a signal's handler.
[[noreturn]] void leaveBy(int signal) noexcept;

/// An interrupt, a hang-up and a request to end, but for those that our starter wants ignored, as `nohup` does.
[[nodiscard]] std::vector<int> requests();

/// From here on those signals call `handler` with the signal's number, on any thread and in the middle of anything: it
/// may do nothing that takes a lock or memory. By the main thread.
void onRequest(void (*handler)(int signal));

/// One of those signals came while somebody was waited for, and all that this work held is cleaned up: thrown, so that
/// the program ends by leaveBy().
struct Requested {
    int signal;
};

/// While it lives others take those signals; then they go to the handler again.
class TakenElsewhere {
public:
    TakenElsewhere() = default;
    ~TakenElsewhere();
    TakenElsewhere(const TakenElsewhere&) = delete;
    TakenElsewhere& operator=(const TakenElsewhere&) = delete;
};

} // namespace veltry::ProcessEnd
