#pragma once

#include "Platform/ChildProcess.h"

#include <string>
#include <string_view>

namespace veltry {

/// Reads the variables out of what a shell prints, however that is cut into chunks.
///
/// In front may stand anything that profile scripts print. Then come the start marker between NUL bytes, the variables
/// as `env -0` prints them, each ended by a NUL byte, and the end marker. What stands in front is not kept, so a
/// profile that prints without end costs no memory.
class ShellEnvironmentReader {
public:
    static constexpr std::string_view startMarker = "__HARROWICK_VELTRY_ENV__";
    static constexpr std::string_view endMarker = "__HARROWICK_VELTRY_ENV_END__";

    void add(std::string_view chunk);

    /// Whether the end marker has come, anywhere in the output.
    [[nodiscard]] bool isComplete() const noexcept { return complete_; }

    /// The variables so far, with malformed UTF-8 repaired; of a name that came twice the later one. Throws
    /// ShellEnvironment::Failure if no start marker has come.
    [[nodiscard]] ChildProcess::Environment environment() const;

private:
    void extendPiece(std::string_view part);
    void endPiece();

    std::string piece_;       // what follows the last NUL byte
    bool pieceIsCut_ = false; // it was too long for the start marker, and only its end is kept
    bool started_ = false;
    bool complete_ = false;
    ChildProcess::Environment environment_;
};

} // namespace veltry
