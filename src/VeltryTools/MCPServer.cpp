#include "VeltryTools/MCPServer.h"

#include "Config/VeltrySettings.h"
#include "Experiments/Computer.h"
#include "Experiments/Machine.h"
#include "Experiments/Playbook.h"
#include "Literature/OpenAlex.h"
#include "Platform/ChildProcess.h"
#include "Platform/SystemError.h"

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>

#include <cmath>

namespace veltry {

namespace {

constexpr const char* serverName = "harrowick-veltry";
constexpr const char* serverVersion = "0.1.0";
constexpr const char* defaultProtocol = "2025-06-18";

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

JSONValue toolList()
{
    JSONValue::Array shown;
    for (const std::vector<Tool>* table : {&LabTools::tools(), &PaperTools::tools()})
        for (const Tool& tool : *table)
            shown.push_back(JSONValue::object(
                {{"name", tool.name}, {"description", tool.description}, {"inputSchema", tool.schema}}));
    return JSONValue::object({{"tools", std::move(shown)}});
}

JSONValue callResult(ToolOutcome outcome)
{
    JSONValue block = JSONValue::object({{"type", "text"}, {"text", std::move(outcome.text)}});
    return JSONValue::object({{"content", JSONValue::array({std::move(block)})}, {"isError", outcome.isError}});
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
            if (open && open->isOpen())
                open->notify(
                    "notifications/progress",
                    JSONValue::object({{"progressToken", token}, {"progress", ++sent}, {"message", message}}));
        };
}

/// Waits for one child and takes its status, so that no zombie stays behind.
asio::awaitable<void> reap(asio::any_io_executor executor, pid_t child)
{
    asio::posix::stream_descriptor ended(executor, ChildProcess::exitEvent(child).release());
    asio::error_code ignored; // whatever ended the wait, the look below is harmless
    co_await ended.async_wait(
        asio::posix::stream_descriptor::wait_read, asio::redirect_error(asio::use_awaitable, ignored));
    ChildProcess::reapIfEnded(child);
}

} // namespace

MCPServer::MCPServer(
    Lab lab, std::optional<UUID> conversation, std::optional<std::filesystem::path> settings,
    std::optional<std::string> openAlexKey, bool knowsComputer)
    : tools{.lab = lab, .conversation = conversation, .settings = std::move(settings)},
      papers{
          .store = lab.store,
          .search =
              std::make_shared<const OpenAlex>([key = std::move(openAlexKey)] { return key; }, HTTPSession::shared()),
          .files = PaperFiles::beside(lab.store->path()),
          .lab = std::move(lab)},
      knowsComputer_(knowsComputer)
{
    for (const Tool& tool : PaperTools::tools())
        paperTools_.insert(tool.name);
}

std::shared_ptr<JSONRPCConnection> MCPServer::serve(
    MCPServer server, const asio::any_io_executor& executor, std::shared_ptr<LineTransport> transport,
    JSONRPCConnection::OnEnd onEnd)
{
    server.tools.lab.adopt = [executor](pid_t supervisor) {
        asio::co_spawn(executor, reap(executor, supervisor), asio::detached);
    };
    const auto shared = std::make_shared<const MCPServer>(std::move(server));
    const auto connection = JSONRPCConnection::make(executor, std::move(transport), false);
    const auto ignore = [](std::string /*method*/, JSONValue /*params*/) -> asio::awaitable<void> { co_return; };
    const auto answer = [shared, weak = std::weak_ptr(connection)](std::string method, JSONValue params) {
        return shared->handle(std::move(method), std::move(params), weak);
    };
    connection->start(ignore, answer, std::move(onEnd));
    return connection;
}

asio::awaitable<JSONValue> MCPServer::handle(
    std::string method, JSONValue params, std::weak_ptr<JSONRPCConnection> connection) const
{
    if (method == "initialize")
        co_return initializeResult(params, instructions());
    if (method == "ping")
        co_return JSONValue::object({});
    if (method == "tools/list")
        co_return toolList();
    if (method == "tools/call") {
        asio::awaitable<JSONValue> call = callTool(std::move(params), std::move(connection));
        co_return co_await std::move(call);
    }
    throw JSONRPCError::methodNotFound(method);
}

std::string MCPServer::instructions() const
{
    if (!knowsComputer_)
        return Playbook::instructions(Machine::current());
    const VeltrySettings settings = tools.settings ? VeltrySettings::load(*tools.settings) : VeltrySettings();
    const auto python =
        tools.settings ? LoginPython::read(LoginPython::file(*tools.settings)) : std::optional<LoginPython>();
    const Computer computer = Computer::current(tools.lab.runsFolder, tools.settings ? settings.maxRuns : 0, python);
    return Playbook::instructions(computer);
}

asio::awaitable<JSONValue> MCPServer::callTool(JSONValue params, std::weak_ptr<JSONRPCConnection> connection) const
{
    const JSONValue* name = params.find("name");
    if (!name || !name->string())
        throw JSONRPCError::invalidParams("tools/call needs a name");
    const JSONValue* given = params.find("arguments");
    JSONValue arguments = given ? *given : JSONValue::object({});
    asio::awaitable<ToolOutcome> call =
        paperTools_.contains(*name->string())
            ? papers.call(*name->string(), std::move(arguments))
            : tools.call(
                  *name->string(), std::move(arguments), progressFor(progressToken(params), std::move(connection)));
    ToolOutcome outcome = co_await std::move(call);
    co_return callResult(std::move(outcome));
}

} // namespace veltry
