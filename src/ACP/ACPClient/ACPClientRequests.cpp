// What the agent tells and asks.

#include "ACP/ACPClient/ACPClient.h"
#include "ACP/ACPClient/ProjectFiles.h"
#include "ACP/ACPClient/TextFiles.h"
#include "Platform/SystemLog.h"

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>

#include <algorithm>

namespace veltry {

namespace {

void logFailure(const std::string& message)
{
    SystemLog::write(SystemLog::Level::error, "acp", message);
}

template <typename Params>
Params read(const JSONValue& params)
{
    try {
        return decoded<Params>(params);
    } catch (const DecodingFailure& failure) {
        throw JSONRPCError::invalidParams("unreadable params: " + failure.description());
    }
}

/// Nothing, after a line in the log, for an update that can't be read.
std::optional<SessionNotification> notificationOf(const JSONValue& params)
{
    try {
        return decoded<SessionNotification>(params);
    } catch (const DecodingFailure& failure) {
        logFailure("skipped a session/update this build cannot read: " + failure.description());
        return std::nullopt;
    }
}

std::shared_ptr<ACPClient> present(const std::weak_ptr<ACPClient>& client)
{
    std::shared_ptr<ACPClient> self = client.lock();
    if (!self)
        throw JSONRPCError::internal("the client is gone");
    return self;
}

} // namespace

const ACPClient::Method ACPClient::methods[] = {
    {"session/request_permission", &ACPClient::requestPermission},
    {"fs/read_text_file", &ACPClient::readTextFile},
    {"fs/write_text_file", &ACPClient::writeTextFile},
};

asio::awaitable<void> ACPClient::notified(std::weak_ptr<ACPClient> client, std::string method, JSONValue params)
{
    if (method != "session/update")
        co_return;
    std::optional<SessionNotification> notification = notificationOf(params);
    std::shared_ptr<ACPClientDelegate> delegate;
    // The client isn't held while its delegate works: a delegate may drop it in the middle of an update.
    if (const auto self = client.lock())
        delegate = self->delegate_.lock();
    if (notification && delegate)
        co_await delegate->receive(std::move(*notification));
}

asio::awaitable<JSONValue> ACPClient::asked(
    std::weak_ptr<ACPClient> client, const std::string& method, JSONValue params)
{
    present(client);
    const auto found = std::ranges::find(methods, method, &Method::name);
    if (found == std::end(methods))
        throw JSONRPCError::methodNotFound(method);
    return found->answer(std::move(client), std::move(params));
}

asio::awaitable<JSONValue> ACPClient::requestPermission(std::weak_ptr<ACPClient> client, JSONValue params)
{
    auto request = read<RequestPermissionParams>(params);
    // While a person thinks, this task holds the decision alone, so that dropping the client ends the question.
    const std::shared_ptr<Decision> decision = present(client)->askPermission(std::move(request));
    std::optional<PermissionOutcome> outcome = co_await decision->next();
    RequestPermissionResult result{outcome.value_or(PermissionOutcome::cancelled())};
    co_return encoded(result);
}

std::shared_ptr<ACPClient::Decision> ACPClient::askPermission(RequestPermissionParams params)
{
    const std::uint64_t ask = nextAsk_++;
    const auto decision = std::make_shared<Decision>(executor_);
    asks_.emplace(ask, PermissionAsk{.sessionId = params.sessionId, .decision = decision});
    asio::co_spawn(executor_, decide(weak_from_this(), delegate_, ask, std::move(params)), asio::detached);
    return decision;
}

asio::awaitable<void> ACPClient::decide(
    std::weak_ptr<ACPClient> client, std::weak_ptr<ACPClientDelegate> delegate, std::uint64_t ask,
    RequestPermissionParams params)
{
    PermissionOutcome outcome = PermissionOutcome::cancelled();
    try {
        if (const auto person = delegate.lock()) {
            PermissionOutcome decided = co_await person->decidePermission(std::move(params));
            outcome = std::move(decided);
        }
    } catch (const std::exception& error) {
        logFailure("a permission was not decided: " + describe(error));
    }
    if (const auto self = client.lock())
        self->resolve(ask, std::move(outcome));
}

void ACPClient::resolve(std::uint64_t ask, PermissionOutcome outcome)
{
    // Each question is answered once: a cancel may have been quicker.
    if (auto found = asks_.extract(ask))
        found.mapped().decision->push(std::move(outcome));
}

void ACPClient::cancelAsks(const std::optional<std::string>& sessionId)
{
    std::erase_if(asks_, [&](const auto& entry) {
        const PermissionAsk& ask = entry.second;
        if (sessionId && ask.sessionId != *sessionId)
            return false;
        ask.decision->push(PermissionOutcome::cancelled());
        return true;
    });
}

asio::awaitable<JSONValue> ACPClient::readTextFile(std::weak_ptr<ACPClient> client, JSONValue params)
{
    const auto file = read<ReadTextFileParams>(params);
    co_return encoded(ReadTextFileResult{ProjectFiles::read(present(client)->roots(file.sessionId), file)});
}

asio::awaitable<JSONValue> ACPClient::writeTextFile(std::weak_ptr<ACPClient> client, JSONValue params)
{
    const auto file = read<WriteTextFileParams>(params);
    ProjectFiles::write(present(client)->roots(file.sessionId), file);
    co_return nullptr;
}

const std::vector<std::filesystem::path>& ACPClient::roots(const std::string& sessionId) const
{
    const auto found = roots_.find(sessionId);
    if (found == roots_.end())
        throw JSONRPCError::invalidParams("no session " + sessionId);
    return found->second;
}

} // namespace veltry
