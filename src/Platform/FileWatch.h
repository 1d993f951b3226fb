#pragma once

#include "Platform/FileDescriptor.h"

#include <chrono>
#include <filesystem>

namespace veltry {

/// Tells one thread that a file has grown or changed.
///
/// A watch is a hint and never a promise: network file systems tell nothing, and a system that has run out of watches
/// gives one that only ever times out. So the waiting thread looks at the file after a time-out as well.
class FileWatch {
public:
    /// The file must exist. Throws SystemError.
    explicit FileWatch(const std::filesystem::path& file);

    enum class Event { changed, woken, timedOut };
    /// Blocks until the file changed since the last call, wake() was called, or the time is over.
    [[nodiscard]] Event wait(std::chrono::milliseconds timeout);

    /// Ends the wait that goes on, or else the next one. May be called from any thread.
    void wake() noexcept;

private:
    FileDescriptor changes_; // no descriptor where the system has no watch to give
    FileDescriptor wakeUp_;
};

} // namespace veltry
