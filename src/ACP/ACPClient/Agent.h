#pragma once

#include "ACP/JSONRPCConnection/LineTransport.h"

#include <cstdint>
#include <memory>

namespace veltry {

/// The agent at the other end, as a client needs it: a stream of lines, and its end. All is called on the executor that
/// its transport was made with.
class Agent {
public:
    Agent() = default;
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;
    virtual ~Agent() = default;

    /// The same at every call.
    [[nodiscard]] virtual std::shared_ptr<LineTransport> transport() = 0;

    /// Resumes with the exit status once the agent has ended, at once if it has; any number of callers may wait.
    /// Who waits doesn't hold the agent, and need not.
    [[nodiscard]] virtual asio::awaitable<std::int32_t> waitForExit() = 0;
};

} // namespace veltry
