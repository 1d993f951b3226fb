#pragma once

#include "ACP/ACPClient/ConfigOptions.h"
#include "ACP/ACPClient/Content.h"
#include "ACP/ACPClient/ToolCalls.h"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace veltry {

/// All as the agent words it.
struct PlanEntry {
    std::string content;
    std::string status;
    std::string priority;
};

/// A command that the person may type at the start of a prompt.
struct AvailableCommand {
    struct Input {
        std::string hint;
    };

    std::string name;
    std::string description;    ///< empty also where it is missing or no text
    std::optional<Input> input; ///< absent also where it doesn't read
};

/// What an agent tells of a session while it works. A kind that isn't known keeps its raw JSON.
struct SessionUpdate {
    struct UserMessageChunk : ContentChunk {};
    struct AgentMessageChunk : ContentChunk {};
    struct AgentThoughtChunk : ContentChunk {};

    struct Plan {
        std::vector<PlanEntry> entries;
    };

    /// The whole list as it is from now on, a LenientConfigOptions.
    struct ConfigOptions {
        std::vector<ConfigOption> options;
    };

    /// A command that doesn't read is left out.
    struct AvailableCommands {
        std::vector<AvailableCommand> commands;
    };

    struct Unknown {
        std::string kind;
        JSONValue raw; ///< the whole object, written back as it came
    };

    using Value = std::variant<
        UserMessageChunk, AgentMessageChunk, AgentThoughtChunk, ToolCall, ToolCallUpdate, Plan, ConfigOptions,
        AvailableCommands, Unknown>;
    Value value;
};

/// The parameters of the notification "session/update".
struct SessionNotification {
    std::string sessionId;
    SessionUpdate update;
};

} // namespace veltry
