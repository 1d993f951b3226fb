#include "Platform/FileLock.h"

#include "Platform/Files.h"
#include "Platform/SystemError.h"

#include <fcntl.h>
#include <sys/file.h>

namespace veltry {

std::optional<FileLock> FileLock::tryTake(const std::filesystem::path& path)
{
    FileDescriptor file = Files::tryOpen(path, O_RDWR | O_CREAT);
    if (!file || ::flock(file.get(), LOCK_EX | LOCK_NB) != 0)
        return std::nullopt;
    return FileLock(std::move(file));
}

FileLock FileLock::take(const std::filesystem::path& path)
{
    FileDescriptor file = Files::open(path, O_RDWR | O_CREAT);
    while (::flock(file.get(), LOCK_EX) != 0)
        if (errno != EINTR)
            throw SystemError("could not lock " + path.string());
    return FileLock(std::move(file));
}

bool FileLock::isHeld(const std::filesystem::path& path) noexcept
{
    const FileDescriptor file = Files::tryOpen(path, O_RDONLY);
    if (!file)
        return false;
    // Shared, so that two who ask at the same moment don't take each other for the holder.
    if (::flock(file.get(), LOCK_SH | LOCK_NB) != 0)
        return true;
    ::flock(file.get(), LOCK_UN);
    return false;
}

} // namespace veltry
