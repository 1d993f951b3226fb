#pragma once

#include "Platform/ProcessEnd.h"

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>
#include <asio/co_spawn.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>

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
    /// with the executor. Throws ProcessEnd::Requested after stopFor().
    template <typename Value>
    [[nodiscard]] Value run(asio::awaitable<Value> work)
    {
        const auto guard = asio::make_work_guard(context_); // what is waited for may come from another thread
        std::exception_ptr failure;
        std::optional<Value> result;
        asio::co_spawn(context_, std::move(work), [&](std::exception_ptr thrown, Value value) {
            failure = std::move(thrown);
            if (!failure)
                result = std::move(value);
            context_.stop();
        });
        context_.run();
        if (failure)
            std::rethrow_exception(failure);
        if (!result)
            throw ProcessEnd::Requested{stoppedFor_};
        return std::move(*result);
    }

    /// Leaves the work where it is, since that signal came.
    void stopFor(int signal)
    {
        stoppedFor_ = signal;
        context_.stop();
    }

private:
    int stoppedFor_ = ProcessEnd::interrupt;
    asio::io_context context_{1};
};

/// Runs the work to its end on an executor of its own, and returns or throws what it gives. A signal that asks this
/// process to end drops the work with all that it holds, child processes and temporary files, and is thrown as
/// ProcessEnd::Requested. By the main thread.
template <typename Value>
[[nodiscard]] Value awaited(asio::awaitable<Value> work)
{
    const ProcessEnd::TakenElsewhere taken;
    OwnExecutor executor;
    asio::signal_set signals(executor.get());
    for (const int signal : ProcessEnd::requests())
        signals.add(signal);
    signals.async_wait([&](const asio::error_code& error, int signal) {
        if (!error)
            executor.stopFor(signal);
    });
    return executor.run(std::move(work));
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
