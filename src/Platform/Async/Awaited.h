#pragma once

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>
#include <asio/co_spawn.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>

#include <exception>
#include <optional>
#include <utility>

namespace veltry {

/// An executor that the calling thread serves while it runs one piece of work. What belongs to the executor must go
/// before it.
class OwnExecutor {
public:
    [[nodiscard]] asio::any_io_executor get() { return context_.get_executor(); }

    /// Runs the work to its end and returns or throws what it gives. Called once; tasks that go on beside the work go
    /// with the executor.
    template <typename Value>
    [[nodiscard]] Value run(asio::awaitable<Value> work)
    {
        const auto guard = asio::make_work_guard(context_); // what is waited for may come from another thread
        std::exception_ptr failure;
        std::optional<Value> result;
        asio::co_spawn(context_, std::move(work), [&](std::exception_ptr thrown, Value value) {
            failure = std::move(thrown);
            result = std::move(value);
            context_.stop();
        });
        context_.run();
        if (failure)
            std::rethrow_exception(failure);
        return std::move(*result);
    }

private:
    asio::io_context context_{1};
};

/// Runs the work to its end on an executor of its own, and returns or throws what it gives.
template <typename Value>
[[nodiscard]] Value awaited(asio::awaitable<Value> work)
{
    return OwnExecutor().run(std::move(work));
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
