#pragma once

#include <string_view>
#include <vector>

/// Ctrl-C, a hang-up and the request to end. A command that doesn't handle them by itself ends at once, with the
/// terminal as it was, and by the signal itself: only so does a shell's loop end as well, and a shell begins a new
/// line.
namespace veltry::Interruption {

/// Thrown by a command that handled the signal itself and has cleaned up.
struct Interrupted {
    int signal;
};

/// Those of the three that our starter doesn't want ignored, as `nohup` does.
[[nodiscard]] std::vector<int> signals();

/// From here on such a signal writes what an Undo holds and ends the process. By the main thread.
void install();

/// Ends the process by that signal.
[[noreturn]] void end(int signal);

/// While it lives others handle the signals; then they end the process again.
class HandledElsewhere {
public:
    HandledElsewhere() = default;
    ~HandledElsewhere() { install(); }
    HandledElsewhere(const HandledElsewhere&) = delete;
    HandledElsewhere& operator=(const HandledElsewhere&) = delete;
};

/// While it lives, `sequence` is written to standard output when the process is interrupted, and when it is destroyed:
/// what brings a hidden cursor or the first screen back. One at a time; `sequence` is a literal.
class Undo {
public:
    explicit Undo(std::string_view sequence);
    ~Undo();
    Undo(const Undo&) = delete;
    Undo& operator=(const Undo&) = delete;
};

} // namespace veltry::Interruption
