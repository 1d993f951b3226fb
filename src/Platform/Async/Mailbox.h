#pragma once

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>
#include <asio/redirect_error.hpp>
#include <asio/steady_timer.hpp>
#include <asio/use_awaitable.hpp>

#include <deque>
#include <exception>
#include <functional>
#include <optional>
#include <utility>

namespace veltry {

/// An unbounded queue with one reader, which waits for what isn't there yet.
///
/// It belongs to one serial executor, on which everything is called, so it needs no lock; another thread posts to that
/// executor. Whoever waits in next() keeps the mailbox alive. With a single item it serves as a one-shot waiter.
template <typename Item>
class Mailbox {
public:
    /// Tries to add an item or ends the mailbox; called again until one of them has happened.
    using Refill = std::function<asio::awaitable<void>()>;

    /// With `refill` the reader itself fetches what isn't there, which saves waking it.
    explicit Mailbox(const asio::any_io_executor& executor, Refill refill = {})
        : arrival_(executor, asio::steady_timer::time_point::max()), refill_(std::move(refill))
    {
    }

    /// Adds an item and wakes the reader. After the end it is dropped.
    void push(Item item)
    {
        if (ended_)
            return;
        items_.push_back(std::move(item));
        arrival_.cancel();
    }

    /// No more items come. The first end counts.
    void finish() { end(nullptr); }

    /// The same with a failure, which the reader meets after the last item.
    void fail(std::exception_ptr failure) { end(std::move(failure)); }

    [[nodiscard]] bool hasEnded() const noexcept { return ended_; }

    [[nodiscard]] bool isEmpty() const noexcept { return items_.empty(); }

    /// The next item in order; nothing at the end. Throws the failure that the mailbox ended with.
    [[nodiscard]] asio::awaitable<std::optional<Item>> next()
    {
        while (items_.empty() && !ended_) {
            if (refill_) {
                co_await refill_();
                continue;
            }
            asio::error_code ignored; // a cancelled timer is how an arrival shows
            co_await arrival_.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
        }
        if (items_.empty()) {
            if (failure_)
                std::rethrow_exception(failure_);
            co_return std::nullopt;
        }
        std::optional<Item> item(std::move(items_.front()));
        items_.pop_front();
        co_return item;
    }

private:
    void end(std::exception_ptr failure)
    {
        if (std::exchange(ended_, true))
            return;
        failure_ = std::move(failure);
        arrival_.cancel();
    }

    std::deque<Item> items_;
    asio::steady_timer arrival_; // never expires; it is only ever cancelled
    Refill refill_;
    bool ended_ = false;
    std::exception_ptr failure_;
};

} // namespace veltry
