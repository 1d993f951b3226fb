#pragma once

#include "Platform/FileDescriptor.h"

#include <filesystem>
#include <optional>

namespace veltry {

/// An exclusive lock on a file, shared by processes, which the kernel drops when its holder ends, however it ends. It
/// is held as long as the object lives. The file is made if it isn't there, stays empty and is never removed.
class FileLock {
public:
    /// Takes it or gives nothing at once, if the file can't be opened or another holds the lock.
    [[nodiscard]] static std::optional<FileLock> tryTake(const std::filesystem::path& path);

    /// Waits until it is free. Throws SystemError if the file can't be opened.
    [[nodiscard]] static FileLock take(const std::filesystem::path& path);

    /// The same on a folder that is there. Nothing is made in it.
    [[nodiscard]] static FileLock takeFolder(const std::filesystem::path& path);

    /// True if some process holds the lock now. What isn't a plain file, or can't be opened
    /// for reading, counts as free.
    [[nodiscard]] static bool isHeld(const std::filesystem::path& path) noexcept;

private:
    static FileLock waitFor(FileDescriptor file, const std::filesystem::path& path);
    explicit FileLock(FileDescriptor file) noexcept : file_(std::move(file)) {}
    FileDescriptor file_; // closing it frees the lock
};

} // namespace veltry
