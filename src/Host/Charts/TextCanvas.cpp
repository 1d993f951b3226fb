#include "Host/Charts/TextCanvas.h"

#include "Base/Text.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace veltry {

namespace {

constexpr char32_t emptyBraille = U'\u2800';
// The bit of a dot in Unicode's braille patterns, by its row and column in the cell.
constexpr std::array<std::array<unsigned, 2>, 4> dotBits = {{{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}}};

/// Cuts a line at the sides of the unit square (Liang and Barsky); false if none of it lies within.
bool clip(double& fromX, double& fromY, double& toX, double& toY)
{
    const double deltaX = toX - fromX;
    const double deltaY = toY - fromY;
    double begin = 0;
    double end = 1;
    const std::array<std::array<double, 2>, 4> sides = {
        {{-deltaX, fromX}, {deltaX, 1 - fromX}, {-deltaY, fromY}, {deltaY, 1 - fromY}}};
    for (const auto& [towards, distance] : sides) {
        if (towards == 0) {
            if (distance < 0)
                return false;
        } else if (towards < 0) {
            begin = std::max(begin, distance / towards);
        } else {
            end = std::min(end, distance / towards);
        }
    }
    if (begin > end)
        return false;
    toX = fromX + end * deltaX;
    toY = fromY + end * deltaY;
    fromX += begin * deltaX;
    fromY += begin * deltaY;
    return true;
}

} // namespace

void TextCanvas::dot(std::size_t x, std::size_t y, Pen pen)
{
    const std::size_t across = isASCII_ ? 1 : 2;
    const std::size_t down = isASCII_ ? 1 : 4;
    Cell& cell = cells_[y / down * columns_ + x / across];
    cell.dots |= dotBits.at(y % down).at(x % across);
    cell.style = pen.style;
    cell.mark = pen.mark;
}

void TextCanvas::line(double fromX, double fromY, double toX, double toY, Pen pen)
{
    if (!clip(fromX, fromY, toX, toY))
        return;
    const auto across = static_cast<double>(dotsAcross() - 1);
    const auto down = static_cast<double>(dotsDown() - 1);
    const double stepsX = std::abs(toX - fromX) * across;
    const double stepsY = std::abs(toY - fromY) * down;
    const auto steps = static_cast<std::size_t>(std::max(1.0, std::ceil(std::max(stepsX, stepsY))));
    for (std::size_t step = 0; step <= steps; ++step) {
        const double share = static_cast<double>(step) / static_cast<double>(steps);
        const double x = fromX + (toX - fromX) * share;
        const double y = fromY + (toY - fromY) * share;
        dot(static_cast<std::size_t>(std::lround(x * across)), static_cast<std::size_t>(std::lround((1 - y) * down)),
            pen);
    }
}

void TextCanvas::rule(double y)
{
    const auto row = static_cast<std::size_t>(std::clamp((1 - y) * static_cast<double>(rows_), 0.0, double(rows_ - 1)));
    for (std::size_t column = 0; column < columns_; ++column)
        cells_[row * columns_ + column].isRule = true;
}

std::string TextCanvas::row(std::size_t index, const Terminal& terminal) const
{
    std::string text;
    std::string piece; // of one style
    Style style = Style::plain;
    for (std::size_t column = 0; column < columns_; ++column) {
        const Cell& cell = cells_[index * columns_ + column];
        const bool isDrawn = cell.dots != 0;
        const Style mine = isDrawn ? cell.style : Style::dim;
        if (mine != style) {
            text += terminal.styled(style, piece);
            piece.clear();
            style = mine;
        }
        if (!isDrawn)
            piece += !cell.isRule ? " " : isASCII_ ? "-" : "╌";
        else if (isASCII_)
            piece += cell.mark;
        else
            piece += text::fromScalars(std::u32string(1, emptyBraille + cell.dots));
    }
    return text + terminal.styled(style, piece);
}

} // namespace veltry
