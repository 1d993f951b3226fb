#pragma once

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>
#include <asio/steady_timer.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>

#include <chrono>
#include <functional>

namespace veltry::test {

/// Like eventually(), for what only happens while the executor that the caller runs on goes on. The coroutine of
/// runOnExecutor() has thirty seconds in all.
inline asio::awaitable<bool> eventuallyOnExecutor(std::function<bool()> condition)
{
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    asio::steady_timer pause(executor);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            co_return false;
        pause.expires_after(std::chrono::milliseconds(2));
        co_await pause.async_wait(asio::use_awaitable);
    }
    co_return true;
}

} // namespace veltry::test
