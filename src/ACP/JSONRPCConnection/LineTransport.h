#pragma once

#include "Platform/Async/Mailbox.h"

#include <string>

namespace veltry {

/// Lines without their terminators, in order.
using LineStream = Mailbox<std::string>;

/// A stream of lines to and from one peer. All is called on the executor that the transport was made with.
class LineTransport {
public:
    LineTransport() = default;
    LineTransport(const LineTransport&) = delete;
    LineTransport& operator=(const LineTransport&) = delete;
    virtual ~LineTransport() = default;

    /// Writes one line, given without its terminator, whole; resumes when it is written. Throws what made the write
    /// fail.
    [[nodiscard]] virtual asio::awaitable<void> send(std::string line) = 0;

    /// Sends the line at once if that takes no wait and nothing stands before it; false, and nothing done, where it
    /// must be sent the other way. Throws what made the write fail.
    [[nodiscard]] virtual bool sendIfPossible(std::string& /*line*/) { return false; }

    /// What comes in: the same stream at every call, for one reader. It ends with the input, or with its failure.
    [[nodiscard]] virtual LineStream& lines() = 0;

    /// Ends lines() and lets the peer see the end of its input. A second call does nothing.
    [[nodiscard]] virtual asio::awaitable<void> close() = 0;
};

} // namespace veltry
