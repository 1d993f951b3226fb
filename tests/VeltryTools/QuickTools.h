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

/// The lab's tools, with looks that follow each other quickly.
[[nodiscard]] inline LabTools quickTools(const TestLab& test)
{
    return {
        .lab = std::make_shared<const Lab>(test.lab),
        .poll = std::chrono::milliseconds(5),
        .progressInterval = std::chrono::milliseconds(20)};
}

/// An outcome's text, with "!" before it if it is an error.
[[nodiscard]] inline std::string told(const ToolOutcome& outcome)
{
    return (outcome.isError ? "!" : "") + outcome.text;
}

/// Calls a tool of LabTools or PaperTools and runs it to its end.
template <typename Family>
std::string call(
    const Family& family, std::string_view name, const JSONValue& arguments = JSONValue::object({}),
    const Progress& progress = {})
{
    const std::vector<Tool> tools = family.tools();
    auto outcome = callTool(tools, name, arguments, progress);
    if (auto* waiting = std::get_if<asio::awaitable<ToolOutcome>>(&outcome))
        outcome = resultOf(std::move(*waiting));
    return told(std::get<ToolOutcome>(outcome));
}

/// Two calls of a tool that wait at once, once `change` has come while they waited.
inline std::vector<std::string> callTwice(
    const LabTools& family, std::string_view name, const JSONValue& arguments, const std::function<void()>& change)
{
    const std::vector<Tool> tools = family.tools();
    std::vector<std::string> texts;
    runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        for (int index = 0; index < 2; ++index)
            asio::co_spawn(
                executor, std::get<1>(callTool(tools, name, arguments, {})),
                [&](std::exception_ptr, const ToolOutcome& outcome) { texts.push_back(told(outcome)); });
        asio::steady_timer pause(executor, std::chrono::milliseconds(1));
        co_await pause.async_wait(asio::use_awaitable); // both have taken their first look
        EXPECT_TRUE(texts.empty());
        change();
        const std::function<bool()> both = [&] { return texts.size() == 2; };
        const bool ended = co_await eventuallyOnExecutor(both);
        EXPECT_TRUE(ended);
    });
    return texts;
}

} // namespace veltry::test
