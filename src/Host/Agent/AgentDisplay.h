#pragma once

#include "ACP/ACPClient/Permissions.h"
#include "ACP/ACPClient/Prompts.h"
#include "ACP/ACPClient/SessionUpdates.h"
#include "Host/Terminal/Terminal.h"

#include <map>
#include <string>
#include <string_view>

namespace veltry {

/// Shows what an agent says and does as it comes: its words as they stream, a tool call in a line. Belongs to one
/// conversation; its text is harmless on a terminal.
class AgentDisplay {
public:
    explicit AgentDisplay(const Terminal& terminal) : terminal_(terminal) {}

    void show(const SessionUpdate& update);
    /// A line of our own, between the agent's words.
    void line(std::string_view text, Style style = Style::dim);
    /// Lines that are harmless already, each with its line feed.
    void block(std::string_view lines);
    /// The end of a turn: nothing for a plain end, a word where it was cut short.
    void endTurn(const StopReason& reason);
    /// The question and its numbered choices.
    void permission(const RequestPermissionParams& request);
    /// Where the person types.
    void promptMark(std::string_view mark);

private:
    enum class Flow { none, words, thoughts };

    void stream(Flow flow, const ContentBlock& block);
    void breakOff();
    void call(const std::string& id, const std::optional<std::string>& title, std::optional<ToolCallStatus> status);

    Terminal terminal_;
    Flow flow_ = Flow::none;
    bool atLineStart_ = true;
    std::map<std::string, std::string> titles_; // of the calls that were announced
};

} // namespace veltry
