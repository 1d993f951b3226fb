#pragma once

#include <asio/awaitable.hpp>
#include <asio/co_spawn.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>

#include <exception>
#include <optional>
#include <utility>

namespace veltry {

/// Runs the work to its end on an executor of its own, which the calling thread serves, and returns or throws what it
/// gives.
template <typename Value>
[[nodiscard]] Value awaited(asio::awaitable<Value> work)
{
    asio::io_context context(1);
    const auto guard = asio::make_work_guard(context); // its answer comes from another thread
    std::exception_ptr failure;
    std::optional<Value> result;
    asio::co_spawn(context, std::move(work), [&](std::exception_ptr thrown, Value value) {
        failure = std::move(thrown);
        result = std::move(value);
        context.stop();
    });
    context.run();
    if (failure)
        std::rethrow_exception(failure);
    return std::move(*result);
}

inline void awaited(asio::awaitable<void> work)
{
    const auto givingValue = [](asio::awaitable<void> inner) -> asio::awaitable<bool> {
        co_await std::move(inner);
        co_return true;
    };
    static_cast<void>(awaited(givingValue(std::move(work))));
}

} // namespace veltry
