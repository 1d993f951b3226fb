#include "ACP/ACPClient/ACPClient.h"

#include "Platform/SystemLog.h"

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/post.hpp>
#include <asio/this_coro.hpp>

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

namespace veltry {

namespace {

constexpr const char* clientName = "harrowick-veltry";
constexpr const char* clientVersion = "0.0.0"; // of a program that is no bundle

void logFailure(const std::string& message)
{
    SystemLog::write(SystemLog::Level::error, "acp", message);
}

asio::awaitable<void> close(std::shared_ptr<LineTransport> transport)
{
    co_await transport->close();
}

std::optional<std::vector<std::string>> directories(const SessionSetup& setup)
{
    if (setup.additionalDirectories.empty())
        return std::nullopt;
    return std::vector<std::string>(setup.additionalDirectories.begin(), setup.additionalDirectories.end());
}

std::optional<SystemPrompt> systemPrompt(const SessionSetup& setup)
{
    return setup.systemPrompt ? std::optional(SystemPrompt::appending(*setup.systemPrompt)) : std::nullopt;
}

/// Holds the connection, not the client, which may go before the answer comes.
template <typename Result>
asio::awaitable<Result> request(std::shared_ptr<JSONRPCConnection> connection, std::string method, JSONValue params)
{
    const JSONValue result = co_await connection->request(std::move(method), std::move(params));
    co_return decoded<Result>(result);
}

asio::awaitable<void> sendCancel(std::shared_ptr<JSONRPCConnection> connection, std::string sessionId)
{
    // The answers to its asks go out first: their tasks stand before this turn in the executor's queue.
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    co_await asio::post(executor, asio::use_awaitable);
    try {
        connection->notify("session/cancel", encoded(CancelParams{std::move(sessionId)}));
    } catch (const std::exception& error) {
        logFailure("could not send session/cancel: " + describe(error));
    }
}

} // namespace

std::shared_ptr<ACPClient> ACPClient::make(
    const asio::any_io_executor& executor, std::shared_ptr<Agent> agent, std::weak_ptr<ACPClientDelegate> delegate,
    bool logsTraffic)
{
    return std::shared_ptr<ACPClient>(new ACPClient(executor, std::move(agent), std::move(delegate), logsTraffic));
}

ACPClient::ACPClient(
    const asio::any_io_executor& executor, std::shared_ptr<Agent> agent, std::weak_ptr<ACPClientDelegate> delegate,
    bool logsTraffic)
    : executor_(executor), agent_(std::move(agent)),
      connection_(JSONRPCConnection::make(executor, agent_->transport(), logsTraffic)), delegate_(std::move(delegate))
{
}

ACPClient::~ACPClient()
{
    cancelAsks(std::nullopt);
    // The task holds the transport alone: client and agent are gone when it runs.
    asio::co_spawn(executor_, close(agent_->transport()), asio::detached);
}

asio::awaitable<InitializeResult> ACPClient::initialize()
{
    if (!std::exchange(started_, true))
        start();
    JSONValue params = encoded(InitializeParams::from({.name = clientName, .version = clientVersion}));
    std::string method = "initialize";
    co_return co_await request<InitializeResult>(connection_, std::move(method), std::move(params));
}

void ACPClient::start()
{
    // All of these hold nothing: the connection lives in the client, and its handlers would keep both alive for ever.
    const std::weak_ptr<ACPClient> client = weak_from_this();
    const std::weak_ptr<JSONRPCConnection> connection = connection_;
    const std::weak_ptr<Agent> agent = agent_;
    connection_->start(
        [client](std::string method, JSONValue params) {
            return notified(client, std::move(method), std::move(params));
        },
        [client](const std::string& method, JSONValue params) { return asked(client, method, std::move(params)); },
        [client, connection, agent] { return failOnExit(client, connection, agent); });
    // Also beside the end of input, which a child of the agent may put off.
    asio::co_spawn(executor_, failOnExit(client, connection, agent), asio::detached);
}

asio::awaitable<void> ACPClient::failOnExit(
    std::weak_ptr<ACPClient> client, std::weak_ptr<JSONRPCConnection> connection, std::weak_ptr<Agent> agent)
{
    // The wait doesn't hold the agent, so that its owner can drop it and end it meanwhile.
    asio::awaitable<std::int32_t> exit;
    if (const auto running = agent.lock())
        exit = running->waitForExit();
    else
        co_return;
    const std::int32_t status = co_await std::move(exit);
    // The requests fail first, with the agent's status; nobody is left whom the answers to its questions could reach.
    if (const auto open = connection.lock())
        open->fail(ConnectionError::agentExited(status));
    if (const auto self = client.lock())
        self->cancelAsks(std::nullopt); // nobody is there to be told
}

asio::awaitable<void> ACPClient::authenticate(std::string methodId)
{
    JSONValue params = encoded(AuthenticateParams{std::move(methodId)});
    std::string method = "authenticate";
    co_await connection_->request(std::move(method), std::move(params));
}

asio::awaitable<std::string> ACPClient::newSession(SessionSetup setup)
{
    const std::weak_ptr<ACPClient> client = weak_from_this();
    JSONValue params = encoded(NewSessionParams{
        .cwd = setup.cwd,
        .mcpServers = setup.mcpServers,
        .additionalDirectories = directories(setup),
        .systemPrompt = systemPrompt(setup),
    });
    std::string method = "session/new";
    NewSessionResult result = co_await request<NewSessionResult>(connection_, std::move(method), std::move(params));
    // From here on the agent may ask for files of the session, whose roots have to be known.
    if (const auto self = client.lock())
        self->remember(result.sessionId, std::move(setup), std::move(result.configOptions));
    co_return result.sessionId;
}

asio::awaitable<void> ACPClient::resumeSession(std::string sessionId, SessionSetup setup)
{
    return continueSession("session/resume", std::move(sessionId), std::move(setup));
}

asio::awaitable<void> ACPClient::loadSession(std::string sessionId, SessionSetup setup)
{
    return continueSession("session/load", std::move(sessionId), std::move(setup));
}

asio::awaitable<void> ACPClient::continueSession(const char* method, std::string sessionId, SessionSetup setup)
{
    const std::weak_ptr<ACPClient> client = weak_from_this();
    JSONValue params = encoded(ResumeSessionParams{
        .sessionId = sessionId,
        .cwd = setup.cwd,
        .mcpServers = setup.mcpServers,
        .additionalDirectories = directories(setup),
        .systemPrompt = systemPrompt(setup),
    });
    std::string name = method;
    ResumeSessionResult result = co_await request<ResumeSessionResult>(connection_, std::move(name), std::move(params));
    if (const auto self = client.lock())
        self->remember(sessionId, std::move(setup), std::move(result.configOptions));
}

void ACPClient::remember(const std::string& sessionId, SessionSetup setup, std::vector<ConfigOption> configOptions)
{
    std::vector<std::filesystem::path> roots = std::move(setup.additionalDirectories);
    roots.insert(roots.begin(), std::move(setup.cwd));
    roots_.insert_or_assign(sessionId, std::move(roots));
    options_.insert_or_assign(sessionId, std::move(configOptions));
}

asio::awaitable<std::vector<SessionInfo>> ACPClient::listSessions(std::filesystem::path cwd)
{
    const std::shared_ptr<JSONRPCConnection> connection = connection_;
    std::vector<SessionInfo> sessions;
    // An agent that names a page again would be asked for ever.
    std::set<std::string> seen;
    ListSessionsParams page{.cwd = std::move(cwd), .cursor = std::nullopt};
    do {
        std::string method = "session/list";
        JSONValue params = encoded(page);
        ListSessionsResult result =
            co_await request<ListSessionsResult>(connection, std::move(method), std::move(params));
        std::ranges::move(result.sessions, std::back_inserter(sessions));
        page.cursor = std::move(result.nextCursor);
    } while (page.cursor && seen.insert(*page.cursor).second);
    if (page.cursor)
        logFailure("session/list names the page " + *page.cursor + " for the second time");
    co_return sessions;
}

std::vector<ConfigOption> ACPClient::configOptions(const std::string& sessionId) const
{
    const auto found = options_.find(sessionId);
    return found == options_.end() ? std::vector<ConfigOption>() : found->second;
}

asio::awaitable<std::vector<ConfigOption>> ACPClient::setConfigOption(
    std::string sessionId, std::string id, std::string value)
{
    const std::weak_ptr<ACPClient> client = weak_from_this();
    JSONValue params =
        encoded(SetConfigOptionParams{.sessionId = sessionId, .configId = std::move(id), .value = std::move(value)});
    std::string method = "session/set_config_option";
    SetConfigOptionResult result =
        co_await request<SetConfigOptionResult>(connection_, std::move(method), std::move(params));
    if (const auto self = client.lock())
        self->options_.insert_or_assign(sessionId, result.configOptions);
    co_return result.configOptions;
}

asio::awaitable<StopReason> ACPClient::prompt(std::string sessionId, std::string text)
{
    return prompt(std::move(sessionId), std::vector{ContentBlock::text(std::move(text))});
}

asio::awaitable<StopReason> ACPClient::prompt(std::string sessionId, std::vector<ContentBlock> content)
{
    JSONValue params = encoded(PromptParams{.sessionId = std::move(sessionId), .prompt = std::move(content)});
    std::string method = "session/prompt";
    PromptResult result = co_await request<PromptResult>(connection_, std::move(method), std::move(params));
    co_return result.stopReason;
}

asio::awaitable<SteerOutcome> ACPClient::steer(std::string sessionId, std::vector<ContentBlock> content)
{
    JSONValue params = encoded(SteerParams::from(std::move(sessionId), std::move(content)));
    std::string method = "_session/steering";
    const SteerResult result = co_await request<SteerResult>(connection_, std::move(method), std::move(params));
    // An agent that answers with a word of its own has taken the message.
    co_return result.outcome == "promptRequired" ? SteerOutcome::promptRequired : SteerOutcome::injected;
}

asio::awaitable<void> ACPClient::cancel(std::string sessionId)
{
    cancelAsks(sessionId);
    return sendCancel(connection_, std::move(sessionId));
}

} // namespace veltry
