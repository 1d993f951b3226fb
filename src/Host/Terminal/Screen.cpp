#include "Host/Terminal/Screen.h"

#include "Base/Text.h"

#include <fmt/format.h>

namespace veltry {

namespace {

constexpr std::string_view enter = "\033[?1049h\033[?25l"; // the second screen, without a cursor
constexpr std::string_view leave = "\033[?25h\033[?1049l";
constexpr std::string_view home = "\033[H";
constexpr std::string_view clearToLineEnd = "\033[K";
constexpr std::string_view clearBelow = "\033[J";

} // namespace

Screen::Screen(const Terminal& terminal) : terminal_(&terminal)
{
    if (!terminal.canRedraw())
        return;
    undo_.emplace(leave);
    terminal.write(enter);
}

void Screen::show(std::string_view view)
{
    if (!undo_) {
        terminal_->write(isFirst_ ? std::string(view) : "\n" + std::string(view));
        isFirst_ = false;
        return;
    }
    std::vector<std::string_view> lines = text::split(view, '\n');
    if (!lines.empty() && lines.back().empty())
        lines.pop_back();
    const std::size_t rows = terminal_->size()->rows;
    std::string text(home);
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const bool isLastRow = index + 1 == rows;
        if (isLastRow && lines.size() > rows)
            text += terminal_->styled(Style::dim, fmt::format("{} lines more", lines.size() - index));
        else
            text += lines[index];
        text += clearToLineEnd;
        if (isLastRow)
            break;
        text += "\r\n";
    }
    terminal_->write(text.append(clearBelow));
}

} // namespace veltry
