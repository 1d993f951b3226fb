#pragma once

#include "Host/Terminal/Terminal.h"

#include <cstddef>
#include <string>
#include <vector>

namespace veltry {

/// A drawing made of a terminal's characters: of braille, 2 by 4 dots in each cell, or in ASCII a mark for each cell.
class TextCanvas {
public:
    TextCanvas(std::size_t columns, std::size_t rows, bool isASCII)
        : columns_(columns), rows_(rows), isASCII_(isASCII), cells_(columns * rows)
    {
    }

    /// How a line looks: by its colour and, in ASCII, by its mark.
    struct Pen {
        Style style;
        char mark;
    };

    /// Both ends from 0 (left, bottom) to 1. What lies outside isn't drawn.
    void line(double fromX, double fromY, double toX, double toY, Pen pen);
    /// From side to side, behind the lines.
    void rule(double y);

    /// One row from the top.
    [[nodiscard]] std::string row(std::size_t index, const Terminal& terminal) const;

private:
    struct Cell {
        unsigned dots = 0; ///< as braille numbers them
        Style style = Style::plain;
        char mark = ' ';
        bool isRule = false;
    };

    [[nodiscard]] std::size_t dotsAcross() const { return columns_ * (isASCII_ ? 1 : 2); }
    [[nodiscard]] std::size_t dotsDown() const { return rows_ * (isASCII_ ? 1 : 4); }
    void dot(std::size_t x, std::size_t y, Pen pen);

    std::size_t columns_;
    std::size_t rows_;
    bool isASCII_;
    std::vector<Cell> cells_;
};

} // namespace veltry
