#include "Platform/FolderRoot.h"

#include "Platform/Files.h"
#include "Platform/OpenAt.h"
#include "Platform/SystemError.h"
#include "Platform/TemporaryFile.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace veltry {

namespace {

constexpr int folderFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW;

/// The folder at the end of a relative path, by a walk that follows no link.
FileDescriptor walk(const FileDescriptor& start, const std::filesystem::path& path) noexcept
{
    FileDescriptor folder = openAt(start.get(), ".", folderFlags);
    for (const std::filesystem::path& part : path) {
        if (!folder)
            break;
        if (part == "..") {
            errno = EXDEV; // as the system says it
            return FileDescriptor();
        }
        folder = openAt(folder.get(), part.c_str(), folderFlags);
    }
    return folder;
}

/// The same by one call of the system, where it has that and permits it.
FileDescriptor openBeneath(const FileDescriptor& start, const std::filesystem::path& path) noexcept
{
    open_how how{};
    how.flags = folderFlags | O_CLOEXEC;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    const char* name = path.empty() ? "." : path.c_str();
    long fd = -1;
    do
        fd = ::syscall(SYS_openat2, start.get(), name, &how, sizeof how);
    while (fd < 0 && errno == EINTR);
    // An older kernel lacks the call, and the filter of a container may refuse it.
    if (fd < 0 && (errno == ENOSYS || errno == EPERM))
        return walk(start, path);
    return FileDescriptor(static_cast<int>(fd));
}

/// The longest leading part of the path at which something lies, and the rest.
std::pair<std::string, std::string> splitAtMissing(const std::string& path)
{
    std::string there = path;
    struct stat status{};
    // Not stat: a link that leads nowhere lies there too, and mustn't pass for a name that is free.
    while (!there.empty() && ::lstat(there.c_str(), &status) != 0)
        there.resize(there.find_last_of('/'));
    return {there.empty() ? "/" : there, path.substr(there.size())};
}

} // namespace

std::optional<FolderRoot> FolderRoot::open(const std::filesystem::path& folder)
{
    std::error_code error;
    std::filesystem::path resolved = std::filesystem::canonical(folder, error);
    if (error)
        return std::nullopt;
    FileDescriptor opened = openBeneath(openAt(AT_FDCWD, "/", folderFlags), resolved.relative_path());
    if (!opened)
        return std::nullopt;
    return FolderRoot(std::move(resolved), std::move(opened));
}

std::optional<std::filesystem::path> FolderRoot::placeOf(const std::filesystem::path& path) const
{
    if (!path.is_absolute())
        return std::nullopt;
    const auto [there, missing] = splitAtMissing(path.string());
    std::error_code error;
    const std::filesystem::path found = std::filesystem::canonical(there, error);
    if (error)
        return std::nullopt;
    const std::string resolved = (found == "/" ? "" : found.string()) + missing;
    const std::string root = resolved_.string() + "/";
    if (!resolved.starts_with(root) || resolved.size() == root.size())
        return std::nullopt;
    return resolved.substr(root.size());
}

std::string FolderRoot::read(const std::filesystem::path& place) const
{
    const std::string what = (resolved_ / place).string();
    const FileDescriptor folder = openBeneath(folder_, place.parent_path());
    if (!folder)
        throw SystemError("could not open " + what);
    FileDescriptor opened =
        openAt(folder.get(), place.filename().c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW);
    const FileDescriptor file = opened ? onlyPlain(std::move(opened)) : FileDescriptor();
    if (!file)
        throw SystemError("could not open " + what);
    return Files::read(file, what);
}

void FolderRoot::writeAtomically(const std::filesystem::path& place, std::string_view bytes) const
{
    const std::string what = (resolved_ / place).string();
    const FileDescriptor folder = openBeneath(folder_, place.parent_path());
    if (!folder)
        throw SystemError("could not write " + what);
    const std::string name = place.filename();
    // The rename would put a plain file in the place of a link, a pipe or a device.
    struct stat old{};
    if (::fstatat(folder.get(), name.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISREG(old.st_mode))
        throw SystemError(
            "could not write " + what, S_ISDIR(old.st_mode)   ? EISDIR
                                       : S_ISLNK(old.st_mode) ? ELOOP
                                                              : ENOTSUP);
    TemporaryFile::replace(folder, name, bytes, what);
}

} // namespace veltry
