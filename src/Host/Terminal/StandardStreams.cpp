#include "Host/Terminal/StandardStreams.h"

#include "Platform/SystemError.h"

#include <fcntl.h>
#include <unistd.h>

namespace veltry::StandardStreams {

namespace {

FileDescriptor duplicate(int descriptor, const char* what)
{
    FileDescriptor copy(::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!copy)
        throw SystemError(what);
    return copy;
}

} // namespace

FileDescriptor input()
{
    return duplicate(STDIN_FILENO, "could not use standard input");
}

FileDescriptor output()
{
    return duplicate(STDOUT_FILENO, "could not use standard output");
}

} // namespace veltry::StandardStreams
