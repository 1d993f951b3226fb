#pragma once

#include "ACP/ACPClient/Content.h"

#include <cstdint>
#include <string>
#include <vector>

namespace veltry {

/// Why a turn ended: one of the known reasons, or `other` with the agent's word. It is written as the word that came.
struct StopReason {
    enum class Kind : std::uint8_t { other, endTurn, maxTokens, maxTurnRequests, refusal, cancelled };

    StopReason(Kind known = Kind::other); ///< with the word of that kind; `other` has none
    explicit StopReason(std::string wireWord);

    Kind kind;
    std::string word;

    friend bool operator==(const StopReason&, const StopReason&) = default;
};

/// The parameters of "session/prompt".
struct PromptParams {
    std::string sessionId;
    std::vector<ContentBlock> prompt;
};

struct PromptResult {
    StopReason stopReason;
};

/// The parameters of "_session/steering": what is said to an agent in the middle of its turn.
struct SteerParams {
    /// With the wish that an idle agent doesn't take it but asks for a prompt.
    [[nodiscard]] static SteerParams from(std::string sessionId, std::vector<ContentBlock> prompt);

    std::string sessionId;
    std::vector<ContentBlock> prompt;
    JSONValue meta; ///< "_meta"
};

struct SteerResult {
    std::string outcome;
};

enum class SteerOutcome {
    injected,       ///< the running turn took it
    promptRequired, ///< the agent is idle and did not take it; a prompt has to be sent
};

/// The parameters of the notification "session/cancel".
struct CancelParams {
    std::string sessionId;
};

} // namespace veltry
