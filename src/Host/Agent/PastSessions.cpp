#include "Host/Agent/PastSessions.h"

#include "ACP/ACPClient/ACPClient.h"
#include "ACP/ACPClient/AgentProcess.h"
#include "Host/Agent/AgentLaunch.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace veltry::PastSessions {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-reference-coroutine-parameters): the command's own, which waits for this
asio::awaitable<std::vector<PastConversation>> found(Context& context, Harness harness, asio::any_io_executor executor)
{
    const std::filesystem::path folder = context.lab().project.folders.front();
    asio::awaitable<std::shared_ptr<AgentProcess>> started = AgentLaunch::start(context, harness, folder, executor);
    const std::shared_ptr<AgentProcess> process = co_await std::move(started);
    const std::shared_ptr<ACPClient> client =
        ACPClient::make(executor, process, {}, Context::settings().logAgentTraffic);
    asio::awaitable<InitializeResult> greeting = client->initialize();
    const InitializeResult agent = co_await std::move(greeting);
    if (!agent.listsSessions())
        throw Refusal(fmt::format("{} doesn't tell of its past sessions.", harness.name));
    asio::awaitable<std::vector<SessionInfo>> asked = client->listSessions(folder);
    std::vector<SessionInfo> sessions = co_await std::move(asked);
    process->terminate();

    std::set<std::string> known;
    for (const Conversation& conversation : context.store()->conversations(context.project().id))
        if (conversation.agentSessionID)
            known.insert(*conversation.agentSessionID);
    std::vector<PastConversation> past;
    for (const SessionInfo& session : sessions)
        if (known.insert(session.sessionId).second)
            past.push_back({
                .title = session.title.value_or("Untitled session"),
                .agentSessionID = session.sessionId,
                .createdAt = session.updated().value_or(Date::now()),
            });
    std::ranges::sort(past, std::ranges::greater(), &PastConversation::createdAt);
    co_return past;
}

} // namespace veltry::PastSessions
