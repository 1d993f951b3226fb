#include "Platform/FileLock.h"

#include "Platform/Files.h"
#include "Platform/OpenAt.h"
#include "Platform/SystemError.h"

#include <fcntl.h>
#include <sys/file.h>

#include <thread>

namespace veltry {

namespace {

constexpr int lockFlags = O_RDWR | O_CREAT;

/// Takes the lock if nobody holds it. Those who only ask hold it shared for an instant, and are no reason to give up: a
/// supervisor would never begin its run because another process looked at that moment.
bool lockUnlessHeld(const FileDescriptor& file) noexcept
{
    constexpr int attempts = 10'000; // each is lost to another asker
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (::flock(file.get(), LOCK_EX | LOCK_NB) == 0)
            return true;
        // Shared it can be had unless somebody holds it in earnest. Then only those who ask were in the way.
        if (::flock(file.get(), LOCK_SH | LOCK_NB) != 0)
            return false;
        ::flock(file.get(), LOCK_UN);
        std::this_thread::yield();
    }
    return false;
}

} // namespace

std::optional<FileLock> FileLock::tryTake(const std::filesystem::path& path)
{
    FileDescriptor file = openAt(AT_FDCWD, path.c_str(), lockFlags, 0644);
    if (!file || !lockUnlessHeld(file))
        return std::nullopt;
    return FileLock(std::move(file));
}

FileLock FileLock::take(const std::filesystem::path& path)
{
    return waitFor(openAt(AT_FDCWD, path.c_str(), lockFlags, 0644), path);
}

FileLock FileLock::takeFolder(const std::filesystem::path& path)
{
    return waitFor(openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY, 0), path);
}

FileLock FileLock::waitFor(FileDescriptor file, const std::filesystem::path& path)
{
    if (!file)
        throw SystemError("could not open " + path.string());
    while (::flock(file.get(), LOCK_EX) != 0)
        if (errno != EINTR)
            throw SystemError("could not lock " + path.string());
    return FileLock(std::move(file));
}

bool FileLock::isHeld(const std::filesystem::path& path) noexcept
{
    const FileDescriptor file = Files::tryOpen(path, Files::forReadingPlain);
    if (!file)
        return false;
    // Shared, so that two who ask at the same moment don't take each other for the holder.
    if (::flock(file.get(), LOCK_SH | LOCK_NB) != 0)
        return true;
    ::flock(file.get(), LOCK_UN);
    return false;
}

} // namespace veltry
