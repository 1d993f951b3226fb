#include "Platform/StandardStreams.h"

#include "Platform/Files.h"
#include "Platform/SystemError.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace veltry::StandardStreams {

static_assert(input == STDIN_FILENO && output == STDOUT_FILENO && error == STDERR_FILENO);

FileDescriptor duplicate(int stream)
{
    return FileDescriptor::duplicateOf(stream);
}

std::string restOfInput()
{
    return Files::read(duplicate(input), "standard input");
}

bool writeAll(int stream, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(stream, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EPIPE) {
            return false;
        } else if (errno == EAGAIN) { // the other side may share the open file and have set it so
            pollfd ready{.fd = stream, .events = POLLOUT, .revents = 0};
            ::poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            throw SystemError("could not write the output");
        }
    }
    return true;
}

void writeOnce(int stream, std::string_view bytes) noexcept
{
    static_cast<void>(!::write(stream, bytes.data(), bytes.size()));
}

bool restWhileRead(int stream, std::chrono::milliseconds time) noexcept
{
    // No event is asked for: what poll() tells all the same is that the other end has gone.
    pollfd reader{.fd = stream, .events = 0, .revents = 0};
    return ::poll(&reader, 1, static_cast<int>(time.count())) <= 0;
}

bool isTerminal(int stream) noexcept
{
    return ::isatty(stream) != 0;
}

Size terminalSize(int stream) noexcept
{
    winsize size{};
    if (::ioctl(stream, TIOCGWINSZ, &size) != 0)
        return {};
    return {.columns = size.ws_col, .rows = size.ws_row};
}

} // namespace veltry::StandardStreams
