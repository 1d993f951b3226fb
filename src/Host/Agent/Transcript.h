#pragma once

#include "ACP/ACPClient/SessionUpdates.h"
#include "Base/JSONValue.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// What was said and done in a conversation, in the form that the store keeps and searches: an array of items, each
/// with an `id` and a `kind`, {"user": {"_0": TEXT}}, {"agent": {"_0": TEXT}}, {"thought": {"_0": TEXT}} or
/// {"tool": {"_0": CALL}} with the call's last known title, kind and status. Items of other kinds stay as they are.
class Transcript {
public:
    Transcript() = default;
    /// Continues a stored one. Throws JSONValue::Failure if that isn't an array: it must not be written over.
    explicit Transcript(std::string_view stored);

    void userSaid(std::string text);
    /// Takes in what the agent tells; pieces of one message become one item.
    void add(const SessionUpdate& update);
    /// What comes next is no part of the message before, and agents may give later calls the same ids again.
    void endTurn();

    /// What is shown and kept of a block: its text, or where it leads.
    [[nodiscard]] static std::string textOf(const ContentBlock& block);

    [[nodiscard]] bool isEmpty() const { return items_.empty() && !open_; }
    [[nodiscard]] std::string text() const;

    /// Whether something came since it was made or saved.
    [[nodiscard]] bool isChanged() const { return isChanged_; }
    void wasSaved() { isChanged_ = false; }

private:
    /// The message whose pieces are coming in: the last item.
    struct OpenMessage {
        std::string id;
        std::string kind;
        std::optional<std::string> messageID;
        std::string text;

        [[nodiscard]] std::string item() const;
    };

    /// A call of this turn, which may still change.
    struct Call {
        std::string id;
        std::size_t place;
        JSONValue::Object known;
    };

    void addChunk(const char* kind, const ContentChunk& chunk);
    void addCall(const ToolCallUpdate& call);
    void closeMessage();

    std::vector<std::string> items_; // as JSON texts: a tree for each would take ten times the memory
    std::optional<OpenMessage> open_;
    std::map<std::string, Call> calls_; // by their own ids
    bool isChanged_ = false;
};

} // namespace veltry
