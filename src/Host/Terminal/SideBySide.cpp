#include "Host/Terminal/SideBySide.h"

#include "Base/Text.h"
#include "Host/Terminal/TextTable.h"
#include "Host/Terminal/Wrapping.h"

#include <algorithm>

namespace veltry {

namespace {

constexpr std::size_t pageColumns = 100;
constexpr std::size_t gap = 2;
// In fewer columns nearly every word would be cut.
constexpr std::size_t fewestColumns = 8;

} // namespace

std::string sideBySide(
    const std::vector<std::string>& headings, const std::vector<std::string>& texts, const Terminal& terminal)
{
    const std::size_t width = terminal.size() ? terminal.size()->columns : pageColumns;
    const std::size_t each = std::max(fewestColumns, (width + gap) / std::max<std::size_t>(texts.size(), 1) - gap);
    std::vector<TextTable::Column> columns;
    std::vector<std::vector<std::string>> lines;
    std::size_t most = 0;
    for (std::size_t index = 0; index < texts.size(); ++index) {
        columns.push_back({.heading = fitted(text::oneLine(headings[index]), each, terminal)});
        lines.push_back(wrapped(texts[index], each));
        most = std::max(most, lines.back().size());
    }
    TextTable table(std::move(columns));
    for (std::size_t row = 0; row < most; ++row) {
        std::vector<TextTable::Cell> cells;
        for (const std::vector<std::string>& column : lines)
            cells.push_back({row < column.size() ? column[row] : ""});
        table.add(std::move(cells));
    }
    return table.text(terminal);
}

} // namespace veltry
