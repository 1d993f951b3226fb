#pragma once

#include "Platform/FileDescriptor.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace veltry {

/// A new file that goes away unless it is kept: the one way to put a file in another's place.
///
/// Where the file system can, it has no name until then, so that it goes away also when the process is killed;
/// elsewhere it lies in its folder under a hidden name.
class TemporaryFile {
public:
    /// Opens one for reading and writing; it will be kept in `folder` or in one on the same file system. The process's
    /// mask decides on its permissions. Throws SystemError.
    explicit TemporaryFile(const std::filesystem::path& folder);
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile();

    [[nodiscard]] const FileDescriptor& file() const noexcept { return file_; }

    /// Brings it to the disk and gives it its name, in one step also where a file lies there. A link that lies there is
    /// replaced itself. Throws SystemError, and then it is still temporary.
    void keep(const std::filesystem::path& target);

    /// The folder in which `path` lies, open for replace(). Throws SystemError.
    [[nodiscard]] static FileDescriptor folderOf(const std::filesystem::path& path);
    /// Replaces the contents of a file in an open folder in one step, or makes the file; follows no link. A plain
    /// file's permissions are kept. `what` names the file in the SystemError that it throws, and then nothing has
    /// changed.
    static void replace(
        const FileDescriptor& folder, const std::string& name, std::string_view bytes, const std::string& what);

private:
    TemporaryFile(FileDescriptor folder, unsigned mode, const std::string& attempt);

    void keep(const FileDescriptor& folder, const std::string& name, const std::string& attempt);

    FileDescriptor folder_;
    FileDescriptor file_;
    std::string name_; // in folder_; empty where it has none
};

} // namespace veltry
