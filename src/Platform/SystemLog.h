#pragma once

#include <functional>
#include <string_view>

/// The system's log, with the subsystem "harrowick.veltry". There is no log file of our own. May be called from any
/// thread, and never fails: where there is no log daemon the lines are lost.
namespace veltry::SystemLog {

enum class Level { error, info };

/// One line of a category: "jsonrpc", "acp" or "store".
void write(Level level, std::string_view category, std::string_view message) noexcept;

using Sink = std::function<void(Level, std::string_view category, std::string_view message)>;
/// Sends all lines to `sink` instead, until it is called again with an empty one. For tests.
void redirect(Sink sink);

} // namespace veltry::SystemLog
