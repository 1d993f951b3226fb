#include "Host/Charts/SVGCharts.h"

#include "Base/Numbers.h"
#include "Base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>

namespace veltry::SVGCharts {

namespace {

constexpr double narrowWidth = 560;
constexpr double gap = 24;
constexpr double wideWidth = 2 * narrowWidth + gap;
constexpr double margin = 28; // around a document
constexpr double plotTop = 10;
constexpr double plotHeight = 220;
constexpr double belowPlot = 42;   // tick labels and the axis' name
constexpr double rightOfPlot = 16; // at least: half of the last value stands there
constexpr double gutterBesideLabels = 16;
constexpr double digitWidth = 6.6; // of the labels' font
constexpr double titleSize = 14;
constexpr double titleWidth = 16; // the size of a font that is as wide without being bold
constexpr double noteSize = 12;
constexpr double titleHeight = 20; // of a line
constexpr double noteHeight = 18;
constexpr double aboveLegend = 10;
constexpr double legendSample = 22; // in front of a line's name, and the gap after it
constexpr std::size_t mostTitleLines = 3;
constexpr double roomOfATick = 90;
constexpr std::size_t ticksUp = 6;
constexpr std::size_t manyPoints = 300; // whose line is thinner, so that its noise can be seen

constexpr std::string_view styleText =
    ".t{font:600 14px system-ui,-apple-system,'Segoe UI',sans-serif;fill:#1c2024}"
    ".n{font:12px system-ui,-apple-system,'Segoe UI',sans-serif;fill:#5b6470}"
    ".v{font:600 20px system-ui,-apple-system,'Segoe UI',sans-serif;fill:#1c2024}"
    ".a{font:11px ui-monospace,'DejaVu Sans Mono',monospace;fill:#5b6470}"
    ".g{stroke:#e6e8eb;stroke-width:1}.f{stroke:#aab2bd;stroke-width:1}"
    ".r{stroke:#b42318;stroke-width:1.2;stroke-dasharray:6 4}"
    ".q{opacity:.28}.l{fill:none;stroke-linejoin:round;stroke-linecap:round}.b{fill:#fff}"
    ".s0{stroke:#1d4ed8}.s1{stroke:#c2570c}.s2{stroke:#0f8a5f}.s3{stroke:#a21caf}"
    ".s4{stroke:#9a6700}.s5{stroke:#be123c}.s6{stroke:#0e7490}.s7{stroke:#525252}"
    ".p4{fill:#9a6700}.p5{fill:#be123c}.p6{fill:#0e7490}.p7{fill:#525252}"
    ".p0{fill:#1d4ed8}.p1{fill:#c2570c}.p2{fill:#0f8a5f}.p3{fill:#a21caf}"
    "@media (prefers-color-scheme:dark){.t,.v{fill:#e8eaed}.n,.a{fill:#9aa4b2}.g{stroke:#2a2f37}.f{stroke:#59626f}"
    ".r{stroke:#ff8a7a}.b{fill:#14171c}"
    ".s0{stroke:#6ea8fe}.s1{stroke:#ffb057}.s2{stroke:#4ade9b}.s3{stroke:#ee82ff}"
    ".s4{stroke:#facc15}.s5{stroke:#fb7185}.s6{stroke:#67e8f9}.s7{stroke:#d4d4d4}"
    ".p4{fill:#facc15}.p5{fill:#fb7185}.p6{fill:#67e8f9}.p7{fill:#d4d4d4}"
    ".p0{fill:#6ea8fe}.p1{fill:#ffb057}.p2{fill:#4ade9b}.p3{fill:#ee82ff}}";

/// What a character takes of the font's size: as in DejaVu Sans, which is wider than what most browsers have.
double widthOf(char32_t scalar)
{
    if (scalar < 0x80) {
        constexpr std::string_view narrow = " !'(),./:;I[\\]fijlrt|";
        constexpr std::string_view wide = "%@MWmw";
        const char c = static_cast<char>(scalar);
        return narrow.contains(c) ? 0.42 : wide.contains(c) ? 1 : c >= 'A' && c <= 'Z' ? 0.74 : 0.65;
    }
    return 0.75 * static_cast<double>(text::columns(text::fromScalars(std::u32string(1, scalar))));
}

double widthOf(std::string_view text, double size)
{
    double width = 0;
    for (const char32_t scalar : text::scalars(text))
        width += size * widthOf(scalar);
    return width;
}

/// The text on lines of that width, broken at blanks where there are some; from one to `most`, the last one then cut.
std::vector<std::string> wrapped(std::string_view text, double width, double size, std::size_t most)
{
    std::u32string rest = text::scalars(text::oneLine(text));
    std::vector<std::string> lines;
    while (!rest.empty()) {
        double left = width;
        std::size_t end = 0;
        for (; end < rest.size() && left >= size * widthOf(rest[end]); ++end)
            left -= size * widthOf(rest[end]);
        if (end == rest.size()) {
            lines.push_back(text::fromScalars(rest));
            break;
        }
        if (lines.size() + 1 == most) {
            lines.push_back(text::fromScalars(rest.substr(0, std::max<std::size_t>(end, 2) - 2)) + "…");
            break;
        }
        if (const std::size_t blank = rest.rfind(U' ', end); blank != std::u32string::npos && blank > 0)
            end = blank;
        end = std::max<std::size_t>(end, 1);
        lines.push_back(text::fromScalars(rest.substr(0, end)));
        rest.erase(0, rest[end] == U' ' ? end + 1 : end);
    }
    if (lines.empty())
        lines.emplace_back();
    return lines;
}

/// Lines below each other, the first with its foot at `top`. Where the text had to be cut a pointer shows the whole.
std::string linesOf(
    const std::vector<std::string>& lines, std::string_view style, double top, double height, std::string_view whole)
{
    std::string text;
    for (std::size_t index = 0; index < lines.size(); ++index)
        text += fmt::format(
            R"(<text class="{}" y="{:.0f}">{}{}</text>)", style, top + static_cast<double>(index) * height,
            lines[index].ends_with("…") ? fmt::format("<title>{}</title>", escaped(whole)) : "", escaped(lines[index]));
    return text;
}

/// Where the names of a panel's lines stand, in rows that its width holds.
struct Legend {
    struct Entry {
        double left;
        std::size_t row;
        std::size_t pen;
        std::string text;
    };

    std::vector<Entry> entries;
    std::size_t rows = 1;

    Legend(const Chart& chart, double width)
    {
        double left = 0;
        for (const Chart::Line& line : chart.lines) {
            if (line.isFaint)
                continue;
            const std::string value = line.series->ys.empty() ? "" : " " + shortNumber(line.series->ys.back());
            const double room = width - legendSample - widthOf(value, noteSize);
            std::string text = wrapped(line.key, room, noteSize, 1).at(0) + value;
            const double taken = legendSample + widthOf(text, noteSize);
            if (left > 0 && left + taken > width) {
                left = 0;
                ++rows;
            }
            entries.push_back({.left = left, .row = rows - 1, .pen = line.pen % Chart::pens, .text = std::move(text)});
            left += taken + legendSample;
        }
    }
};

/// The points of a line as a path's data, in the plot's units. A point that can't be shown breaks the line.
std::string pathOf(const Chart& chart, const TelemetryCharts::Series& series, const Box& plot)
{
    std::string path;
    bool isOpen = false;
    for (std::size_t at = 0; at < series.xs.size(); ++at) {
        const std::optional<double> x = chart.x.place(series.xs[at]);
        const std::optional<double> y = chart.y.place(series.ys[at]);
        if (!x || !y) {
            isOpen = false;
            continue;
        }
        // Far beyond the plot a renderer's arithmetic ends before ours.
        const double up = std::clamp(*y, -100.0, 100.0);
        fmt::format_to(
            std::back_inserter(path), "{}{:.1f} {:.1f}{}", isOpen ? "L" : "M", plot.left + *x * plot.width,
            plot.top + (1 - up) * plot.height, isOpen ? "" : "h0"); // a point alone is a stroke of no length
        isOpen = true;
    }
    return path;
}

std::vector<Axis::Tick> ticksAcross(const Chart& chart, double width)
{
    return chart.x.ticksAcross(static_cast<std::size_t>(width / roomOfATick), width / digitWidth);
}

std::string gridOf(const Chart& chart, const Frame& frame)
{
    const Box& plot = frame.plot;
    std::string text;
    const double right = plot.left + plot.width;
    const double bottom = plot.top + plot.height;
    for (const Axis::Tick& tick : chart.y.ticks(ticksUp)) {
        const double y = plot.top + (1 - tick.place) * plot.height;
        text += fmt::format(
            R"(<line class="g" x1="{:.1f}" x2="{:.1f}" y1="{:.1f}" y2="{:.1f}"/>)"
            R"(<text class="a" x="{:.1f}" y="{:.1f}" text-anchor="end">{}</text>)",
            plot.left, right, y, y, plot.left - 8, y + 4, tick.label);
    }
    for (const Axis::Tick& tick : ticksAcross(chart, plot.width)) {
        const double x = plot.left + tick.place * plot.width;
        const double half = static_cast<double>(tick.label.size()) * digitWidth / 2;
        text += fmt::format(
            R"(<line class="f" x1="{:.1f}" x2="{:.1f}" y1="{:.1f}" y2="{:.1f}"/>)"
            R"(<text class="a" x="{:.1f}" y="{:.1f}" text-anchor="middle">{}</text>)",
            x, x, bottom, bottom + 5, std::clamp(x, half, std::max(half, frame.width - half)), bottom + 18, tick.label);
    }
    text += fmt::format(
        R"(<line class="f" x1="{:.1f}" x2="{:.1f}" y1="{:.1f}" y2="{:.1f}"/>)", plot.left, right, bottom, bottom);
    const std::string key = wrapped(chart.xKey, right, noteSize, 1).at(0);
    text += fmt::format(
        R"(<text class="n" x="{:.1f}" y="{:.1f}" text-anchor="end">{}</text>)", right, bottom + 35, escaped(key));
    return text;
}

std::string legendOf(const Legend& legend, double top)
{
    std::string text;
    for (const Legend::Entry& entry : legend.entries) {
        const double foot = top + static_cast<double>(entry.row) * noteHeight;
        text += fmt::format(
            R"(<line class="l s{}" stroke-width="2" x1="{:.0f}" x2="{:.0f}" y1="{:.0f}" y2="{:.0f}"/>)"
            R"(<text class="n" x="{:.0f}" y="{:.0f}">{}</text>)",
            entry.pen, entry.left, entry.left + 16, foot - 4, foot - 4, entry.left + legendSample, foot,
            escaped(entry.text));
    }
    return text;
}

/// A part of a document, moved to its place.
std::string at(double left, double top, const std::string& what)
{
    return fmt::format("<g transform=\"translate({:.0f} {:.0f})\">{}</g>\n", left, top, what);
}

std::string statsOf(const TelemetryCharts& charts, double& top)
{
    std::string text;
    double left = 0;
    for (const TelemetryCharts::Stat& stat : charts.stats) {
        const std::string value = stat.value ? shortNumber(*stat.value) : "–";
        const std::string title = wrapped(stat.title, wideWidth - 40, noteSize, 1).at(0);
        const double width = 40 + std::max(widthOf(title, noteSize), widthOf(value, 20));
        if (left > 0 && left + width > wideWidth) {
            left = 0;
            top += 60;
        }
        text += at(
            margin + left, top,
            fmt::format(R"(<text class="n" y="12">{}</text><text class="v" y="36">{}</text>)", escaped(title), value));
        left += width;
    }
    if (!charts.stats.empty())
        top += 60;
    return text;
}

} // namespace

std::string escaped(std::string_view text)
{
    std::string result;
    for (const char c : text::oneLine(text))
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        case '\'':
            result += "&#39;";
            break;
        default:
            result += c;
        }
    return result;
}

std::string_view style()
{
    return styleText;
}

Frame Frame::of(const Chart& chart)
{
    std::size_t longest = 1;
    for (const Axis::Tick& tick : chart.y.ticks(ticksUp))
        longest = std::max(longest, tick.label.size());
    const double left = gutterBesideLabels + static_cast<double>(longest) * digitWidth;
    const double width = chart.isWide ? wideWidth : narrowWidth;
    double right = rightOfPlot;
    for (const Axis::Tick& tick : ticksAcross(chart, width - left - right))
        right = std::max(
            right, static_cast<double>(tick.label.size()) * digitWidth / 2 - (1 - tick.place) * (width - left - right));
    return {
        .width = width,
        .height = plotTop + plotHeight + belowPlot,
        .plot = {.left = left, .top = plotTop, .width = width - left - right, .height = plotHeight}};
}

std::string panel(const Chart& chart, std::size_t number)
{
    const Frame frame = Frame::of(chart);
    const Box& plot = frame.plot;
    if (chart.isEmpty)
        return fmt::format(
            R"(<line class="f" x1="0" x2="{0:.0f}" y1="{1:.0f}" y2="{1:.0f}"/>)"
            R"(<text class="n" x="{2:.0f}" y="{3:.0f}" text-anchor="middle">{4}</text>)",
            frame.width, plot.top + plot.height, frame.width / 2, plot.top + plot.height / 2,
            escaped(wrapped(chart.nothing, frame.width, noteSize, 1).at(0)));
    std::string text = gridOf(chart, frame);
    text += fmt::format(
        R"(<clipPath id="c{}"><rect x="{:.1f}" y="{:.1f}" width="{:.1f}" height="{:.1f}"/></clipPath>)", number,
        plot.left - 2, plot.top - 2, plot.width + 4, plot.height + 4);
    text += fmt::format("<g clip-path=\"url(#c{})\">", number);
    if (chart.rule) {
        const double y = plot.top + (1 - *chart.y.place(*chart.rule)) * plot.height;
        text += fmt::format(
            R"(<line class="r" x1="{:.1f}" x2="{:.1f}" y1="{:.1f}" y2="{:.1f}"><title>{}</title></line>)", plot.left,
            plot.left + plot.width, y, y, shortNumber(*chart.rule));
    }
    for (const std::size_t index : chart.backToFront()) {
        const Chart::Line& line = chart.lines[index];
        const TelemetryCharts::Series& series = *line.series;
        const std::string path = pathOf(chart, series, plot);
        const bool isOnePoint = series.xs.size() == 1;
        const double width = isOnePoint ? 6 : series.xs.size() > manyPoints ? 1.1 : 1.8;
        if (!path.empty())
            text += fmt::format(
                R"(<path class="l s{}{}" stroke-width="{}" d="{}"/>)", line.pen % Chart::pens, line.isFaint ? " q" : "",
                width, path);
    }
    return text + "</g>";
}

std::string document(const TelemetryCharts& charts, std::string_view heading)
{
    double top = margin;
    const auto paragraph = [&](std::string_view text, std::string_view style, double size, double height) {
        const std::vector<std::string> lines = wrapped(text, wideWidth, size, mostTitleLines);
        std::string drawn = at(margin, top, linesOf(lines, style, noteSize, height, text));
        top += static_cast<double>(lines.size()) * height;
        return drawn;
    };
    std::string body = paragraph(heading, "t", titleWidth, titleHeight);
    top += 20;
    body += statsOf(charts, top);
    const std::vector<Chart> all = Chart::all(charts);
    bool isRight = false;
    double rowHeight = 0;
    for (std::size_t index = 0; index < all.size(); ++index) {
        const Chart& chart = all[index];
        if (isRight && chart.isWide) {
            top += rowHeight;
            isRight = false;
        }
        const Frame frame = Frame::of(chart);
        const auto title = wrapped(chart.title, frame.width, titleWidth, mostTitleLines);
        const Legend legend(chart, frame.width);
        const double titleEnd = static_cast<double>(title.size()) * titleHeight;
        const double head = titleEnd + aboveLegend + static_cast<double>(legend.rows) * noteHeight;
        const auto remark = wrapped(chart.remark(), frame.width, noteSize, mostTitleLines);
        const double foot = head + frame.height;
        body +=
            at(margin + (isRight ? narrowWidth + gap : 0), top,
               linesOf(title, "t", titleSize, titleHeight, chart.title) +
                   legendOf(legend, titleEnd + aboveLegend / 2 + noteSize) + at(0, head, panel(chart, index)) +
                   linesOf(remark, "n", foot + 2, noteHeight, ""));
        const double height = foot + static_cast<double>(std::max<std::size_t>(remark.size(), 1)) * noteHeight + gap;
        rowHeight = std::max(isRight ? rowHeight : 0.0, height);
        isRight = !isRight && !chart.isWide;
        if (!isRight)
            top += rowHeight;
    }
    if (isRight)
        top += rowHeight;
    const std::string last = charts.isEmpty() ? "The run has written no telemetry." : droppedWords(charts.dropped);
    if (!last.empty()) {
        body += paragraph(last, "n", noteSize, noteHeight);
        top += 6;
    }
    const double width = wideWidth + 2 * margin;
    return fmt::format(
        R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {0:.0f} {1:.0f}" width="{0:.0f}" height="{1:.0f}">)"
        "\n<title>{2}</title>\n<style>{3}</style>\n<rect class=\"b\" width=\"100%\" height=\"100%\"/>\n{4}</svg>\n",
        width, top + margin, escaped(heading), styleText, body);
}

} // namespace veltry::SVGCharts
