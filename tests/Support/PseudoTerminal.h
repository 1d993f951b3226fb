#pragma once

#include "Platform/ChildProcess.h"
#include "Platform/FileDescriptor.h"

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace veltry::test {

/// A program on a real pseudo-terminal of 80 columns and 24 rows, UTF-8 and with colours. Every wait ends after half a
/// minute.
class PseudoTerminal {
public:
    PseudoTerminal(
        const std::filesystem::path& program, const std::vector<std::string>& arguments,
        const ChildProcess::Environment& added = {}, const std::filesystem::path& directory = "/");
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;
    /// Ends the program, by force if need be.
    ~PseudoTerminal();

    /// Reads until `text` stands behind what the last call of this found; false at the end of the output or the time.
    [[nodiscard]] bool shows(std::string_view text);
    /// All that the program wrote so far; a line ends in "\r\n".
    [[nodiscard]] const std::string& output() const { return output_; }

    /// As if typed; "\003" is Ctrl-C.
    void type(std::string_view keys);

    /// Reads to the end and returns the exit number as ChildProcess::wait() gives it.
    [[nodiscard]] int wait();

private:
    [[nodiscard]] bool read();

    FileDescriptor master_;
    pid_t child_ = -1;
    std::string output_;
    std::size_t seen_ = 0;
};

} // namespace veltry::test
