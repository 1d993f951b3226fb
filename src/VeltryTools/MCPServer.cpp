#include "VeltryTools/MCPServer.h"

#include <cmath>

namespace veltry {

namespace {

constexpr const char* serverName = "harrowick-veltry";
constexpr const char* serverVersion = "0.1.0";
constexpr const char* defaultProtocol = "2025-06-18";

/// Whatever version the client names is echoed: the four methods are the same in all of them.
JSONValue initializeResult(const JSONValue& params, std::string instructions)
{
    const JSONValue* version = params.find("protocolVersion");
    return JSONValue::object({
        {"protocolVersion", version ? *version : JSONValue(defaultProtocol)},
        {"capabilities", JSONValue::object({{"tools", JSONValue::object({})}})},
        {"serverInfo", JSONValue::object({{"name", serverName}, {"version", serverVersion}})},
        {"instructions", std::move(instructions)},
    });
}

JSONValue callResult(ToolOutcome outcome)
{
    // Member by member, since a list of initial values is copied: a tree's text may have megabytes.
    JSONValue::Object block{{"type", "text"}};
    block.emplace("text", std::move(outcome.text));
    JSONValue::Array content;
    content.emplace_back(std::move(block));
    JSONValue::Object result{{"isError", outcome.isError}};
    result.emplace("content", std::move(content));
    return result;
}

asio::awaitable<JSONValue> callResultOf(asio::awaitable<ToolOutcome> call)
{
    ToolOutcome outcome = co_await std::move(call);
    co_return callResult(std::move(outcome));
}

/// The token that the client wants its notices under: a text, or an integer that a double holds exactly, so that it
/// goes back as it came. Anything else counts as none.
std::optional<JSONValue> progressToken(const JSONValue& params)
{
    const JSONValue* meta = params.find("_meta");
    const JSONValue* token = meta ? meta->find("progressToken") : nullptr;
    if (!token)
        return std::nullopt;
    const double* number = token->number();
    constexpr double exactIntegers = 9007199254740992.0; // 2^53
    if (token->string() || (number && *number == std::trunc(*number) && std::abs(*number) < exactIntegers))
        return *token;
    return std::nullopt;
}

/// Notices go into the same queue as the call's answer, before it, so that none can follow it.
Progress progressFor(std::optional<JSONValue> token, std::weak_ptr<JSONRPCConnection> connection)
{
    if (!token)
        return {};
    return
        [token = std::move(*token), connection = std::move(connection), sent = 0](const std::string& message) mutable {
            const auto open = connection.lock();
            // The client may have gone while the tool waits.
            if (open && open->isOpen())
                open->notify(
                    "notifications/progress",
                    JSONValue::object({{"progressToken", token}, {"progress", ++sent}, {"message", message}}));
        };
}

} // namespace

std::shared_ptr<JSONRPCConnection> MCPServer::serve(
    MCPServer server, const asio::any_io_executor& executor, std::shared_ptr<LineTransport> transport,
    JSONRPCConnection::OnEnd onEnd)
{
    const auto shared = std::make_shared<const MCPServer>(std::move(server));
    const auto connection = JSONRPCConnection::make(executor, std::move(transport), false);
    const auto ignore = [](std::string /*method*/, JSONValue /*params*/) -> asio::awaitable<void> { co_return; };
    // Weakly, since the connection holds the handler. Whoever calls it holds the connection.
    const auto answer = [shared, weak = std::weak_ptr(connection)](const std::string& method, const JSONValue& params) {
        return shared->handle(method, params, weak);
    };
    connection->start(ignore, answer, std::move(onEnd));
    return connection;
}

MCPServer::Reply MCPServer::handle(
    const std::string& method, const JSONValue& params, const std::weak_ptr<JSONRPCConnection>& connection) const
{
    if (method == "initialize")
        return initializeResult(params, instructions_());
    if (method == "ping")
        return JSONValue::object({});
    if (method == "tools/list")
        return toolList();
    if (method == "tools/call")
        return callTool(params, connection);
    throw JSONRPCError::methodNotFound(method);
}

JSONValue MCPServer::toolList() const
{
    JSONValue::Array shown;
    for (const Tool& tool : tools_)
        shown.push_back(
            JSONValue::object({{"name", tool.name}, {"description", tool.description}, {"inputSchema", tool.schema}}));
    return JSONValue::object({{"tools", std::move(shown)}});
}

MCPServer::Reply MCPServer::callTool(const JSONValue& params, const std::weak_ptr<JSONRPCConnection>& connection) const
{
    const JSONValue* name = params.find("name");
    if (!name || !name->string())
        throw JSONRPCError::invalidParams("tools/call needs a name");
    // Clients leave the arguments of a tool out that takes none.
    static const JSONValue none = JSONValue::object({});
    const JSONValue* given = params.find("arguments");
    auto outcome = veltry::callTool(
        tools_, *name->string(), given ? *given : none, progressFor(progressToken(params), connection));
    if (auto* waiting = std::get_if<asio::awaitable<ToolOutcome>>(&outcome))
        return callResultOf(std::move(*waiting));
    return callResult(std::get<ToolOutcome>(std::move(outcome)));
}

} // namespace veltry
