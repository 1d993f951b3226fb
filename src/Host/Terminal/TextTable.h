#pragma once

#include "Host/Terminal/Terminal.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// Rows of cells in aligned columns.
class TextTable {
public:
    struct Column {
        std::string heading;       ///< no line of headings is made where all are empty
        bool toTheRight = false;   ///< numbers, which are never cut; their decimal points stand below each other
        bool mayBeCut = false;     ///< gives way first, ending in "…", where the terminal is too narrow
        unsigned lessAskedFor = 0; ///< those of the greatest number go as a whole before any is cut; 0 doesn't
        bool stays = false;        ///< is never left out
    };

    struct Cell {
        std::string text; ///< on one line; control characters are made harmless
        Style style = Style::plain;
    };

    explicit TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {}

    /// One cell for each column; missing ones are empty.
    void add(std::vector<Cell> row);

    [[nodiscard]] bool isEmpty() const { return rows_.empty(); }

    /// The lines, each with its line feed; made to fit the terminal's width where it is one. Columns that are left out,
    /// empty ones first, are added to `leftOut` by their headings, or told in a line of their own without it.
    [[nodiscard]] std::string text(const Terminal& terminal, std::vector<std::string>* leftOut = nullptr) const;

private:
    /// The width of each column; nothing for one that is left out.
    [[nodiscard]] std::vector<std::optional<std::size_t>> widths(const Terminal& terminal) const;
    [[nodiscard]] bool isEmpty(std::size_t column) const;
    void alignDecimals(std::size_t column);
    [[nodiscard]] std::string fittedText(const Terminal& terminal, std::vector<std::string>& leftOut) const;

    std::vector<Column> columns_;
    std::vector<std::vector<Cell>> rows_;
};

/// The text in at most `columns` columns; what is cut ends in "…" ("..." without UTF-8).
[[nodiscard]] std::string fitted(std::string_view text, std::size_t columns, const Terminal& terminal);

} // namespace veltry
