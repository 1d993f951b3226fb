#include "Platform/Fetch.h"

#include <asio/post.hpp>
#include <asio/redirect_error.hpp>
#include <asio/steady_timer.hpp>
#include <asio/use_awaitable.hpp>

#include <optional>

namespace veltry {

namespace {

/// Where one coroutine waits; all on its executor.
struct Waiter {
    explicit Waiter(const asio::any_io_executor& executor) : arrival(executor, asio::steady_timer::time_point::max()) {}

    asio::steady_timer arrival; // never expires; it is only ever cancelled
    std::optional<HTTPSession::Outcome> outcome;
};

} // namespace

asio::awaitable<HTTPSession::Outcome> fetch(
    asio::any_io_executor executor, std::shared_ptr<HTTPSession> session, HTTPSession::Request request)
{
    const auto waiter = std::make_shared<Waiter>(executor);
    // The session's thread must never be the last to hold the waiter, which belongs to the executor.
    HTTPSession::Completion completion = [executor, weak = std::weak_ptr(waiter)](HTTPSession::Outcome outcome) {
        asio::post(executor, [weak, outcome = std::move(outcome)]() mutable {
            const auto waiting = weak.lock();
            if (!waiting)
                return;
            waiting->outcome = std::move(outcome);
            waiting->arrival.cancel();
        });
    };
    session->get(std::move(request), std::move(completion));
    while (!waiter->outcome) {
        asio::error_code ignored; // a cancelled timer is how the arrival shows
        co_await waiter->arrival.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
    }
    co_return std::move(*waiter->outcome);
}

} // namespace veltry
