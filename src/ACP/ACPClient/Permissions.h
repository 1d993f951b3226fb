#pragma once

#include "ACP/ACPClient/ToolCalls.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace veltry {

/// What an option would mean: one of the known kinds, or `other` with the agent's word, which is kept.
struct PermissionOptionKind {
    enum class Kind : std::uint8_t { other, allowOnce, allowAlways, rejectOnce, rejectAlways };

    PermissionOptionKind(Kind known = Kind::other); ///< with the word of that kind; `other` has none
    explicit PermissionOptionKind(std::string wireWord);

    Kind kind;
    std::string word;

    friend bool operator==(const PermissionOptionKind&, const PermissionOptionKind&) = default;
};

struct PermissionOption {
    std::string optionId;
    std::string name;
    PermissionOptionKind kind;
};

/// The parameters of the agent's "session/request_permission".
struct RequestPermissionParams {
    std::string sessionId;
    ToolCallUpdate toolCall;
    std::vector<PermissionOption> options;
};

/// One option selected, or the question cancelled.
struct PermissionOutcome {
    [[nodiscard]] static PermissionOutcome selected(std::string optionId) { return {std::move(optionId)}; }
    [[nodiscard]] static PermissionOutcome cancelled() { return {}; }

    std::optional<std::string> optionId; ///< absent: cancelled, as every outcome reads that isn't "selected"

    friend bool operator==(const PermissionOutcome&, const PermissionOutcome&) = default;
};

struct RequestPermissionResult {
    PermissionOutcome outcome;
};

} // namespace veltry
