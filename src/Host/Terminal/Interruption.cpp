#include "Host/Terminal/Interruption.h"

#include <unistd.h>

#include <atomic>
#include <csignal>

namespace veltry::Interruption {

namespace {

// Read by the handler, which may do nothing that takes a lock.
std::atomic<const char*> undo = nullptr;
std::atomic<std::size_t> undoLength = 0;

void writeUndo()
{
    if (const char* sequence = undo.exchange(nullptr))
        static_cast<void>(!::write(STDOUT_FILENO, sequence, undoLength));
}

void handle(int signal)
{
    end(signal);
}

} // namespace

std::vector<int> signals()
{
    std::vector<int> wanted;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction current{};
        if (::sigaction(signal, nullptr, &current) == 0 && current.sa_handler != SIG_IGN)
            wanted.push_back(signal);
    }
    return wanted;
}

void install()
{
    struct sigaction action{};
    action.sa_handler = &handle;
    for (const int signal : signals())
        ::sigaction(signal, &action, nullptr);
}

void end(int signal)
{
    writeUndo();
    std::signal(signal, SIG_DFL);
    sigset_t alone{}; // a handler runs with its own signal blocked
    ::sigemptyset(&alone);
    ::sigaddset(&alone, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &alone, nullptr);
    std::raise(signal);
    ::_exit(128 + signal); // whoever ignores it
}

Undo::Undo(std::string_view sequence)
{
    undoLength = sequence.size();
    undo = sequence.data();
}

Undo::~Undo()
{
    writeUndo();
}

} // namespace veltry::Interruption
