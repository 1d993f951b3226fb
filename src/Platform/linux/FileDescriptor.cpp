#include "Platform/FileDescriptor.h"

#include "Platform/SystemError.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace veltry {

namespace {

constexpr int firstFree = STDERR_FILENO + 1;

/// Where a standard stream was closed at the start, the system gives out its number, and a redirection in a child would
/// overwrite the pipe.
FileDescriptor aboveStandard(FileDescriptor fd)
{
    if (fd.get() >= firstFree)
        return fd;
    return fd.duplicate();
}

} // namespace

void FileDescriptor::reset(int fd) noexcept
{
    if (const int old = std::exchange(fd_, fd); old >= 0)
        // Not once more after EINTR: Linux has freed the number by then, and another thread may have it.
        ::close(old);
}

FileDescriptor FileDescriptor::duplicateOf(int fd)
{
    FileDescriptor copy(::fcntl(fd, F_DUPFD_CLOEXEC, firstFree));
    if (!copy)
        throw SystemError("could not duplicate a descriptor");
    return copy;
}

Pipe Pipe::make()
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        throw SystemError("could not make a pipe");
    FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    return {aboveStandard(std::move(reading)), aboveStandard(std::move(writing))};
}

} // namespace veltry
