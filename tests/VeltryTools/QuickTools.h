#pragma once

#include "Support/EventuallyOnExecutor.h"
#include "Support/RunOnExecutor.h"
#include "Support/TestLab.h"
#include "VeltryTools/LabTools.h"

#include <asio/co_spawn.hpp>
#include <asio/steady_timer.hpp>
#include <asio/use_awaitable.hpp>
#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace veltry::test {

/// The tools over a lab, with looks that follow each other quickly.
[[nodiscard]] inline LabTools quickTools(const TestLab& test)
{
    return {.lab = test.lab, .poll = std::chrono::milliseconds(5), .progressInterval = std::chrono::milliseconds(20)};
}

/// Calls a tool and runs it to its end.
inline ToolOutcome call(
    const LabTools& tools, const std::string& name, const JSONValue& arguments, const Progress& progress = {})
{
    return resultOf(tools.call(name, arguments, progress));
}

/// Two calls of a tool that wait at once, once `change` has come while they waited.
inline std::vector<ToolOutcome> callTwice(
    const LabTools& tools, const std::string& name, const JSONValue& arguments, const std::function<void()>& change)
{
    std::vector<ToolOutcome> outcomes;
    runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        for (int index = 0; index < 2; ++index)
            asio::co_spawn(executor, tools.call(name, arguments), [&](std::exception_ptr, ToolOutcome outcome) {
                outcomes.push_back(std::move(outcome));
            });
        asio::steady_timer pause(executor, std::chrono::milliseconds(1));
        co_await pause.async_wait(asio::use_awaitable); // both have taken their first look
        EXPECT_TRUE(outcomes.empty());
        change();
        const std::function<bool()> both = [&] { return outcomes.size() == 2; };
        const bool ended = co_await eventuallyOnExecutor(both);
        EXPECT_TRUE(ended);
    });
    return outcomes;
}

} // namespace veltry::test
