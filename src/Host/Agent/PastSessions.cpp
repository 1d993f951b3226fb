#include "Host/Agent/PastSessions.h"

#include "ACP/ACPClient/ACPClient.h"
#include "ACP/ACPClient/AgentProcess.h"
#include "Host/Agent/AgentLaunch.h"

#include <asio/this_coro.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace veltry::PastSessions {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-reference-coroutine-parameters): the command's own, which waits for this
asio::awaitable<std::vector<PastConversation>> found(Context& context, Harness harness)
{
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    const std::filesystem::path folder = context.lab().project.folders.front();
    const std::shared_ptr<AgentProcess> process = co_await AgentLaunch::start(context, harness, folder);
    const std::shared_ptr<ACPClient> client =
        ACPClient::make(executor, process, {}, Context::settings().logAgentTraffic);
    const InitializeResult agent = co_await client->initialize();
    if (!agent.listsSessions())
        throw Refusal(fmt::format("{} doesn't tell of its past sessions.", harness.name));
    std::vector<SessionInfo> sessions = co_await client->listSessions(folder);
    // As soon as the list is there: the agent has nothing else to do.
    process->terminate();

    std::set<std::string> known;
    for (const Conversation& conversation : context.store()->conversations(context.project().id))
        if (conversation.agentSessionID)
            known.insert(*conversation.agentSessionID);
    std::vector<PastConversation> past;
    for (const SessionInfo& session : sessions)
        // A session that is known, or is listed twice, is told once.
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
