#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// Cuts a stream of bytes into lines, however its chunks are cut. A part of a line is kept until the rest has come, and
/// is scanned once, whatever the number of chunks it takes.
class LineSplitter {
public:
    /// The lines that this chunk completes, in order, without their line feeds.
    [[nodiscard]] std::vector<std::string> add(std::string_view chunk);

private:
    static constexpr std::size_t maximumIdleCapacity = 1 << 20;

    std::string buffer_;       // bytes after the last line feed
    std::size_t scanFrom_ = 0; // how many of them are known to hold no line feed
};

} // namespace veltry
