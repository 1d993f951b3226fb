#pragma once

#include "Platform/FileDescriptor.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

/// Files and folders. Paths are absolute unless the caller wants the current directory. All may be called from any
/// thread; what fails throws SystemError, which names the path.
namespace veltry::Files {

/// Opens with open(2)'s flags, close-on-exec added.
[[nodiscard]] FileDescriptor open(const std::filesystem::path& path, int flags, unsigned mode = 0644);
/// The same; no descriptor where it fails, and errno tells why.
[[nodiscard]] FileDescriptor tryOpen(const std::filesystem::path& path, int flags, unsigned mode = 0644) noexcept;

/// The whole contents.
[[nodiscard]] std::string read(const std::filesystem::path& path);
/// The rest of an open file. `what` names it in the error.
[[nodiscard]] std::string read(const FileDescriptor& file, std::string_view what);
/// The whole contents, or nothing if the file can't be read for any reason.
[[nodiscard]] std::optional<std::string> readIfPossible(const std::filesystem::path& path);
/// Up to `count` bytes from `offset`; fewer only where the file ends.
[[nodiscard]] std::string readAt(const FileDescriptor& file, std::uint64_t offset, std::size_t count);
/// Fills `buffer` with the bytes from `offset` and returns how many came; fewer than it holds only where the file ends.
[[nodiscard]] std::size_t readInto(std::span<char> buffer, const FileDescriptor& file, std::uint64_t offset);
/// Size in bytes of an open file; 0 if it can't be found.
[[nodiscard]] std::uint64_t size(const FileDescriptor& file) noexcept;
/// True for an open plain file, as against a folder, a pipe or a device.
[[nodiscard]] bool isPlain(const FileDescriptor& file) noexcept;

/// Writes all of it, however many calls that takes. `what` names the file in the error.
void writeAll(const FileDescriptor& file, std::string_view bytes, std::string_view what);
/// Cuts an open file to `size` bytes; true if it could be done.
bool truncate(const FileDescriptor& file, std::uint64_t size) noexcept;
/// Replaces the contents in one step: a reader sees the old file or the new one, and a failure leaves the old one. The
/// mode of a file that is there is kept; a link is followed, and stays a link.
void writeAtomically(const std::filesystem::path& path, std::string_view bytes);

/// Makes the folder and those above it; one that is there is fine.
void createFolders(const std::filesystem::path& path);
/// Makes one folder; false if anything lies there already.
[[nodiscard]] bool createFolder(const std::filesystem::path& path);
/// True if anything lies there, also a link that leads nowhere.
[[nodiscard]] bool exists(const std::filesystem::path& path) noexcept;
[[nodiscard]] bool isFolder(const std::filesystem::path& path) noexcept;
/// True if we may execute it (access(2)).
[[nodiscard]] bool isExecutable(const std::filesystem::path& path) noexcept;

/// Moves within one file system, or by copying.
void move(const std::filesystem::path& from, const std::filesystem::path& to);
void copy(const std::filesystem::path& from, const std::filesystem::path& to);
/// Removes one file; true if it was there. A failure is not reported.
bool remove(const std::filesystem::path& path) noexcept;

} // namespace veltry::Files
