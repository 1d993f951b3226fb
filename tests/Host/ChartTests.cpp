#include "Base/Text.h"
#include "Host/Charts/Chart.h"
#include "Host/Charts/HTMLCharts.h"
#include "Host/Charts/SVGCharts.h"
#include "Host/Charts/TextCharts.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

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
        {"seconds since 1970",
         Axis({1.7e9, 1.7e9 + 10}),
         {"1,700,000,000", "1,700,000,002", "1,700,000,004", "1,700,000,006", "1,700,000,008", "1,700,000,010"}},
        {"beside each other",
         Axis({0.3, 0.3000001}, false),
         {"0.30000000", "0.30000002", "0.30000004", "0.30000006", "0.30000008", "0.30000010"}},
        {"neighbours", Axis({0.3, 0.30000000000000004}), {"0.3", "0.30000000000000004"}},
        {"neighbours, logarithmic", Axis({0.3, 0.30000000000000004}, true), {"0.3", "0.30000000000000004"}},
        {"all doubles", Axis({-1e308, 1e308}), {"-1e+308", "-5e+307", "0", "5e+307", "1e+308"}},
        {"all above 0", Axis({5e-324, 1e308}, true), {"1e-300", "1e-200", "1e-100", "1", "1e+100", "1e+200", "1e+300"}},
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

/// Random numbers of every size, among them the extreme ones and those that hardly differ from the one before.
class AnyNumber {
public:
    double operator()()
    {
        static constexpr double extremes[] = {0,    5e-324, 1e-320, 2.2250738585072014e-308,           1, 0.3,
                                              1e15, 1.7e18, 1e308,  std::numeric_limits<double>::max()};
        const std::uint64_t pick = random_() % 4;
        const double sign = random_() % 2 == 0 ? 1 : -1;
        if (pick == 0)
            last_ = sign * extremes[random_() % std::size(extremes)];
        else if (pick == 1)
            last_ = std::nextafter(last_, 0.0);
        else if (const double any = std::bit_cast<double>(random_()); pick == 2 && std::isfinite(any))
            last_ = any;
        else
            last_ = sign * static_cast<double>(random_() % 100'000) / 100;
        return last_;
    }

private:
    std::mt19937_64 random_{7};
    double last_ = 1;
};

TEST(Axis, HasEndsAndTicksForAnyNumbers)
{
    AnyNumber any;
    for (int round = 0; round < 50'000 && !HasFailure(); ++round) {
        const bool isLogarithmic = round % 2 == 0;
        const auto number = [&] { return isLogarithmic ? std::max(std::abs(any()), 5e-324) : any(); };
        const auto ordered = [&] {
            const double a = number();
            const double b = number();
            return Axis::Range{.low = std::min(a, b), .high = std::max(a, b)};
        };
        const Axis::Range data = ordered();
        const Axis::Range fixed = ordered();
        const bool fixesLow = round % 3 == 0;
        const bool fixesHigh = round % 5 == 0 && !(fixesLow && fixed.low == fixed.high);
        const Axis axis = round % 7 == 0 && !isLogarithmic
                              ? Axis::through(data, round % 2 == 1)
                              : Axis::around(
                                    data, fixesLow ? std::optional(fixed.low) : std::nullopt,
                                    fixesHigh ? std::optional(fixed.high) : std::nullopt, isLogarithmic);
        SCOPED_TRACE(fmt::format(
            "round {}, {} to {}: {} to {}", round, data.low, data.high, axis.range().low, axis.range().high));
        EXPECT_LT(axis.range().low, axis.range().high);
        EXPECT_TRUE(std::isfinite(axis.range().low) && std::isfinite(axis.range().high));
        EXPECT_TRUE(std::isfinite(axis.place(number()).value()));
        const std::size_t most = 2 + static_cast<std::size_t>(round) % 9;
        const std::vector<Axis::Tick> ticks = axis.ticks(most);
        EXPECT_GE(ticks.size(), 2U);
        EXPECT_LE(ticks.size(), most);
        EXPECT_TRUE(std::ranges::is_sorted(ticks, std::ranges::less_equal(), &Axis::Tick::place));
        for (std::size_t at = 0; at < ticks.size(); ++at) {
            EXPECT_TRUE(ticks[at].place >= 0 && ticks[at].place <= 1);
            EXPECT_LE(ticks[at].label.size(), 24U);
            EXPECT_TRUE(at == 0 || ticks[at].label != ticks[at - 1].label) << ticks[at].label;
        }
    }
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
