#pragma once

#include "Base/Date.h"
#include "Base/UUID.h"

#include <optional>
#include <string>

namespace veltry {

/// One chat with an agent in a project. What was said is its transcript, which ProjectStore keeps beside it.
struct Conversation {
    UUID id;
    UUID projectID;
    std::string title;
    std::string harness; ///< the agent program
    Date createdAt;
    std::optional<std::string> agentSessionID; ///< the agent's own session id, by which the chat can be resumed
    std::optional<Date> archivedAt;            ///< set while the conversation is archived

    friend bool operator==(const Conversation&, const Conversation&) = default;
};

/// A session found in an agent's own history and offered for import.
struct PastConversation {
    std::string title;
    std::string agentSessionID;
    Date createdAt;

    friend bool operator==(const PastConversation&, const PastConversation&) = default;
};

/// One hit of a search: the item of a conversation that matches best.
struct SaidMatch {
    UUID conversationID;
    std::string itemID;
    std::string text; ///< the item's whole text

    friend bool operator==(const SaidMatch&, const SaidMatch&) = default;
};

} // namespace veltry
