#include "Host/Terminal/Interruption.h"

#include "Platform/Leftover.h"
#include "Platform/ProcessEnd.h"
#include "Platform/StandardStreams.h"
#include "Platform/TerminalInput.h"

#include <atomic>

namespace veltry::Interruption {

namespace {

// Read by the handler, which may do nothing that takes a lock.
std::atomic<const char*> undo = nullptr;
std::atomic<std::size_t> undoLength = 0;

void writeUndo()
{
    if (const char* sequence = undo.exchange(nullptr))
        StandardStreams::writeOnce(StandardStreams::output, {sequence, undoLength});
}

void end(int signal)
{
    writeUndo();
    TypedKeys::restore();
    Leftover::removeAll();
    ProcessEnd::leaveBy(signal);
}

} // namespace

void install()
{
    ProcessEnd::onRequest(&end);
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
