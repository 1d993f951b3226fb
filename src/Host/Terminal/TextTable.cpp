#include "Host/Terminal/TextTable.h"

#include "Base/Numbers.h"
#include "Base/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace veltry {

namespace {

constexpr std::size_t gap = 2;
constexpr std::size_t narrowest = 4; // of a column that is cut

std::string padded(const std::string& text, std::size_t width, bool toTheRight)
{
    const std::size_t taken = text::columns(text);
    const std::string blanks(width > taken ? width - taken : 0, ' ');
    return toTheRight ? blanks + text : text + blanks;
}

bool isPlainNumber(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("+-.0123456789e") == std::string_view::npos;
}

} // namespace

std::string fitted(std::string_view text, std::size_t columns, const Terminal& terminal)
{
    if (text::columns(text) <= columns)
        return std::string(text);
    const std::string_view mark = terminal.isUTF8() ? "…" : "...";
    if (columns <= text::columns(mark))
        return std::string(text::firstColumns(text, columns));
    return std::string(text::firstColumns(text, columns - text::columns(mark))).append(mark);
}

void TextTable::add(std::vector<Cell> row)
{
    for (Cell& cell : row)
        cell.text = text::oneLine(cell.text);
    rows_.push_back(std::move(row));
}

bool TextTable::isEmpty(std::size_t column) const
{
    return std::ranges::all_of(
        rows_, [&](const std::vector<Cell>& row) { return column >= row.size() || row[column].text.empty(); });
}

void TextTable::alignDecimals(std::size_t column)
{
    std::size_t longest = 0;
    for (const bool isMeasured : {false, true})
        for (std::vector<Cell>& row : rows_) {
            if (column >= row.size() || !isPlainNumber(row[column].text))
                continue;
            std::string& number = row[column].text;
            const std::size_t behind = number.size() - std::min(number.find_first_of(".e"), number.size());
            if (isMeasured)
                number.append(longest - behind, ' ');
            longest = std::max(longest, behind);
        }
}

std::vector<std::optional<std::size_t>> TextTable::widths(const Terminal& terminal) const
{
    std::vector<std::optional<std::size_t>> widths;
    for (const Column& column : columns_)
        widths.emplace_back(text::columns(column.heading));
    for (const std::vector<Cell>& row : rows_)
        for (std::size_t index = 0; index < row.size(); ++index)
            widths[index] = std::max(*widths[index], text::columns(row[index].text));
    const std::optional<Terminal::Size> size = terminal.size();
    if (!size)
        return widths;
    std::size_t total = gap * (widths.size() - 1);
    for (const std::optional<std::size_t>& width : widths)
        total += *width;
    // The last of those for which it holds, while there are too many.
    const auto leaveOut = [&](const auto& which) {
        for (std::size_t index = columns_.size(); index-- > 0 && total > size->columns;)
            if (widths[index] && !columns_[index].stays && which(index)) {
                total -= *widths[index] + gap;
                widths[index].reset();
            }
    };
    leaveOut([&](std::size_t index) { return index > 0 && isEmpty(index); });
    unsigned least = 0;
    for (const Column& column : columns_)
        least = std::max(least, column.lessAskedFor);
    for (; least > 0; --least)
        leaveOut([&](std::size_t index) { return columns_[index].lessAskedFor == least; });
    const auto give = [&](std::size_t index) {
        if (!widths[index])
            return;
        const std::size_t most = *widths[index] > narrowest ? *widths[index] - narrowest : 0;
        const std::size_t given = std::min(most, total > size->columns ? total - size->columns : 0);
        *widths[index] -= given;
        total -= given;
    };
    for (std::size_t index = columns_.size(); index-- > 0;)
        if (columns_[index].mayBeCut)
            give(index);
    for (std::size_t index = columns_.size(); index-- > 0;)
        if (!columns_[index].toTheRight)
            give(index);
    leaveOut([&](std::size_t index) { return index > 0 && columns_[index].toTheRight; });
    return widths;
}

std::string TextTable::text(const Terminal& terminal, std::vector<std::string>* leftOut) const
{
    TextTable aligned = *this;
    for (std::size_t index = 0; index < columns_.size(); ++index)
        if (columns_[index].toTheRight)
            aligned.alignDecimals(index);
    std::vector<std::string> unshown;
    std::string text = aligned.fittedText(terminal, leftOut ? *leftOut : unshown);
    if (!unshown.empty())
        text += terminal.styled(
                    Style::dim, fitted(
                                    fmt::format(
                                        "{} not shown, the terminal is too narrow: {}",
                                        counted(static_cast<std::int64_t>(unshown.size()), "column", "columns"),
                                        text::oneLine(text::joined(unshown, ", "))),
                                    terminal.size()->columns, terminal)) +
                "\n";
    return text;
}

std::string TextTable::fittedText(const Terminal& terminal, std::vector<std::string>& leftOut) const
{
    const std::vector<std::optional<std::size_t>> width = widths(terminal);
    for (std::size_t index = 0; index < columns_.size(); ++index)
        if (!width[index] && !columns_[index].heading.empty())
            leftOut.push_back(columns_[index].heading);
    std::string text;
    const auto addLine = [&](const auto& cellAt, std::size_t cells) {
        std::string line;
        for (std::size_t index = 0; index < cells; ++index) {
            if (!width[index])
                continue;
            const Cell& cell = cellAt(index);
            std::string shown = fitted(cell.text, *width[index], terminal);
            const bool isLast = index + 1 == cells;
            if (!isLast || columns_[index].toTheRight)
                shown = padded(shown, *width[index], columns_[index].toTheRight);
            line += terminal.styled(cell.style, shown);
            if (!isLast)
                line.append(gap, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + '\n';
    };
    if (std::ranges::any_of(columns_, [](const Column& column) { return !column.heading.empty(); }))
        addLine(
            [&](std::size_t index) { return Cell{text::oneLine(columns_[index].heading), Style::dim}; },
            columns_.size());
    for (const std::vector<Cell>& row : rows_)
        addLine([&](std::size_t index) -> const Cell& { return row[index]; }, row.size());
    return text;
}

} // namespace veltry
