#include "Base/Text.h"
#include "Host/Charts/Chart.h"
#include "Host/Charts/HTMLCharts.h"
#include "Host/Charts/SVGCharts.h"
#include "Host/Charts/TextCharts.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cmath>

namespace veltry {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const Terminal plainUTF8(-1, false, false, true);
const Terminal plainASCII(-1, false, false, false);

std::vector<std::string> labels(const Axis& axis, std::size_t most)
{
    std::vector<std::string> result;
    for (const Axis::Tick& tick : axis.ticks(most)) {
        EXPECT_GE(tick.place, -1e-6);
        EXPECT_LE(tick.place, 1 + 1e-6);
        result.push_back(tick.label);
    }
    return result;
}

TEST(Axis, WritesRoundValuesAlongIt)
{
    const struct {
        std::string_view name;
        Axis axis;
        std::vector<std::string> labels;
    } cases[] = {
        {"fifths", Axis({0, 1}), {"0", "0.2", "0.4", "0.6", "0.8", "1.0"}},
        {"across 0", Axis({-0.1, 0.1}), {"-0.10", "-0.05", "0", "0.05", "0.10"}},
        {"large", Axis({0, 12'000}), {"0", "2,000", "4,000", "6,000", "8,000", "10,000", "12,000"}},
        {"whole", Axis({1, 3}, false, true), {"1", "2", "3"}},
        {"tiny", Axis({0, 2e-7}), {"0", "5e-08", "1e-07", "1.5e-07", "2e-07"}},
        {"decades", Axis({1e-4, 10}, true), {"0.0001", "0.001", "0.01", "0.1", "1", "10"}},
        {"many decades", Axis({1e-12, 1}, true), {"1e-12", "1e-10", "1e-08", "1e-06", "0.0001", "0.01", "1"}},
        {"two decades", Axis({0.1, 1.5}, true), {"0.1", "0.2", "0.5", "1"}},
        {"part of a decade", Axis({0.31, 0.32}, true), {"0.31", "0.32"}},
        {"above a decade", Axis({3, 8}, true), {"3", "4", "5", "6", "7", "8"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(labels(c.axis, 7), c.labels);
    }
}

TEST(Axis, GoesToTheNextRoundValueWhereItsEndIsFree)
{
    const struct {
        std::string_view name;
        Axis axis;
        double low, high;
    } cases[] = {
        {"free", Axis::around({0.13, 0.97}, {}, {}, false), 0, 1},
        {"fixed", Axis::around({0.13, 0.97}, 0.1, 0.9, false), 0.1, 0.9},
        {"all alike", Axis::around({5, 5}, {}, {}, false), 4.4, 5.6},
        {"all 0", Axis::around({0, 0}, {}, {}, false), -1, 1},
        {"all below a fixed low end", Axis::around({1, 2}, 3, {}, false), 3, 3.3},
        {"logarithmic", Axis::around({0.003, 40}, {}, {}, true), 0.003, 40},
        {"logarithmic, all alike", Axis::around({2, 2}, {}, {}, true), 2, 20},
        {"logarithmic, below a fixed low end", Axis::around({1, 2}, 3, {}, true), 3, 30},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_NEAR(c.axis.range().low, c.low, 0.1 * std::abs(c.high - c.low));
        EXPECT_NEAR(c.axis.range().high, c.high, 0.1 * std::abs(c.high - c.low));
        EXPECT_LT(c.axis.range().low, c.axis.range().high);
    }
    EXPECT_FALSE(Axis({1, 10}, true).place(0));
    EXPECT_DOUBLE_EQ(*Axis({1, 100}, true).place(10), 0.5);
}

/// A run of 40 points, some of which nobody could read.
TelemetryCharts someCharts()
{
    std::string lines = "no json\n{\"text\":\"x\"}\n[]\n[]\n";
    for (int step = 1; step <= 40; ++step)
        lines += fmt::format(
            "{{\"step\":{},\"loss\":{},\"val\":{},\"once\":{}}}\n", step * 10, 2.0 / step, step < 3 ? -1 : 3.0 / step,
            step == 20 ? "7" : "null");
    Telemetry telemetry;
    static_cast<void>(telemetry.take(lines, true));
    return TelemetryCharts(
        telemetry,
        TelemetryLayout::parse("x = \"step\"\n"
                               "[[panel]]\ntitle = \"<b>Loss & co\"\ny = [\"loss\", \"val\"]\nscale = \"log\"\n"
                               "rule = 0.5\nwide = true\n"
                               "[[panel]]\ny = \"once\"\n[[panel]]\ny = \"never\"\n"
                               "[[stat]]\ny = \"loss\"\nreduce = \"min\"\n[[stat]]\ny = \"none\"\n"));
}

TEST(Charts, AreDrawnInATerminalOfAnyWidth)
{
    const TelemetryCharts charts = someCharts();
    for (const std::size_t columns : {40UL, 80UL, 109UL, 110UL, 200UL})
        for (const Terminal& terminal : {plainUTF8, plainASCII}) {
            const std::string text = TextCharts::of(charts, terminal, {.columns = columns, .rows = {}});
            for (const std::string_view line : text::split(text, '\n'))
                EXPECT_LE(text::columns(line), columns) << line;
            EXPECT_THAT(text, AllOf(HasSubstr("<b>Loss & co"), HasSubstr("loss 0.05"), HasSubstr("no data yet")));
            EXPECT_EQ(std::ranges::all_of(text, [](char c) { return c > 0; }), !terminal.isUTF8());
        }
    const std::string text = TextCharts::of(charts, plainUTF8, {.columns = 120, .rows = {}});
    EXPECT_THAT(
        text,
        AllOf(
            HasSubstr("╌"), HasSubstr("once"), HasSubstr("logarithmic scale; 2 points at or below 0 can't be shown"),
            HasSubstr("Dropped: 1 line that was not JSON, 2 lines of JSON that were not an object, 1 line with no "
                      "numbers\n")));
    // The plots give way to the rows that there are.
    const auto rows = [&](std::size_t room) {
        return std::ranges::count(TextCharts::of(charts, plainUTF8, {.columns = 80, .rows = room}), '\n');
    };
    EXPECT_LT(rows(24), rows(60));
    EXPECT_LE(rows(60), 60);
}

TEST(Charts, DrawALineWhereItsPointsAre)
{
    Telemetry telemetry;
    static_cast<void>(telemetry.take("{\"a\":0}\n{\"a\":1}\n", true));
    const std::string text = TextCharts::of(TelemetryCharts(telemetry), plainASCII, {.columns = 40, .rows = {}});
    std::vector<std::size_t> columns;
    for (const std::string_view line : text::split(text, '\n'))
        if (const std::size_t at = line.find('*'); at != std::string_view::npos && line.find('|') < at + 1)
            columns.push_back(at);
    EXPECT_TRUE(std::ranges::is_sorted(columns, std::greater<>())) << text;
    EXPECT_THAT(text, AllOf(HasSubstr("1.0+"), HasSubstr("0+")));
}

TEST(Charts, EscapeWhatComesFromOutside)
{
    EXPECT_EQ(SVGCharts::escaped("<a href=\"x\">&'\n\033"), "&lt;a href=&quot;x&quot;&gt;&amp;&#39; �");
    TelemetryCharts charts = someCharts();
    charts.panels[1].title = "</script><script>alert(1)</script>";
    charts.stats[0].title = "<img src=x>";
    const std::string page = HTMLCharts::page(
        charts, {.title = "Run #1", .subtitle = "<i>", .facts = {{"command", "a < b && c"}}, .reloadSeconds = {}});
    const std::string drawing = SVGCharts::document(charts, "<i>");
    for (const std::string& text : {page, drawing})
        EXPECT_THAT(
            text, AllOf(
                      Not(HasSubstr("<img")), Not(HasSubstr("<i>")), Not(HasSubstr("<b>Loss")),
                      Not(HasSubstr("<script>alert")), HasSubstr("&lt;b&gt;Loss &amp; co")));
    EXPECT_THAT(
        page, AllOf(
                  HasSubstr("a &lt; b &amp;&amp; c"), Not(HasSubstr("http-equiv=\"refresh\"")),
                  HasSubstr("default-src 'none'"), Not(HasSubstr("src=\"")), Not(HasSubstr("href="))));
}

} // namespace
} // namespace veltry
