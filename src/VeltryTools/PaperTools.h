#pragma once

#include "VeltryTools/ToolTable.h"

#include <string>
#include <vector>

namespace veltry {

/// The tools for the published literature: search, read, save, cite and download papers.
struct PaperTools {
    /// The table, in the order in which it is shown.
    [[nodiscard]] static const std::vector<Tool>& tools();

    /// Runs the tool of that name. Never fails: a failure is a text as well.
    [[nodiscard]] asio::awaitable<ToolOutcome> call(std::string name, JSONValue arguments) const;
};

} // namespace veltry
