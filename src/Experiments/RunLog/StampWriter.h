#pragma once

#include "Experiments/RunLog/Stamp.h"
#include "Platform/FileDescriptor.h"
#include "Platform/Files.h"

#include <exception>
#include <filesystem>
#include <string>

namespace veltry::RunLog {

/// Takes records and writes them to a side file in pieces, so that any number of them costs the same memory.
///
/// A failure to write doesn't interrupt whoever scans the log: the records of that piece are lost, and the file is cut
/// to whole ones, since half a record would shift all that follow out of their places.
class StampWriter {
public:
    /// Appends to the side file or replaces what it holds; makes it if it isn't there. Throws SystemError.
    explicit StampWriter(const std::filesystem::path& sideFile, Files::Purpose purpose = Files::forAppending);

    /// Writes too, when enough came together.
    void add(const Stamp& stamp);
    /// Writes what is held.
    void flush() noexcept;

    /// Throws the first failure to write, a SystemError, if there was one.
    void throwFailure() const;

private:
    FileDescriptor file_;
    std::string name_;
    std::string held_;
    std::exception_ptr failure_;
};

} // namespace veltry::RunLog
