#pragma once

#include <chrono>
#include <string_view>

/// Ctrl-C. A command that doesn't handle it by itself ends at once with status 130, and the terminal as it was.
namespace veltry::Interruption {

/// Thrown by a command that handled the interrupt itself and has ended: exit status 130.
struct Interrupted {};

/// From here on an interrupt (also a hang-up and a request to end) writes what undo() holds and ends the process with
/// 128 and the signal's number. Called once, by the main thread.
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
