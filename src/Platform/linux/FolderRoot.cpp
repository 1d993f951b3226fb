#include "Platform/FolderRoot.h"

#include "Base/UUID.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace veltry {

namespace {

constexpr int folderFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// One step down, to a name in a folder. No descriptor where it fails, and errno tells why.
FileDescriptor openAt(const FileDescriptor& folder, const std::string& name, int flags, unsigned mode = 0) noexcept
{
    int fd = -1;
    do
        fd = ::openat(folder.get(), name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, mode);
    while (fd < 0 && errno == EINTR);
    return FileDescriptor(fd);
}

/// The folder at the end of a relative path, by a walk that follows no link.
FileDescriptor walk(const FileDescriptor& start, const std::filesystem::path& path) noexcept
{
    FileDescriptor folder = openAt(start, ".", folderFlags);
    for (const std::filesystem::path& part : path) {
        if (!folder)
            break;
        if (part == "..") {
            errno = EXDEV; // as the system says it
            return FileDescriptor();
        }
        folder = openAt(folder, part.string(), folderFlags);
    }
    return folder;
}

/// The same by one call of the system, where it has that and permits it.
FileDescriptor openBeneath(const FileDescriptor& start, const std::filesystem::path& path) noexcept
{
    open_how how{};
    how.flags = folderFlags;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    const char* name = path.empty() ? "." : path.c_str();
    long fd = -1;
    do
        fd = ::syscall(SYS_openat2, start.get(), name, &how, sizeof how);
    while (fd < 0 && errno == EINTR);
    if (fd < 0 && (errno == ENOSYS || errno == EPERM))
        return walk(start, path);
    return FileDescriptor(static_cast<int>(fd));
}

/// A file beside `target` that takes its place by commit(), and goes away otherwise. All by names in an open folder.
class Replacement {
public:
    Replacement(FileDescriptor folder, std::string target)
        : folder_(std::move(folder)), target_(std::move(target)), name_(".veltry-" + UUID::random().text())
    {
        struct stat old{};
        if (::fstatat(folder_.get(), target_.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0) {
            if (!S_ISREG(old.st_mode))
                throw SystemError(attempt(), S_ISDIR(old.st_mode) ? EISDIR : S_ISLNK(old.st_mode) ? ELOOP : ENOTSUP);
            mode_ = old.st_mode & 0777; // a set-user bit isn't for new contents, as write(2) has it
        }
        file_ = openAt(folder_, name_, O_WRONLY | O_CREAT | O_EXCL, mode_ ? 0600 : 0666);
        if (!file_)
            throw SystemError(attempt());
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;
    ~Replacement()
    {
        if (file_)
            ::unlinkat(folder_.get(), name_.c_str(), 0);
    }

    void write(std::string_view bytes) { Files::writeAll(file_, bytes, target_); }

    void commit()
    {
        if ((mode_ && ::fchmod(file_.get(), *mode_) != 0) || ::fsync(file_.get()) != 0 ||
            ::renameat(folder_.get(), name_.c_str(), folder_.get(), target_.c_str()) != 0)
            throw SystemError(attempt());
        file_.reset();
    }

private:
    std::string attempt() const { return "could not write " + target_; }

    FileDescriptor folder_;
    std::string target_;
    std::string name_;
    std::optional<mode_t> mode_; // of a file that is there; otherwise the process's mask decides
    FileDescriptor file_;
};

/// The longest leading part of the path at which something lies, and the rest.
std::pair<std::string, std::string> splitAtMissing(const std::string& path)
{
    std::string there = path;
    struct stat status{};
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
    FileDescriptor opened = openBeneath(Files::tryOpen("/", O_PATH | O_DIRECTORY), resolved.relative_path());
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
    const FileDescriptor file = openAt(folder, place.filename(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (!file)
        throw SystemError("could not open " + what);
    struct stat status{};
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        throw SystemError("could not read " + what, S_ISDIR(status.st_mode) ? EISDIR : ENOTSUP);
    return Files::read(file, what);
}

void FolderRoot::writeAtomically(const std::filesystem::path& place, std::string_view bytes) const
{
    FileDescriptor folder = openBeneath(folder_, place.parent_path());
    if (!folder)
        throw SystemError("could not write " + (resolved_ / place).string());
    Replacement replacement(std::move(folder), place.filename());
    replacement.write(bytes);
    replacement.commit();
}

} // namespace veltry
