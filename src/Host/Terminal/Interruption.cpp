#include "Host/Terminal/Interruption.h"

#include "Platform/Leftover.h"
#include "Platform/ProcessEnd.h"
#include "Platform/StandardStreams.h"

#include <atomic>

namespace veltry::Interruption {

namespace {

// Read by the handler, which may do nothing that takes a lock.
std::atomic<const char*> undo = nullptr;
std::atomic<std::size_t> undoLength = 0;

void writeUndo()
{
    // Taken by whoever comes first, the handler or the object's end, so that it is written once.
    if (const char* sequence = undo.exchange(nullptr))
        StandardStreams::writeOnce(StandardStreams::output, {sequence, undoLength});
}

void end(int signal)
{
    writeUndo();
    // After the terminal is itself again, which can't fail.
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
    // Before the text, whose presence tells the handler that both are there.
    undoLength = sequence.size();
    undo = sequence.data();
}

Undo::~Undo()
{
    writeUndo();
}

} // namespace veltry::Interruption
