#pragma once

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>
#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>

#include <chrono>
#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>

namespace veltry::test {

/// Runs one coroutine, and whatever it starts, on an executor of its own until it has ended. Throws what it throws, and
/// fails by itself after thirty seconds.
template <typename Body>
void runOnExecutor(Body body)
{
    asio::io_context context(1);
    const asio::any_io_executor executor = context.get_executor(); // coroutines of the tests hold a reference to it
    bool done = false;
    std::exception_ptr failure;
    asio::awaitable<void> work = body(executor);
    asio::co_spawn(executor, std::move(work), [&](std::exception_ptr thrown) {
        failure = thrown;
        done = true;
        context.stop();
    });
    context.run_for(std::chrono::seconds(30));
    if (failure)
        std::rethrow_exception(failure);
    if (!done)
        throw std::runtime_error("the coroutine still waits after thirty seconds");
}

/// The same for one task alone; returns its result.
template <typename Result>
[[nodiscard]] Result resultOf(asio::awaitable<Result> work)
{
    std::optional<Result> result;
    runOnExecutor([&](const asio::any_io_executor&) -> asio::awaitable<void> { result = co_await std::move(work); });
    return std::move(result).value();
}

} // namespace veltry::test
