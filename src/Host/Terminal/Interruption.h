#pragma once

#include <string_view>

/// Ctrl-C, a hang-up and the request to end. A command that doesn't handle them by itself ends at once, with the
/// terminal as it was, and by the signal itself: only so does a shell's loop end as well, and a shell begins a new
/// line.
namespace veltry::Interruption {

/// From here on such a signal writes what an Undo holds and ends the process. Called once, by the main thread.
void install();

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
