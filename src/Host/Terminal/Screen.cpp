#include "Host/Terminal/Screen.h"

#include "Base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <limits>

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
    const bool isLonger = lines.size() > rows;
    const std::size_t room = isLonger && rows > 0 ? rows - 1 : rows;
    top_ = isLonger ? std::min(top_, lines.size() - room) : 0;
    std::string text(home);
    for (std::size_t row = 0; row < std::min(rows, lines.size()); ++row) {
        const std::size_t index = top_ + row;
        if (isLonger && row == room)
            text += terminal_->styled(
                Style::dim, top_ > 0 ? fmt::format("{} lines above, {} below", top_, lines.size() - index)
                                     : fmt::format("{} lines more", lines.size() - index));
        else
            text += lines[index];
        text += clearToLineEnd;
        if (row + 1 < rows)
            text += "\r\n";
    }
    terminal_->write(text.append(clearBelow));
}

Screen::Wish Screen::typed(std::string_view keys)
{
    const std::optional<Terminal::Size> size = terminal_->size();
    const std::size_t page = size && size->rows > 2 ? size->rows - 2 : 1;
    constexpr std::size_t end = std::numeric_limits<std::size_t>::max() / 2; // show() knows how far it is
    const auto up = [&](std::size_t lines) { top_ -= std::min(top_, lines); };
    const auto down = [&](std::size_t lines) { top_ = std::min(end, top_ + lines); };
    const struct {
        std::string_view sequence;
        std::function<void()> act;
    } known[] = {
        {"\033[A", [&] { up(1); }},     {"\033OA", [&] { up(1); }},   {"k", [&] { up(1); }},
        {"\033[B", [&] { down(1); }},   {"\033OB", [&] { down(1); }}, {"j", [&] { down(1); }},
        {"\033[5~", [&] { up(page); }}, {"b", [&] { up(page); }},     {"\033[6~", [&] { down(page); }},
        {" ", [&] { down(page); }},     {"g", [&] { up(end); }},      {"G", [&] { down(end); }},
    };
    Wish wish = Wish::nothing;
    while (!keys.empty()) {
        if (keys.front() == 'q')
            return Wish::quit;
        const auto key = std::ranges::find_if(known, [&](const auto& each) { return keys.starts_with(each.sequence); });
        if (key != std::end(known)) {
            key->act();
            wish = Wish::scroll;
            keys.remove_prefix(key->sequence.size());
        } else {
            // The letters of another special key's sequence aren't keys.
            keys.remove_prefix(keys.front() == '\033' ? keys.size() : 1);
        }
    }
    return wish;
}

} // namespace veltry
