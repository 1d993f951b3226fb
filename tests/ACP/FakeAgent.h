#pragma once

#include "ACP/ACPClient/ACPClient.h"
#include "ACP/JSONRPCConnection/MemoryTransport.h"

#include <string>
#include <string_view>
#include <vector>

namespace veltry::test {

/// An agent without a process: the test plays it at the far end of a transport, and says when it exits.
class FakeAgent final : public Agent {
public:
    explicit FakeAgent(const asio::any_io_executor& executor) : executor_(executor)
    {
        MemoryTransport::Pair ends = MemoryTransport::pair(executor);
        near_ = std::move(ends.first);
        far = std::move(ends.second);
    }

    [[nodiscard]] std::shared_ptr<LineTransport> transport() override { return near_; }

    [[nodiscard]] asio::awaitable<std::int32_t> waitForExit() override
    {
        const auto waiter = std::make_shared<Mailbox<std::int32_t>>(executor_);
        if (status_)
            waiter->push(*status_);
        waiters_.push_back(waiter);
        return statusFrom(waiter);
    }

    void exit(std::int32_t status)
    {
        status_ = status;
        for (const auto& waiter : waiters_)
            waiter->push(status);
    }

    /// The client's next line; "(end)" once it has closed the agent's input.
    asio::awaitable<std::string> receive()
    {
        std::optional<std::string> line = co_await far->lines().next();
        co_return line.value_or("(end)");
    }

    asio::awaitable<void> send(std::string_view line) { return far->send(std::string(line)); }

    std::shared_ptr<MemoryTransport> far;

private:
    static asio::awaitable<std::int32_t> statusFrom(std::shared_ptr<Mailbox<std::int32_t>> waiter)
    {
        const std::optional<std::int32_t> status = co_await waiter->next();
        co_return status.value_or(-1);
    }

    asio::any_io_executor executor_;
    std::shared_ptr<LineTransport> near_;
    std::optional<std::int32_t> status_;
    std::vector<std::shared_ptr<Mailbox<std::int32_t>>> waiters_;
};

/// Collects updates, and decides permissions once the test has said how.
class FakeDelegate final : public ACPClientDelegate {
public:
    explicit FakeDelegate(const asio::any_io_executor& executor) : decisions(executor) {}

    [[nodiscard]] asio::awaitable<void> receive(SessionNotification notification) override
    {
        updates.push_back(encoded(notification.update).text());
        co_return;
    }

    [[nodiscard]] asio::awaitable<PermissionOutcome> decidePermission(RequestPermissionParams request) override
    {
        asked.push_back(request.sessionId);
        std::optional<PermissionOutcome> decision = co_await decisions.next();
        co_return decision.value();
    }

    std::vector<std::string> updates;
    std::vector<std::string> asked; ///< the sessions that asked
    Mailbox<PermissionOutcome> decisions;
};

} // namespace veltry::test
