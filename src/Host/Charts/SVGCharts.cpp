#include "Host/Charts/SVGCharts.h"

#include "Base/Text.h"
#include "Host/Terminal/Numbers.h"

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
constexpr double belowPlot = 42; // tick labels and the axis' name
constexpr double rightOfPlot = 16;
constexpr double gutterBesideLabels = 16;
constexpr double digitWidth = 6.6; // of the labels' font
constexpr double headHeight = 48;  // title and legend above a panel
constexpr double remarkHeight = 18;
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
    ".l{fill:none;stroke-linejoin:round;stroke-linecap:round}.b{fill:#fff}"
    ".s0{stroke:#1d4ed8}.s1{stroke:#c2570c}.s2{stroke:#0f8a5f}.s3{stroke:#a21caf}"
    ".p0{fill:#1d4ed8}.p1{fill:#c2570c}.p2{fill:#0f8a5f}.p3{fill:#a21caf}"
    "@media (prefers-color-scheme:dark){.t,.v{fill:#e8eaed}.n,.a{fill:#9aa4b2}.g{stroke:#2a2f37}.f{stroke:#59626f}"
    ".r{stroke:#ff8a7a}.b{fill:#14171c}"
    ".s0{stroke:#6ea8fe}.s1{stroke:#ffb057}.s2{stroke:#4ade9b}.s3{stroke:#ee82ff}"
    ".p0{fill:#6ea8fe}.p1{fill:#ffb057}.p2{fill:#4ade9b}.p3{fill:#ee82ff}}";

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

std::string gridOf(const Chart& chart, const Box& plot)
{
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
    const std::vector<Axis::Tick> across = chart.x.ticks(static_cast<std::size_t>(plot.width / roomOfATick));
    for (const Axis::Tick& tick : across) {
        const double x = plot.left + tick.place * plot.width;
        text += fmt::format(
            R"(<line class="f" x1="{:.1f}" x2="{:.1f}" y1="{:.1f}" y2="{:.1f}"/>)"
            R"(<text class="a" x="{:.1f}" y="{:.1f}" text-anchor="{}">{}</text>)",
            x, x, bottom, bottom + 5, x, bottom + 18, tick.place > 0.97 ? "end" : "middle", tick.label);
    }
    text += fmt::format(
        R"(<line class="f" x1="{:.1f}" x2="{:.1f}" y1="{:.1f}" y2="{:.1f}"/>)", plot.left, right, bottom, bottom);
    text += fmt::format(
        R"(<text class="n" x="{:.1f}" y="{:.1f}" text-anchor="end">{}</text>)", right, bottom + 35,
        escaped(chart.xKey));
    return text;
}

std::string legendOf(const Chart& chart, double top)
{
    std::string text;
    double left = 0;
    for (std::size_t index = 0; index < chart.lines.size(); ++index) {
        const Chart::Line& line = chart.lines[index];
        const std::string value = line.series->ys.empty() ? "" : " " + shortNumber(line.series->ys.back());
        text += fmt::format(
            R"(<line class="l s{}" stroke-width="2" x1="{:.0f}" x2="{:.0f}" y1="{:.0f}" y2="{:.0f}"/>)"
            R"(<text class="n" x="{:.0f}" y="{:.0f}">{}</text>)",
            index, left, left + 16, top - 4, top - 4, left + 22, top, escaped(line.key + value));
        left += 22 + static_cast<double>(text::columns(line.key + value)) * digitWidth + 22;
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
        const double width = 40 + std::max(
                                      static_cast<double>(text::columns(stat.title)) * digitWidth,
                                      static_cast<double>(text::columns(value)) * 12);
        if (left > 0 && left + width > wideWidth) {
            left = 0;
            top += 60;
        }
        text +=
            at(margin + left, top,
               fmt::format(
                   R"(<text class="n" y="12">{}</text><text class="v" y="36">{}</text>)", escaped(stat.title), value));
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
    return {
        .width = width,
        .height = plotTop + plotHeight + belowPlot,
        .plot = {.left = left, .top = plotTop, .width = width - left - rightOfPlot, .height = plotHeight}};
}

std::string panel(const Chart& chart, std::size_t number)
{
    const Frame frame = Frame::of(chart);
    const Box& plot = frame.plot;
    if (chart.isEmpty)
        return fmt::format(
            R"(<line class="f" x1="0" x2="{0:.0f}" y1="{1:.0f}" y2="{1:.0f}"/>)"
            R"(<text class="n" x="{2:.0f}" y="{3:.0f}" text-anchor="middle">{4}</text>)",
            frame.width, plot.top + plot.height, frame.width / 2, plot.top + plot.height / 2, chart.nothing());
    std::string text = gridOf(chart, plot);
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
        const TelemetryCharts::Series& series = *chart.lines[index].series;
        const std::string path = pathOf(chart, series, plot);
        const bool isOnePoint = series.xs.size() == 1;
        const double width = isOnePoint ? 6 : series.xs.size() > manyPoints ? 1.1 : 1.8;
        if (!path.empty())
            text += fmt::format(R"(<path class="l s{}" stroke-width="{}" d="{}"/>)", index, width, path);
    }
    return text + "</g>";
}

std::string document(const TelemetryCharts& charts, std::string_view heading)
{
    double top = margin;
    std::string body = at(margin, top, fmt::format(R"(<text class="t" y="14">{}</text>)", escaped(heading)));
    top += 40;
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
        const double left = margin + (isRight ? narrowWidth + gap : 0);
        const std::string remark = chart.remark();
        const double height = headHeight + Frame::of(chart).height;
        body +=
            at(left, top,
               fmt::format(R"(<text class="t" y="14">{}</text>)", escaped(chart.title)) + legendOf(chart, 36) +
                   at(0, headHeight, panel(chart, index)) +
                   fmt::format(R"(<text class="n" y="{:.0f}">{}</text>)", height + 2, escaped(remark)));
        rowHeight = std::max(isRight ? rowHeight : 0.0, height + remarkHeight + gap);
        isRight = !isRight && !chart.isWide;
        if (!isRight)
            top += rowHeight;
    }
    if (isRight)
        top += rowHeight;
    std::string last = charts.isEmpty() ? "The run has written no telemetry." : droppedWords(charts.dropped);
    if (!last.empty()) {
        body += at(margin, top, fmt::format(R"(<text class="n" y="12">{}</text>)", escaped(last)));
        top += 24;
    }
    const double width = wideWidth + 2 * margin;
    return fmt::format(
        R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {0:.0f} {1:.0f}" width="{0:.0f}" height="{1:.0f}">)"
        "\n<title>{2}</title>\n<style>{3}</style>\n<rect class=\"b\" width=\"100%\" height=\"100%\"/>\n{4}</svg>\n",
        width, top + margin, escaped(heading), styleText, body);
}

} // namespace veltry::SVGCharts
