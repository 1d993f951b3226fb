#include "Platform/SharedOutput.h"

#include "Platform/StandardStreams.h"
#include "Platform/SystemError.h"

#include <climits>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>

namespace veltry {

namespace {

/// A pipe that has room at all has room for this much, so a blocking write of it doesn't block (pipe(7)).
constexpr std::size_t atomicSize = PIPE_BUF;

/// The same pipe as an open file of our own, which may be told not to block since nobody shares it. A poll before each
/// write of an answer was an eighth of what a ping took. None for what isn't a pipe, and where it can't be had.
FileDescriptor openedAnew(const FileDescriptor& file)
{
    struct stat facts{};
    if (::fstat(file.get(), &facts) != 0 || !S_ISFIFO(facts.st_mode))
        return FileDescriptor();
    const std::string path = "/proc/self/fd/" + std::to_string(file.get());
    return FileDescriptor(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
}

} // namespace

SharedOutput::SharedOutput(FileDescriptor file)
    : file_(std::move(file)), unblocking_(openedAnew(file_)), stopEvent_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      isTerminal_(StandardStreams::isTerminal(file_.get()))
{
    if (!stopEvent_)
        throw SystemError("could not make an event");
}

bool SharedOutput::writeIfPossible(std::string_view bytes) const
{
    // A terminal may stop taking bytes in the middle of a write.
    if (bytes.size() > atomicSize || isTerminal_)
        return false;
    if (!unblocking_) {
        pollfd polled{.fd = file_.get(), .events = POLLOUT, .revents = 0};
        if (::poll(&polled, 1, 0) != 1 || (polled.revents & POLLOUT) == 0)
            return false;
    }
    const ssize_t count = ::write((unblocking_ ? unblocking_ : file_).get(), bytes.data(), bytes.size());
    if (count == static_cast<ssize_t>(bytes.size()))
        return true;
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return false;
    if (count < 0)
        throw SystemError("could not write to the peer");
    // A disk that is nearly full took a part; writing the rest tells what is wrong.
    writeAll(bytes.substr(static_cast<std::size_t>(count)));
    return true;
}

bool SharedOutput::writeAll(std::string_view bytes) const
{
    while (!bytes.empty()) {
        if (!waitForRoom())
            return false;
        // In pieces that a pipe with room takes whole: a longer write would block where stop() can't reach it.
        const ssize_t count = ::write(file_.get(), bytes.data(), std::min(atomicSize, bytes.size()));
        if (count < 0 && errno != EINTR && errno != EAGAIN)
            throw SystemError("could not write to the peer");
        if (count > 0)
            bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

void SharedOutput::close() noexcept
{
    file_.reset();
    unblocking_.reset(); // or the peer would never see the end
}

void SharedOutput::stop() noexcept
{
    // Never read, so that it holds for every wait to come.
    ::eventfd_write(stopEvent_.get(), 1);
}

/// Blocks until the peer takes more; false once stop() was called.
bool SharedOutput::waitForRoom() const
{
    std::array<pollfd, 2> polled{
        pollfd{.fd = stopEvent_.get(), .events = POLLIN, .revents = 0},
        pollfd{.fd = file_.get(), .events = POLLOUT, .revents = 0}};
    while (::poll(polled.data(), polled.size(), -1) < 0)
        if (errno != EINTR)
            throw SystemError("could not wait for the peer");
    return polled[0].revents == 0;
}

} // namespace veltry
