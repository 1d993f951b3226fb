#pragma once

#include "Host/Terminal/Interruption.h"

#include <asio/awaitable.hpp>
#include <asio/co_spawn.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>

#include <csignal>
#include <exception>
#include <optional>
#include <utility>

namespace veltry {

/// Runs the work to its end on `context`, which the calling thread serves, and returns or throws what it gives. Work
/// that is left over goes with the context. Nothing if somebody else stopped the context.
template <typename Value>
[[nodiscard]] std::optional<Value> runToEnd(asio::io_context& context, asio::awaitable<Value> work)
{
    const auto guard = asio::make_work_guard(context); // its answer may come from another thread
    std::exception_ptr failure;
    std::optional<Value> result;
    asio::co_spawn(context, std::move(work), [&](std::exception_ptr thrown, Value value) {
        failure = std::move(thrown);
        if (!failure)
            result = std::move(value);
        context.stop();
    });
    context.run();
    if (failure)
        std::rethrow_exception(failure);
    return result;
}

/// The same on an executor of its own. A signal that ends programs drops the work with all that it holds, child
/// processes and temporary files, before it is thrown as Interruption::Interrupted.
template <typename Value>
[[nodiscard]] Value awaited(asio::awaitable<Value> work)
{
    std::optional<int> signal;
    std::optional<Value> result;
    {
        const Interruption::HandledElsewhere handled;
        asio::io_context context(1);
        asio::signal_set signals(context);
        for (const int each : Interruption::signals())
            signals.add(each);
        signals.async_wait([&](const asio::error_code& error, int number) {
            if (error)
                return;
            signal = number;
            context.stop();
        });
        result = runToEnd(context, std::move(work));
    }
    if (!result)
        throw Interruption::Interrupted{signal.value_or(SIGINT)};
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
