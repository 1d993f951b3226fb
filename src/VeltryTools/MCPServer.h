#pragma once

#include "ACP/JSONRPCConnection/JSONRPCConnection.h"
#include "VeltryTools/Tool.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace veltry {

/// The Model Context Protocol server for one agent. It answers `initialize`, `ping`, `tools/list` and `tools/call` and
/// keeps no state of the protocol: a tool's failure is a text in a normal result, and a JSON-RPC error means only that
/// the request itself was wrong. Notifications are ignored.
class MCPServer {
public:
    /// Gives what an agent is told at its start. Asked anew at each `initialize`, on the connection's executor.
    using Instructions = std::function<std::string()>;

    /// The tools are shown in this order.
    MCPServer(std::vector<Tool> tools, Instructions instructions)
        : tools_(std::move(tools)), instructions_(std::move(instructions))
    {
    }

    /// Serves the peer of `transport` on its executor and returns at once. `onEnd` runs when the input has ended; calls
    /// that wait then send no more notices.
    static std::shared_ptr<JSONRPCConnection> serve(
        MCPServer server, const asio::any_io_executor& executor, std::shared_ptr<LineTransport> transport,
        JSONRPCConnection::OnEnd onEnd);

private:
    using Reply = JSONRPCConnection::Reply;

    [[nodiscard]] Reply handle(
        const std::string& method, const JSONValue& params, const std::weak_ptr<JSONRPCConnection>& connection) const;
    [[nodiscard]] JSONValue toolList() const;
    [[nodiscard]] Reply callTool(const JSONValue& params, const std::weak_ptr<JSONRPCConnection>& connection) const;

    std::vector<Tool> tools_;
    Instructions instructions_;
};

} // namespace veltry
