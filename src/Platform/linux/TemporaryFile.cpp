#include "Platform/TemporaryFile.h"

#include "Base/UUID.h"
#include "Platform/Files.h"
#include "Platform/OpenAt.h"
#include "Platform/SystemError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

namespace veltry {

namespace {

constexpr unsigned anyMode = 0666; // as far as the process's mask permits it
constexpr int folderFlags = O_PATH | O_DIRECTORY;

FileDescriptor openFolder(const std::filesystem::path& folder, const std::string& attempt)
{
    FileDescriptor opened = openAt(AT_FDCWD, folder.empty() ? "." : folder.c_str(), folderFlags);
    if (!opened)
        throw SystemError(attempt);
    return opened;
}

std::string toMakeIn(const std::filesystem::path& folder)
{
    return "could not make a file in " + folder.string();
}

std::string toWrite(const std::string& what)
{
    return "could not write " + what;
}

std::string hiddenName()
{
    return ".veltry-" + UUID::random().text();
}

/// A file without a name. No descriptor where the file system has no such thing, and where there would be no way to
/// name it later.
FileDescriptor openNameless(const FileDescriptor& folder, unsigned mode) noexcept
{
    if (::access("/proc/self/fd", X_OK) != 0)
        return FileDescriptor();
    return openAt(folder.get(), ".", O_TMPFILE | O_RDWR, mode);
}

bool link(const FileDescriptor& file, const FileDescriptor& folder, const std::string& name) noexcept
{
    const std::string open = "/proc/self/fd/" + std::to_string(file.get());
    return ::linkat(AT_FDCWD, open.c_str(), folder.get(), name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

/// The mode of a plain file in that folder. A set-user bit isn't for new contents, as write(2) has it.
std::optional<mode_t> permissionsOf(const FileDescriptor& folder, const std::string& name) noexcept
{
    struct stat status{};
    if (::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    return status.st_mode & 0777;
}

} // namespace

TemporaryFile::TemporaryFile(const std::filesystem::path& folder)
    : TemporaryFile(openFolder(folder, toMakeIn(folder)), anyMode, toMakeIn(folder))
{
}

TemporaryFile::TemporaryFile(FileDescriptor folder, unsigned mode, const std::string& attempt)
    : folder_(std::move(folder)), file_(openNameless(folder_, mode))
{
    if (file_)
        return;
    // Whatever stood in the way of the first, the second tells what is wrong with the folder.
    std::string name = hiddenName();
    file_ = openAt(folder_.get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL, mode);
    if (!file_)
        throw SystemError(attempt);
    name_ = std::move(name);
}

TemporaryFile::~TemporaryFile()
{
    if (!name_.empty())
        ::unlinkat(folder_.get(), name_.c_str(), 0);
}

void TemporaryFile::keep(const std::filesystem::path& target)
{
    keep(folderOf(target), target.filename(), toWrite(target));
}

void TemporaryFile::keep(const FileDescriptor& folder, const std::string& name, const std::string& attempt)
{
    // The bytes first: after a loss of power the name must not stand for an empty file.
    if (::fsync(file_.get()) != 0)
        throw SystemError(attempt);
    if (name_.empty()) {
        if (link(file_, folder, name))
            return;
        // A link can't take the place of a file that is there; a rename can, and needs a name to begin with.
        if (errno != EEXIST)
            throw SystemError(attempt);
        std::string hidden = hiddenName();
        if (!link(file_, folder_, hidden))
            throw SystemError(attempt);
        name_ = std::move(hidden);
    }
    if (::renameat(folder_.get(), name_.c_str(), folder.get(), name.c_str()) != 0)
        throw SystemError(attempt);
    name_.clear();
}

FileDescriptor TemporaryFile::folderOf(const std::filesystem::path& path)
{
    return openFolder(path.parent_path(), toWrite(path));
}

void TemporaryFile::replace(
    const FileDescriptor& folder, const std::string& name, std::string_view bytes, const std::string& what)
{
    const std::string attempt = toWrite(what);
    const std::optional<mode_t> permissions = permissionsOf(folder, name);
    // Nobody else may read what goes into a private file before it has that file's permissions.
    TemporaryFile file(folder.duplicate(), permissions ? 0600 : anyMode, attempt);
    Files::writeAll(file.file(), bytes, what);
    if (permissions && ::fchmod(file.file().get(), *permissions) != 0)
        throw SystemError(attempt);
    file.keep(folder, name, attempt);
}

} // namespace veltry
