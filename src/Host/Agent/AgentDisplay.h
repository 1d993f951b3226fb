#pragma once

#include "ACP/ACPClient/Permissions.h"
#include "ACP/ACPClient/Prompts.h"
#include "ACP/ACPClient/SessionUpdates.h"
#include "Host/Agent/Outlet.h"
#include "Host/Terminal/Terminal.h"

#include <map>
#include <string>
#include <string_view>

namespace veltry {

/// Shows what an agent says and does as it comes: its words as they stream, a tool call in a line. Belongs to one
/// conversation and its executor, which it never blocks; its text is harmless on a terminal.
class AgentDisplay {
public:
    /// Writes to `file` what suits the terminal; `onFailure` is the Outlet's.
    AgentDisplay(
        const Terminal& terminal, const asio::any_io_executor& executor, FileDescriptor file,
        std::function<void()> onFailure)
        : terminal_(terminal), outlet_(executor, std::move(file), std::move(onFailure))
    {
    }

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
    /// The terminal has shown a key (^C), so that the next line needs one of its own.
    void keysEchoed();
    /// Ends the line that is open.
    void finish() { breakOff(); }

    /// As those of the Outlet.
    [[nodiscard]] asio::awaitable<void> room() { return outlet_.room(); }
    [[nodiscard]] asio::awaitable<void> written() { return outlet_.written(); }
    [[nodiscard]] std::exception_ptr failure() const { return outlet_.failure(); }
    void drop() { outlet_.drop(); }

private:
    enum class Flow { none, words, thoughts };

    void stream(Flow flow, const ContentBlock& block);
    void breakOff();
    void call(const std::string& id, const std::optional<std::string>& title, std::optional<ToolCallStatus> status);

    Terminal terminal_;
    Outlet outlet_;
    Flow flow_ = Flow::none;
    bool atLineStart_ = true;
    std::map<std::string, std::string> titles_; // of the calls that were announced
};

} // namespace veltry
