#include "Host/Agent/AgentDisplay.h"

#include "Base/Text.h"
#include "Host/Agent/Transcript.h"

#include <fmt/format.h>

namespace veltry {

namespace {

/// Several lines, each harmless on a terminal.
std::string harmless(std::string_view text)
{
    std::string result;
    for (const std::string_view line : text::split(text, '\n')) {
        // Every line but the first is preceded by a line feed, so that pieces of a text join as they came.
        if (line.data() != text.data())
            result += '\n';
        result += text::oneLine(line);
    }
    return result;
}

} // namespace

void AgentDisplay::show(const SessionUpdate& update)
{
    if (const auto* said = std::get_if<SessionUpdate::AgentMessageChunk>(&update.value))
        stream(Flow::words, said->content);
    else if (const auto* thought = std::get_if<SessionUpdate::AgentThoughtChunk>(&update.value))
        stream(Flow::thoughts, thought->content);
    else if (const auto* begun = std::get_if<ToolCall>(&update.value))
        call(begun->toolCallId, begun->title, begun->status);
    else if (const auto* changed = std::get_if<ToolCallUpdate>(&update.value))
        call(changed->toolCallId, changed->title, changed->status);
    else if (const auto* plan = std::get_if<SessionUpdate::Plan>(&update.value))
        for (const PlanEntry& entry : plan->entries)
            line(fmt::format(
                "[{}] {}",
                entry.status == "completed"     ? "x"
                : entry.status == "in_progress" ? ">"
                                                : " ",
                entry.content));
}

void AgentDisplay::line(std::string_view text, Style style)
{
    breakOff();
    outlet_.write(terminal_.styled(style, text::oneLine(text)) + "\n");
}

void AgentDisplay::block(std::string_view lines)
{
    breakOff();
    outlet_.write(lines);
}

void AgentDisplay::endTurn(const StopReason& reason)
{
    breakOff();
    // Agents may give later calls the same ids again.
    titles_.clear();
    switch (reason.kind) {
    case StopReason::Kind::endTurn:
        return;
    case StopReason::Kind::cancelled:
        return line("Cancelled.", Style::yellow);
    case StopReason::Kind::refusal:
        return line("The agent refused to continue.", Style::yellow);
    case StopReason::Kind::maxTokens:
    case StopReason::Kind::maxTurnRequests:
    case StopReason::Kind::other:
        return line(fmt::format("The turn ended: {}.", reason.word), Style::yellow);
    }
}

void AgentDisplay::permission(const RequestPermissionParams& request)
{
    const auto known = titles_.find(request.toolCall.toolCallId);
    const std::string title =
        request.toolCall.title.value_or(known == titles_.end() ? std::string("something") : known->second);
    line(fmt::format("The agent asks for permission: {}", title), Style::bold);
    for (std::size_t index = 0; index < request.options.size(); ++index)
        line(fmt::format("  {}. {}", index + 1, request.options[index].name), Style::plain);
}

void AgentDisplay::promptMark(std::string_view mark)
{
    breakOff();
    outlet_.write(terminal_.styled(Style::bold, mark));
}

void AgentDisplay::keysEchoed()
{
    if (terminal_.isTerminal())
        atLineStart_ = false;
}

void AgentDisplay::stream(Flow flow, const ContentBlock& block)
{
    std::string text = harmless(Transcript::textOf(block));
    // Pieces go on where the last one ended; a new text begins with its first word.
    if (flow != flow_) {
        breakOff();
        text.erase(0, text.find_first_not_of(" \n"));
    }
    if (text.empty())
        return;
    flow_ = flow;
    outlet_.write(terminal_.styled(flow == Flow::thoughts ? Style::dim : Style::plain, text));
    atLineStart_ = text.ends_with('\n');
}

void AgentDisplay::breakOff()
{
    if (!atLineStart_)
        outlet_.write("\n");
    atLineStart_ = true;
    flow_ = Flow::none;
}

void AgentDisplay::call(
    const std::string& id, const std::optional<std::string>& title, std::optional<ToolCallStatus> status)
{
    // An update may come for a call that was never announced; it is announced then.
    const auto [known, isNew] = titles_.try_emplace(id, title.value_or("a tool"));
    if (isNew)
        line(fmt::format("{} {}", terminal_.isUTF8() ? "›" : ">", known->second), Style::cyan);
    else if (title)
        known->second = *title;
    if (status == ToolCallStatus::failed)
        line(fmt::format("{} {} failed", terminal_.isUTF8() ? "✗" : "x", known->second), Style::red);
}

} // namespace veltry
