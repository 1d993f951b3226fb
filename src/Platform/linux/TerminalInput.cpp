#include "Platform/TerminalInput.h"

#include "Platform/StandardStreams.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <thread>

namespace veltry {

namespace {

termios before; // set before isChanged, and read by a handler after it
std::atomic<bool> isChanged = false;

} // namespace

InterruptIgnored::InterruptIgnored() : before_(std::signal(SIGINT, SIG_IGN)) {}

InterruptIgnored::~InterruptIgnored()
{
    if (before_ != SIG_ERR)
        std::signal(SIGINT, before_);
}

TypedKeys::TypedKeys()
{
    // In the background a change would stop us.
    if (::tcgetpgrp(StandardStreams::input) != ::getpgrp() || ::tcgetattr(StandardStreams::input, &before) != 0)
        return;
    termios each = before;
    each.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    each.c_cc[VMIN] = 1;
    each.c_cc[VTIME] = 0;
    isChanged = true;
    isOpen_ = ::tcsetattr(StandardStreams::input, TCSADRAIN, &each) == 0;
}

TypedKeys::~TypedKeys()
{
    restore();
}

std::string TypedKeys::read(std::chrono::milliseconds longest)
{
    if (!isOpen_) {
        std::this_thread::sleep_for(longest);
        return "";
    }
    pollfd keys{.fd = StandardStreams::input, .events = POLLIN, .revents = 0};
    if (::poll(&keys, 1, static_cast<int>(longest.count())) <= 0)
        return "";
    char typed[64];
    const ssize_t count = ::read(StandardStreams::input, typed, sizeof typed);
    if (count > 0)
        return {typed, static_cast<std::size_t>(count)};
    isOpen_ = count < 0 && errno == EINTR; // the terminal is gone: no key will come
    return "";
}

void TypedKeys::restore() noexcept
{
    if (isChanged.exchange(false))
        ::tcsetattr(StandardStreams::input, TCSANOW, &before);
}

} // namespace veltry
