#pragma once

#include "ACP/ACPClient/WireRecord.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace veltry {

/// `delete_` is "delete", which the language keeps for itself.
enum class ToolKind { read, edit, delete_, move, search, execute, think, fetch, other, switchMode };

enum class ToolCallStatus { pending, completed, failed, inProgress };

struct ToolCallLocation {
    std::string path;
    std::optional<std::int64_t> line;
};

/// A kind or a status that isn't known, and locations that don't read as a whole, are absent; any other bad field fails
/// the call.
struct ToolCall {
    std::string toolCallId;
    std::string title;
    std::optional<ToolKind> kind;
    std::optional<ToolCallStatus> status;
    std::optional<std::vector<JSONValue>> content;
    std::optional<std::vector<ToolCallLocation>> locations;
};

/// A change to a call that was announced before: only what changed is there. It reads like the call.
struct ToolCallUpdate {
    std::string toolCallId;
    std::optional<std::string> title;
    std::optional<ToolKind> kind;
    std::optional<ToolCallStatus> status;
    std::optional<std::vector<JSONValue>> content;
    std::optional<std::vector<ToolCallLocation>> locations;
};

} // namespace veltry
