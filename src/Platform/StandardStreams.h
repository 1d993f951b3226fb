#pragma once

#include "Platform/FileDescriptor.h"

#include <chrono>
#include <string>
#include <string_view>

/// The descriptors that a process gets from whoever starts it, and what may lie there: a terminal, a pipe, a file.
/// Their flags stay as they are, since other processes may share them. Any other descriptor of ours may be given as
/// well.
namespace veltry::StandardStreams {

inline constexpr int input = 0;
inline constexpr int output = 1;
inline constexpr int error = 2;

/// A descriptor of its own on the same open file. Throws SystemError.
[[nodiscard]] FileDescriptor duplicate(int stream);

/// What is left of standard input, to its end, which it waits for. Throws SystemError.
[[nodiscard]] std::string restOfInput();

/// Writes all of it and waits for whoever reads slowly. False if nobody reads any more. Throws SystemError for any
/// other failure.
[[nodiscard]] bool writeAll(int stream, std::string_view bytes);
/// Writes in one call, so that lines of several processes with one log don't mix. Whatever fails is not reported. May
/// be called by a signal's handler.
void writeOnce(int stream, std::string_view bytes) noexcept;

/// Lets the time pass. False as soon as nobody reads any more.
[[nodiscard]] bool restWhileRead(int stream, std::chrono::milliseconds time) noexcept;

[[nodiscard]] bool isTerminal(int stream) noexcept;

struct Size {
    std::size_t columns, rows;
    friend bool operator==(const Size&, const Size&) = default;
};
/// The size of the terminal there, as it is now; zeros if it doesn't tell.
[[nodiscard]] Size terminalSize(int stream) noexcept;

} // namespace veltry::StandardStreams
