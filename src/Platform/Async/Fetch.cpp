#include "Platform/Async/Fetch.h"

#include "Platform/Async/Mailbox.h"

#include <asio/post.hpp>

namespace veltry {

asio::awaitable<HTTPSession::Outcome> fetch(
    asio::any_io_executor executor, std::shared_ptr<HTTPSession> session, HTTPSession::Request request)
{
    const auto arrival = std::make_shared<Mailbox<HTTPSession::Outcome>>(executor);
    // The session's thread must never be the last to hold the mailbox, whose timer belongs to the executor.
    HTTPSession::Completion completion = [executor, weak = std::weak_ptr(arrival)](HTTPSession::Outcome outcome) {
        asio::post(executor, [weak, outcome = std::move(outcome)]() mutable {
            if (const auto waiting = weak.lock())
                waiting->push(std::move(outcome));
        });
    };
    session->get(std::move(request), std::move(completion));
    std::optional<HTTPSession::Outcome> outcome = co_await arrival->next();
    co_return std::move(*outcome);
}

} // namespace veltry
