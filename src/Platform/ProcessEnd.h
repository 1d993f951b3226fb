#pragma once

/// How this process ends, and what it does when it is asked to.
namespace veltry::ProcessEnd {

/// The number of the signal that Ctrl-C sends. A shell counts a process that a signal ended as 128 and its number.
inline constexpr int interrupt = 2;

/// Ends the process at once: no destructor runs and nothing that is to run at exit. May be called by a signal's
/// handler.
[[noreturn]] void leave(int status) noexcept;

/// From here on a write that nobody reads any more fails, and doesn't end the process.
void ignoreBrokenPipes() noexcept;

/// From here on an interrupt, a hang-up and a request to end call `handler` with the signal's number, on any thread and
/// in the middle of anything: it may do nothing that takes a lock or memory.
void onRequest(void (*handler)(int signal)) noexcept;

} // namespace veltry::ProcessEnd
