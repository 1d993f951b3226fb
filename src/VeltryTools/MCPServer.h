#pragma once

#include "ACP/JSONRPCConnection/JSONRPCConnection.h"
#include "VeltryTools/LabTools.h"
#include "VeltryTools/PaperTools.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace veltry {

/// The Model Context Protocol server for one agent. It answers `initialize`, `ping`, `tools/list` and `tools/call` and
/// keeps no state of the protocol: a tool's failure is a text in a normal result, and a JSON-RPC error means only that
/// the request itself was wrong. Notifications are ignored.
class MCPServer {
public:
    /// `openAlexKey` is the person's key of the literature service. `knowsComputer` tells that `veltry` attached the
    /// client: the instructions then end with the Computer, else with the Machine.
    MCPServer(
        Lab lab, std::optional<UUID> conversation, std::optional<std::filesystem::path> settings,
        std::optional<std::string> openAlexKey, bool knowsComputer = false);

    /// Serves the peer of `transport` on its executor and returns at once. `onEnd` runs when the input has ended; calls
    /// that wait then send no more notices. The server also reaps the supervisors that it starts.
    static std::shared_ptr<JSONRPCConnection> serve(
        MCPServer server, const asio::any_io_executor& executor, std::shared_ptr<LineTransport> transport,
        JSONRPCConnection::OnEnd onEnd);

    LabTools tools;
    PaperTools papers;

private:
    [[nodiscard]] std::string instructions() const;
    [[nodiscard]] asio::awaitable<JSONValue> handle(
        std::string method, JSONValue params, std::weak_ptr<JSONRPCConnection> connection) const;
    [[nodiscard]] asio::awaitable<JSONValue> callTool(
        JSONValue params, std::weak_ptr<JSONRPCConnection> connection) const;

    bool knowsComputer_;
    std::set<std::string, std::less<>> paperTools_; // the names that go to `papers`
};

} // namespace veltry
