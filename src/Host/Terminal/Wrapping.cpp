#include "Host/Terminal/Wrapping.h"

#include "Base/Text.h"

#include <utility>

namespace veltry {

namespace {

/// One line's words, put into as many lines as they take.
void wrapLine(std::string_view line, std::size_t columns, LongWords longWords, std::vector<std::string>& lines)
{
    std::string current;
    for (std::string_view word : text::split(line, ' ')) {
        if (!current.empty() && text::columns(current) + 1 + text::columns(word) > columns)
            lines.push_back(std::exchange(current, ""));
        while (longWords == LongWords::broken && text::columns(word) > columns) {
            const std::string_view part = text::firstColumns(word, columns);
            if (part.empty())
                break; // a sign wider than the column
            lines.emplace_back(part);
            word.remove_prefix(part.size());
        }
        current += (current.empty() ? "" : " ") + std::string(word);
    }
    lines.push_back(std::move(current));
}

} // namespace

std::vector<std::string> wrapped(std::string_view text, std::size_t columns, LongWords longWords)
{
    std::vector<std::string> lines;
    if (text.empty())
        return lines;
    for (const std::string_view line : text::split(text, '\n'))
        wrapLine(text::oneLine(line), columns, longWords, lines);
    return lines;
}

} // namespace veltry
