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

void end(int signal)
{
    writeUndo();
    ::_exit(128 + signal);
}

} // namespace

void install()
{
    struct sigaction action{};
    action.sa_handler = &end;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        ::sigaction(signal, &action, nullptr);
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
