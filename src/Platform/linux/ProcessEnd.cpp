#include "Platform/ProcessEnd.h"

#include <unistd.h>

#include <csignal>
#include <initializer_list>

namespace veltry::ProcessEnd {

static_assert(interrupt == SIGINT);

void leave(int status) noexcept
{
    ::_exit(status);
}

void ignoreBrokenPipes() noexcept
{
    std::signal(SIGPIPE, SIG_IGN);
}

void onRequest(void (*handler)(int signal)) noexcept
{
    struct sigaction action{};
    action.sa_handler = handler;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        ::sigaction(signal, &action, nullptr);
}

} // namespace veltry::ProcessEnd
