#include "Platform/ProcessEnd.h"

#include <unistd.h>

#include <csignal>
#include <initializer_list>

namespace veltry::ProcessEnd {

namespace {

void (*lastHandler)(int signal) = nullptr;

} // namespace

static_assert(interrupt == SIGINT);

void leave(int status) noexcept
{
    // Not exit(), which runs the clean-up of libraries beside their threads.
    ::_exit(status);
}

void ignoreBrokenPipes() noexcept
{
    // A write to a peer that has gone then fails where it is made and doesn't end the process.
    std::signal(SIGPIPE, SIG_IGN);
}

void leaveBy(int signal) noexcept
{
    // By the signal itself, so that whoever started us sees in our status what ended us.
    std::signal(signal, SIG_DFL);
    sigset_t alone{}; // a handler runs with its own signal blocked
    ::sigemptyset(&alone);
    ::sigaddset(&alone, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &alone, nullptr);
    ::raise(signal);
    leave(128 + signal); // one that doesn't end processes
}

std::vector<int> requests()
{
    std::vector<int> wanted;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        // What was ignored when we were started stays ignored: nohup asks for that.
        struct sigaction current{};
        if (::sigaction(signal, nullptr, &current) == 0 && current.sa_handler != SIG_IGN)
            wanted.push_back(signal);
    }
    return wanted;
}

void onRequest(void (*handler)(int signal))
{
    lastHandler = handler;
    struct sigaction action{};
    action.sa_handler = handler;
    for (const int signal : requests())
        ::sigaction(signal, &action, nullptr);
}

TakenElsewhere::~TakenElsewhere()
{
    if (lastHandler)
        onRequest(lastHandler);
}

} // namespace veltry::ProcessEnd
