#include "Platform/FileWatch.h"

#include "Platform/SystemError.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>

namespace veltry {

FileWatch::FileWatch(const std::filesystem::path& file)
    : changes_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)), wakeUp_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!wakeUp_)
        throw SystemError("could not make an event for the watch of " + file.string());
    // A user may have 128 inotify instances by default; the time-outs carry on without one.
    if (changes_ && ::inotify_add_watch(changes_.get(), file.c_str(), IN_MODIFY) < 0) {
        if (errno != ENOSPC)
            throw SystemError("could not watch " + file.string());
        changes_.reset();
    }
}

FileWatch::Event FileWatch::wait(std::chrono::milliseconds timeout)
{
    std::array<pollfd, 2> polled{
        pollfd{.fd = wakeUp_.get(), .events = POLLIN, .revents = 0},
        pollfd{.fd = changes_.get(), .events = POLLIN, .revents = 0}}; // poll passes over -1
    if (::poll(polled.data(), polled.size(), static_cast<int>(timeout.count())) <= 0)
        return Event::timedOut; // EINTR too: a look too many does no harm
    if (polled[0].revents != 0) {
        eventfd_t count = 0;
        ::eventfd_read(wakeUp_.get(), &count);
        return Event::woken;
    }
    // What they say is known: the one file changed.
    alignas(inotify_event) std::array<char, 4096> events;
    while (::read(changes_.get(), events.data(), events.size()) > 0) {
    }
    return Event::changed;
}

void FileWatch::wake() noexcept
{
    ::eventfd_write(wakeUp_.get(), 1);
}

} // namespace veltry
