#pragma once

#include "Support/RunOnExecutor.h"
#include "Support/TestLab.h"
#include "VeltryTools/LabTools.h"

#include <chrono>
#include <string>

namespace veltry::test {

/// The tools over a lab, with looks that follow each other quickly.
[[nodiscard]] inline LabTools quickTools(const TestLab& test)
{
    return {
        .lab = test.lab,
        .conversation = {},
        .settings = {},
        .poll = std::chrono::milliseconds(5),
        .progressInterval = std::chrono::milliseconds(20)};
}

/// Calls a tool and runs it to its end.
inline ToolOutcome call(
    const LabTools& tools, const std::string& name, const JSONValue& arguments, const Progress& progress = {})
{
    ToolOutcome outcome;
    runOnExecutor([&](const asio::any_io_executor&) -> asio::awaitable<void> {
        outcome = co_await tools.call(name, arguments, progress);
    });
    return outcome;
}

} // namespace veltry::test
