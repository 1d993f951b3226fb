#pragma once

#include "ACP/ACPClient/Agent.h"
#include "ACP/ACPClient/Handshake.h"
#include "ACP/ACPClient/Permissions.h"
#include "ACP/ACPClient/Prompts.h"
#include "ACP/ACPClient/SessionUpdates.h"
#include "ACP/ACPClient/Sessions.h"
#include "ACP/JSONRPCConnection/JSONRPCConnection.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace veltry {

/// What a person should see or decide. Called on the client's executor.
class ACPClientDelegate {
public:
    ACPClientDelegate() = default;
    ACPClientDelegate(const ACPClientDelegate&) = delete;
    ACPClientDelegate& operator=(const ACPClientDelegate&) = delete;
    virtual ~ACPClientDelegate() = default;

    /// In the order of arrival. The next message isn't read until it returns, so it must not wait for an answer of the
    /// agent. What it throws is logged.
    [[nodiscard]] virtual asio::awaitable<void> receive(SessionNotification notification) = 0;

    /// May wait for a person as long as it takes. What it throws is logged and counts as cancelled.
    [[nodiscard]] virtual asio::awaitable<PermissionOutcome> decidePermission(RequestPermissionParams request) = 0;
};

/// Where a session works and what it is given. Paths are absolute; all of them are open to the agent's file requests.
struct SessionSetup {
    std::filesystem::path cwd;
    std::vector<std::filesystem::path> additionalDirectories{};
    std::vector<McpServerStdio> mcpServers{};
    std::optional<std::string> systemPrompt{}; ///< appended to the agent's own
};

/// The client's side of the Agent Client Protocol, version 1: drives one agent over one connection.
///
/// It belongs to one serial executor, on which everything is called. Operations may run at once; each suspends at its
/// own request, and the client may go meanwhile. They throw what the connection reports: ConnectionError (of
/// the exit status, once the agent has ended), the JSONRPCError that the agent answered (isAuthRequired() says that
/// authenticate() is due), or DecodingFailure for a result that doesn't read. What an agent can do says its
/// InitializeResult; nothing is checked here before it is sent.
///
/// The agent is answered permission requests through the delegate, and reads and writes text files inside the folders
/// of its sessions. A client that goes away cancels what is asked and closes the agent's input; ending the process is
/// its owner's affair.
class ACPClient : public std::enable_shared_from_this<ACPClient> {
public:
    /// Sends nothing. `executor` is that of the agent's transport; with `logsTraffic` every line goes to the system
    /// log. Without a delegate permissions are cancelled and updates dropped.
    [[nodiscard]] static std::shared_ptr<ACPClient> make(
        const asio::any_io_executor& executor, std::shared_ptr<Agent> agent, std::weak_ptr<ACPClientDelegate> delegate,
        bool logsTraffic);
    ACPClient(const ACPClient&) = delete;
    ACPClient& operator=(const ACPClient&) = delete;
    ~ACPClient();

    /// Comes first: until it is called a request waits. A second call asks the agent again.
    [[nodiscard]] asio::awaitable<InitializeResult> initialize();
    [[nodiscard]] asio::awaitable<void> authenticate(std::string methodId);

    /// The new session's id.
    [[nodiscard]] asio::awaitable<std::string> newSession(SessionSetup setup);
    /// Goes on with a session without its history.
    [[nodiscard]] asio::awaitable<void> resumeSession(std::string sessionId, SessionSetup setup);
    /// Goes on with a session; the agent sends its history as updates first.
    [[nodiscard]] asio::awaitable<void> loadSession(std::string sessionId, SessionSetup setup);
    /// All pages, in the order received. They end where the agent names a page for the second time.
    [[nodiscard]] asio::awaitable<std::vector<SessionInfo>> listSessions(std::filesystem::path cwd);

    /// As the agent last returned them; none for a session that isn't known. A `SessionUpdate::ConfigOptions` goes to
    /// the delegate alone.
    [[nodiscard]] std::vector<ConfigOption> configOptions(const std::string& sessionId) const;
    /// The session's new list.
    [[nodiscard]] asio::awaitable<std::vector<ConfigOption>> setConfigOption(
        std::string sessionId, std::string id, std::string value);

    /// One turn: resumes when it has ended. Every update that the agent sent before has been delivered by then.
    [[nodiscard]] asio::awaitable<StopReason> prompt(std::string sessionId, std::string text);
    [[nodiscard]] asio::awaitable<StopReason> prompt(std::string sessionId, std::vector<ContentBlock> content);
    /// Says something in the middle of a turn.
    [[nodiscard]] asio::awaitable<SteerOutcome> steer(std::string sessionId, std::vector<ContentBlock> content);
    /// Cancels what the session's turn asks the person, then the turn. prompt() goes on waiting for the agent's answer.
    /// A failure to send is logged. The client may go before it is awaited.
    [[nodiscard]] asio::awaitable<void> cancel(std::string sessionId);

private:
    using Decision = Mailbox<PermissionOutcome>;

    struct PermissionAsk {
        std::string sessionId;
        std::shared_ptr<Decision> decision;
    };

    /// A method that the agent may call. The client may go while it runs.
    struct Method {
        const char* name;
        asio::awaitable<JSONValue> (*answer)(std::weak_ptr<ACPClient> client, JSONValue params);
    };
    static const Method methods[];

    ACPClient(
        const asio::any_io_executor& executor, std::shared_ptr<Agent> agent, std::weak_ptr<ACPClientDelegate> delegate,
        bool logsTraffic);

    void start();
    [[nodiscard]] static asio::awaitable<void> failOnExit(
        std::weak_ptr<ACPClient> client, std::weak_ptr<JSONRPCConnection> connection, std::weak_ptr<Agent> agent);
    [[nodiscard]] asio::awaitable<void> continueSession(const char* method, std::string sessionId, SessionSetup setup);
    void remember(const std::string& sessionId, SessionSetup setup, std::vector<ConfigOption> configOptions);

    [[nodiscard]] static asio::awaitable<void> notified(
        std::weak_ptr<ACPClient> client, std::string method, JSONValue params);
    [[nodiscard]] static asio::awaitable<JSONValue> asked(
        std::weak_ptr<ACPClient> client, const std::string& method, JSONValue params);

    [[nodiscard]] static asio::awaitable<JSONValue> requestPermission(
        std::weak_ptr<ACPClient> client, JSONValue params);
    [[nodiscard]] std::shared_ptr<Decision> askPermission(RequestPermissionParams params);
    [[nodiscard]] static asio::awaitable<void> decide(
        std::weak_ptr<ACPClient> client, std::weak_ptr<ACPClientDelegate> delegate, std::uint64_t ask,
        RequestPermissionParams params);
    void resolve(std::uint64_t ask, PermissionOutcome outcome);
    /// Answers what one session asks, or all sessions.
    void cancelAsks(const std::optional<std::string>& sessionId);

    [[nodiscard]] static asio::awaitable<JSONValue> readTextFile(std::weak_ptr<ACPClient> client, JSONValue params);
    [[nodiscard]] static asio::awaitable<JSONValue> writeTextFile(std::weak_ptr<ACPClient> client, JSONValue params);
    /// Throws JSONRPCError for a session that isn't known.
    [[nodiscard]] const std::vector<std::filesystem::path>& roots(const std::string& sessionId) const;

    asio::any_io_executor executor_;
    std::shared_ptr<Agent> agent_;
    std::shared_ptr<JSONRPCConnection> connection_;
    std::weak_ptr<ACPClientDelegate> delegate_;
    bool started_ = false;
    std::map<std::string, std::vector<std::filesystem::path>> roots_; // a session's roots, `cwd` first
    std::map<std::string, std::vector<ConfigOption>> options_;
    std::map<std::uint64_t, PermissionAsk> asks_;
    std::uint64_t nextAsk_ = 0;
};

} // namespace veltry
