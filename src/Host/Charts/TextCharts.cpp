#include "Host/Charts/TextCharts.h"

#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Host/Charts/Chart.h"
#include "Host/Charts/TextCanvas.h"
#include "Host/Terminal/TextTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace veltry::TextCharts {

namespace {

constexpr std::size_t leastColumns = 40;
constexpr std::size_t usualPlotRows = 10;
constexpr std::size_t leastPlotRows = 4;
constexpr std::size_t mostPlotRows = 16;
constexpr std::size_t rowsBesidePlot = 6;  // title, legend, axis, its labels and name, a blank line
constexpr std::size_t columnsForTwo = 110; // fewer would squeeze two panels beside each other
constexpr std::size_t gap = 4;
constexpr std::size_t columnsOfATick = 12; // along the horizontal axis
constexpr std::size_t ticksUp = 5;

constexpr std::array<TextCanvas::Pen, Chart::pens> pens = {{
    {Style::cyan, '*'},
    {Style::yellow, '+'},
    {Style::magenta, 'o'},
    {Style::green, 'x'},
    {Style::red, '#'},
    {Style::blue, '@'},
    {Style::bold, '%'},
    {Style::dim, '='},
}};

/// Characters of the frame.
struct Strokes {
    std::string_view side, tick, corner, bottom, bottomTick, sample;
};

const Strokes& strokes(const Terminal& terminal)
{
    static constexpr Strokes drawn = {"│", "┤", "└", "─", "┬", "⠶"};
    static constexpr Strokes ascii = {"|", "+", "+", "-", "+", ""};
    return terminal.isUTF8() ? drawn : ascii;
}

using Block = std::vector<std::string>; // lines, each of them filled to the panel's width

/// Draws one panel in `columns` columns.
class PanelText {
public:
    PanelText(const Chart& chart, const Terminal& terminal, std::size_t columns, std::size_t plotRows)
        : chart_(chart), terminal_(terminal), strokes_(strokes(terminal)), columns_(columns), plotRows_(plotRows),
          up_(chart.y.ticks(std::min(ticksUp, plotRows)))
    {
        for (const Axis::Tick& tick : up_)
            gutter_ = std::max(gutter_, tick.label.size());
    }

    Block lines()
    {
        addLine({{chart_.title, Style::bold}});
        addLegend();
        if (chart_.isEmpty) {
            addLine({{chart_.nothing, Style::dim}});
            return std::move(lines_);
        }
        addPlot();
        addBottom();
        if (const std::string remark = chart_.remark(); !remark.empty())
            addLine({{std::string(gutter_ + 2, ' ') + remark, Style::dim}});
        return std::move(lines_);
    }

private:
    struct Piece {
        std::string text;
        Style style;
    };

    /// The pieces on one line, cut and filled to the width.
    void addLine(const std::vector<Piece>& pieces)
    {
        std::string line;
        std::size_t left = columns_;
        for (const Piece& piece : pieces) {
            const std::string shown = fitted(text::oneLine(piece.text), left, terminal_);
            left -= std::min(left, text::columns(shown));
            line += terminal_.styled(piece.style, shown);
        }
        lines_.push_back(line.append(left, ' '));
    }

    void addLegend()
    {
        std::vector<Piece> pieces;
        for (std::size_t index = 0; index < chart_.lines.size(); ++index) {
            const Chart::Line& line = chart_.lines[index];
            if (line.isFaint)
                continue;
            const TextCanvas::Pen pen = pens.at(line.pen % pens.size());
            const std::string sample =
                terminal_.isUTF8() ? std::string(strokes_.sample).append(strokes_.sample) : std::string(2, pen.mark);
            if (!pieces.empty())
                pieces.push_back({"   ", Style::plain});
            pieces.push_back({sample + " ", pen.style});
            pieces.push_back({line.key, Style::plain});
            if (!line.series->ys.empty())
                pieces.push_back({" " + shortNumber(line.series->ys.back()), Style::dim});
        }
        addLine(pieces);
    }

    void draw(TextCanvas& canvas) const
    {
        if (chart_.rule)
            canvas.rule(*chart_.y.place(*chart_.rule));
        for (const std::size_t index : chart_.backToFront()) {
            if (chart_.lines[index].isFaint) // a terminal's cell has one colour
                continue;
            const TextCanvas::Pen pen = pens.at(chart_.lines[index].pen % pens.size());
            const TelemetryCharts::Series& series = *chart_.lines[index].series;
            std::optional<std::array<double, 2>> last;
            for (std::size_t at = 0; at < series.xs.size(); ++at) {
                const std::optional<double> x = chart_.x.place(series.xs[at]);
                const std::optional<double> y = chart_.y.place(series.ys[at]);
                if (!x || !y) {
                    last.reset();
                    continue;
                }
                const std::array<double, 2> here = {*x, *y};
                const std::array<double, 2> from = last.value_or(here);
                canvas.line(from[0], from[1], here[0], here[1], pen);
                last = here;
            }
        }
    }

    void addPlot()
    {
        const std::size_t width = columns_ - gutter_ - 1;
        TextCanvas canvas(width, plotRows_, !terminal_.isUTF8());
        draw(canvas);
        std::vector<std::string> labels(plotRows_);
        for (const Axis::Tick& tick : up_)
            labels.at(static_cast<std::size_t>(std::lround((1 - tick.place) * static_cast<double>(plotRows_ - 1)))) =
                tick.label;
        for (std::size_t row = 0; row < plotRows_; ++row) {
            const std::string& label = labels.at(row);
            const std::string side(label.empty() ? strokes_.side : strokes_.tick);
            lines_.push_back(
                terminal_.styled(Style::dim, fmt::format("{:>{}}", label, gutter_) + side) +
                canvas.row(row, terminal_));
        }
    }

    void addBottom()
    {
        const std::size_t width = columns_ - gutter_ - 1;
        std::vector<std::string_view> line(width, strokes_.bottom);
        std::string labels(width, ' ');
        std::size_t free = 0; // where the next label may begin
        for (const Axis::Tick& tick : chart_.x.ticksAcross(width / columnsOfATick, static_cast<double>(width))) {
            const auto at = static_cast<std::size_t>(std::lround(tick.place * static_cast<double>(width - 1)));
            line[at] = strokes_.bottomTick;
            const std::size_t half = tick.label.size() / 2;
            const std::size_t start = std::min(at - std::min(at, half), width - std::min(width, tick.label.size()));
            if (start < free || tick.label.size() > width)
                continue;
            labels.replace(start, tick.label.size(), tick.label);
            free = start + tick.label.size() + 1;
        }
        std::string bottom = std::string(gutter_, ' ').append(strokes_.corner);
        for (const std::string_view stroke : line)
            bottom += stroke;
        lines_.push_back(terminal_.styled(Style::dim, bottom));
        addLine({{std::string(gutter_ + 1, ' ') + labels, Style::dim}});
        const std::string key = fitted(chart_.xKey, width, terminal_);
        addLine({{std::string(columns_ - text::columns(key), ' ') + key, Style::dim}});
    }

    const Chart& chart_;
    const Terminal& terminal_;
    const Strokes& strokes_;
    std::size_t columns_;
    std::size_t plotRows_;
    std::vector<Axis::Tick> up_;
    std::size_t gutter_ = 1;
    Block lines_;
};

std::string statLine(const TelemetryCharts& charts, const Terminal& terminal, std::size_t columns)
{
    std::string text;
    std::size_t taken = 0;
    for (const TelemetryCharts::Stat& stat : charts.stats) {
        const std::string title = fitted(text::oneLine(stat.title), columns / 2, terminal);
        const std::string value = stat.value ? shortNumber(*stat.value) : std::string(terminal.isUTF8() ? "–" : "-");
        const std::size_t width = text::columns(title) + 1 + text::columns(value);
        if (taken > 0 && taken + 3 + width > columns) {
            text += '\n';
            taken = 0;
        }
        text +=
            (taken > 0 ? "   " : "") + terminal.styled(Style::dim, title) + " " + terminal.styled(Style::bold, value);
        taken += (taken > 0 ? 3 : 0) + width;
    }
    return text.empty() ? text : text + "\n\n";
}

/// Two blocks beside each other, the shorter one filled up.
Block beside(Block left, const Block& right, std::size_t width)
{
    const std::size_t leftLines = left.size();
    left.resize(std::max(leftLines, right.size()), std::string(width, ' '));
    for (std::size_t row = 0; row < right.size(); ++row)
        left[row] += std::string(gap, ' ') + right[row];
    return left;
}

/// The panels that stand on one row: one, or two beside each other.
std::vector<std::vector<const Chart*>> rowsOf(const std::vector<Chart>& charts, bool isTwo)
{
    std::vector<std::vector<const Chart*>> rows;
    for (const Chart& chart : charts) {
        const bool fits = isTwo && !chart.isWide && !rows.empty() && rows.back().size() == 1 && !rows.back()[0]->isWide;
        if (fits)
            rows.back().push_back(&chart);
        else
            rows.push_back({&chart});
    }
    return rows;
}

/// Whether the values beside a plot of that height have as many rows between them as their places have room.
bool sitEvenly(const Chart& chart, std::size_t plotRows)
{
    const std::vector<Axis::Tick> ticks = chart.y.ticks(std::min(ticksUp, plotRows));
    const auto room = [&](std::size_t at) {
        return (ticks[at].place - ticks[at - 1].place) * static_cast<double>(plotRows - 1);
    };
    bool isEven = true;
    for (std::size_t at = 1; at < ticks.size(); ++at)
        isEven = isEven && std::abs(room(at) - std::round(room(at))) < 0.01;
    return isEven;
}

/// At most `rows`, and a few less where the values beside the plots then sit evenly.
std::size_t evenRows(const std::vector<const Chart*>& charts, std::size_t rows)
{
    constexpr std::size_t fewer = 3;
    for (std::size_t less = 0; less <= fewer && rows >= leastPlotRows + less; ++less)
        if (std::ranges::all_of(charts, [&](const Chart* chart) { return sitEvenly(*chart, rows - less); }))
            return rows - less;
    return rows;
}

std::size_t plotRowsFor(std::optional<std::size_t> rows, std::size_t taken, std::size_t panelRows)
{
    if (!rows || panelRows == 0)
        return usualPlotRows;
    const std::size_t each = *rows > taken ? (*rows - taken) / panelRows : 0;
    return std::clamp(each > rowsBesidePlot ? each - rowsBesidePlot : 0, leastPlotRows, mostPlotRows);
}

} // namespace

std::string of(const TelemetryCharts& charts, const Terminal& terminal, Room room)
{
    const std::size_t columns = std::max(room.columns, leastColumns);
    const std::size_t half = (columns - gap) / 2;
    std::string text = statLine(charts, terminal, columns);
    const std::string dropped = droppedWords(charts.dropped);
    const std::vector<Chart> all = Chart::all(charts);
    const auto rows = rowsOf(all, columns >= columnsForTwo);
    const auto taken = static_cast<std::size_t>(std::ranges::count(text, '\n')) + (dropped.empty() ? 0 : 1);
    const std::size_t plotRows = plotRowsFor(room.rows, taken, rows.size());
    for (const std::vector<const Chart*>& row : rows) {
        const std::size_t high = evenRows(row, plotRows);
        Block block = PanelText(*row.front(), terminal, row.size() == 1 ? columns : half, high).lines();
        if (row.size() == 2)
            block = beside(std::move(block), PanelText(*row.back(), terminal, half, high).lines(), half);
        for (std::string& line : block) {
            line.erase(line.find_last_not_of(' ') + 1);
            text += line + '\n';
        }
        text += '\n';
    }
    if (!dropped.empty())
        text += terminal.styled(Style::yellow, fitted(dropped, columns, terminal)) + "\n";
    return text;
}

} // namespace veltry::TextCharts
