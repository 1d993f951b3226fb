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
        bool toTheRight = false;   ///< numbers
        bool mayBeCut = false;     ///< gives way, ending in "…", where the terminal is too narrow; else the last does
        bool mayBeLeftOut = false; ///< before any is cut, the last of these go as a whole
    };

    struct Cell {
        std::string text; ///< on one line; control characters are made harmless
        Style style = Style::plain;
    };

    explicit TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {}

    /// One cell for each column; missing ones are empty.
    void add(std::vector<Cell> row);

    [[nodiscard]] bool isEmpty() const { return rows_.empty(); }

    /// The lines, each with its line feed; cut to the terminal's width where it is one. The headings of columns that
    /// were left out are added to `leftOut`.
    [[nodiscard]] std::string text(const Terminal& terminal, std::vector<std::string>* leftOut = nullptr) const;

private:
    /// The width of each column; nothing for one that is left out.
    [[nodiscard]] std::vector<std::optional<std::size_t>> widths(const Terminal& terminal) const;

    std::vector<Column> columns_;
    std::vector<std::vector<Cell>> rows_;
};

/// The text in at most `columns` columns; what is cut ends in "…" ("..." without UTF-8).
[[nodiscard]] std::string fitted(std::string_view text, std::size_t columns, const Terminal& terminal);

} // namespace veltry
