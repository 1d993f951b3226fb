#pragma once

#include "Platform/FileDescriptor.h"

#include <string_view>

namespace veltry {

/// Output to a peer that may read slowly, by a descriptor that other processes may share and whose flags stay as they
/// are. One thread writes at a time. The process ignores broken pipes (ProcessEnd), so that a peer which went away
/// shows as a SystemError.
class SharedOutput {
public:
    /// Throws SystemError.
    explicit SharedOutput(FileDescriptor file);

    /// Writes at once if that can't block: little enough, and the peer has room for it. False where nothing was
    /// written. Throws SystemError.
    [[nodiscard]] bool writeIfPossible(std::string_view bytes) const;
    /// Writes all of it, and blocks while the peer takes nothing. False once stop() was called. Throws SystemError.
    bool writeAll(std::string_view bytes) const;

    /// Ends a writeAll() that goes on, and every one to come. May be called from any thread.
    void stop() noexcept;
    /// Not while another thread writes.
    void close() noexcept;

private:
    [[nodiscard]] bool waitForRoom() const;

    FileDescriptor file_;
    FileDescriptor unblocking_; // the same pipe without waiting; none for anything else
    FileDescriptor stopEvent_;
    bool isTerminal_;
};

} // namespace veltry
