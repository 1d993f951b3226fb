#pragma once

#include "Platform/FileDescriptor.h"

#include <filesystem>

namespace veltry {

/// A new file that goes away unless it is kept.
///
/// Where the file system can, it has no name until then, so that it goes away also when the process is killed;
/// elsewhere it lies in its folder under a hidden name.
class TemporaryFile {
public:
    /// Opens one for reading and writing; it will be kept in `folder` or in one on the same file system. Throws
    /// SystemError.
    explicit TemporaryFile(const std::filesystem::path& folder);
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile();

    [[nodiscard]] const FileDescriptor& file() const noexcept { return file_; }

    /// Gives it its name, in place of a file that lies there. Throws SystemError, and then it is still temporary.
    void keep(const std::filesystem::path& target);

private:
    FileDescriptor file_;
    std::filesystem::path name_; // empty where it has none
};

} // namespace veltry
