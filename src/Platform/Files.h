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

/// What a file is opened for. A file that is made gets mode 0644, as far as the process's mask permits it.
enum class Purpose {
    forReading,      ///< whatever is there; at a named pipe it waits for a writer
    forReadingPlain, ///< a plain file alone, and never waits: whatever else others may have put there is refused
    forWriting,      ///< what is there, a device too, from its end on; never waits: a pipe without a reader is refused
    forAppending,    ///< from the file's end on; one that isn't there is made
    forReplacing,    ///< the same, without the old contents
};
using enum Purpose;

[[nodiscard]] FileDescriptor open(const std::filesystem::path& path, Purpose purpose);
/// The same; no descriptor where it fails, and errno tells why.
[[nodiscard]] FileDescriptor tryOpen(const std::filesystem::path& path, Purpose purpose) noexcept;

/// The whole contents.
[[nodiscard]] std::string read(const std::filesystem::path& path);
/// The rest of an open file. `what` names it in the error.
[[nodiscard]] std::string read(const FileDescriptor& file, std::string_view what);
/// The whole contents, or nothing if the file can't be read for any reason.
[[nodiscard]] std::optional<std::string> readIfPossible(const std::filesystem::path& path);
/// The first `count` bytes of a plain file; all of it if it has fewer. Nothing for anything else, whoever put it there,
/// and for what can't be read. Never waits, so a reader asks for one byte more than it takes to see what is too long.
[[nodiscard]] std::optional<std::string> readStart(const std::filesystem::path& path, std::size_t count);
/// Up to `count` bytes from `offset`; fewer only where the file ends.
[[nodiscard]] std::string readAt(const FileDescriptor& file, std::uint64_t offset, std::size_t count);
/// Fills `buffer` with the bytes from `offset` and returns how many came; fewer than it holds only where the file ends.
[[nodiscard]] std::size_t readInto(std::span<char> buffer, const FileDescriptor& file, std::uint64_t offset);
/// Size in bytes of an open file; 0 if it can't be found.
[[nodiscard]] std::uint64_t size(const FileDescriptor& file) noexcept;

/// Writes all of it, however many calls that takes. `what` names the file in the error.
void writeAll(const FileDescriptor& file, std::string_view bytes, std::string_view what);
/// Cuts an open file to `size` bytes; true if it could be done.
bool truncate(const FileDescriptor& file, std::uint64_t size) noexcept;
/// Replaces the contents in one step: a reader sees the old file or the new one, and a failure leaves the old one. The
/// permissions of a file that is there are kept; for a new one the process's mask decides. A link is followed, and
/// stays a link, unless it leads nowhere. A device is refused.
void writeAtomically(const std::filesystem::path& path, std::string_view bytes);

/// Makes the folder and those above it; one that is there is fine.
void createFolders(const std::filesystem::path& path);
/// The same; those that it makes are for their owner alone (mode 0700).
void createPrivateFolders(const std::filesystem::path& path);
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
