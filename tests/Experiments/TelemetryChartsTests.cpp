#include "Experiments/Telemetry/TelemetryCharts.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

namespace veltry {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

Telemetry reported(std::string_view lines)
{
    Telemetry telemetry;
    telemetry.take(lines, true);
    return telemetry;
}

/// A store with these readings of `y`, one a point.
Telemetry readings(const std::vector<double>& values)
{
    std::string lines;
    for (const double value : values)
        lines += fmt::format("{{\"y\":{}}}\n", value);
    return reported(lines);
}

TEST(TelemetryCharts, DrawWithoutALayout)
{
    const Telemetry telemetry = reported("{\"loss\":3,\"step\":10}\n{\"acc\":0.5,\"step\":20}\n{\"loss\":2}\n{}\n");
    const TelemetryCharts charts(telemetry);
    TelemetryCharts expected;
    for (const char* key : {"loss", "acc"})
        expected.panels.push_back({.title = key, .x = "step", .y = {key}, .min = {}, .max = {}, .rule = {}});
    expected.series = {
        {.x = "step", .y = "loss", .total = 1, .xs = {10}, .ys = {3}},
        {.x = "step", .y = "acc", .total = 1, .xs = {20}, .ys = {0.5}}};
    expected.dropped = {{Telemetry::Drop::noNumbers, 1}};
    EXPECT_EQ(charts, expected);
    EXPECT_FALSE(charts.isEmpty());

    for (const char* nothing : {"", "{\"step\":1}", "{\"step\":1}\n{\"loss\":1}"})
        EXPECT_TRUE(TelemetryCharts(reported(nothing)).isEmpty()) << nothing;
    EXPECT_FALSE(TelemetryCharts(reported(""), TelemetryLayout()).isEmpty()) << "a layout asked for nothing";
}

TEST(TelemetryCharts, DrawWhatALayoutAsksFor)
{
    const Telemetry telemetry =
        reported("{\"a\":5,\"t\":1}\n{\"a\":3,\"b\":1}\n{\"a\":4,\"b\":2,\"t\":2}\n{\"b\":3,\"t\":0}\n");
    const auto layout = TelemetryLayout::parse(
        "x = 't'\n[[panel]]\ny = 'b'\n[[panel]]\ny = ['a','b','none']\n[[panel]]\ny = 'a'\nx = 'none'\n"
        "[[stat]]\ny = 'a'\n[[stat]]\ny = 'a'\nreduce = 'min'\n[[stat]]\ny = 'a'\nreduce = 'max'\n[[stat]]\ny = "
        "'none'");
    const TelemetryCharts charts(telemetry, layout);
    const std::vector<TelemetryCharts::Series> series = {
        {.x = "t", .y = "b", .total = 2, .xs = {2, 0}, .ys = {2, 3}},
        {.x = "t", .y = "a", .total = 2, .xs = {1, 2}, .ys = {5, 4}},
        {.x = "t", .y = "none", .total = 0, .lack = TelemetryCharts::Lack::y, .xs = {}, .ys = {}},
        {.x = "none", .y = "a", .total = 0, .lack = TelemetryCharts::Lack::x, .xs = {}, .ys = {}}};
    EXPECT_EQ(charts.series, series);
    EXPECT_TRUE(charts.configured);
    EXPECT_THAT(
        charts.seriesOf(charts.panels[1]), ElementsAre(&charts.series[1], &charts.series[0], &charts.series[2]));
    EXPECT_THAT(charts.seriesOf(layout.panels[0]), IsEmpty()) << "its x is still open";
    std::vector<std::optional<double>> values;
    for (const TelemetryCharts::Stat& stat : charts.stats)
        values.push_back(stat.value);
    EXPECT_THAT(values, ElementsAre(4, 3, 5, std::nullopt));

    TelemetryLayout overSeq = layout;
    overSeq.x.reset();
    const TelemetryCharts numbered(telemetry, overSeq);
    EXPECT_EQ(
        numbered.series[0], (TelemetryCharts::Series{.x = {}, .y = "b", .total = 3, .xs = {2, 3, 4}, .ys = {1, 2, 3}}));
}

TEST(TelemetryCharts, KeepTheExtremesOfEachRun)
{
    const struct {
        std::string_view name;
        std::vector<double> ys;
        std::size_t buckets;
        std::vector<double> keptXs, keptYs;
    } cases[] = {
        {"few enough", {3, 1, 2, 5}, 2, {1, 2, 3, 4}, {3, 1, 2, 5}},
        {"one more", {3, 1, 2, 5, 4}, 2, {1, 2, 4, 5}, {3, 1, 5, 4}},
        {"highest first", {9, 5, 1, 2, 2, 3, 7}, 2, {1, 3, 5, 7}, {9, 1, 2, 7}},
        {"flat", {2, 2, 2, 2, 2, 2}, 2, {1, 4}, {2, 2}},
        {"earliest of equals", {1, 4, 1, 4, 2, 3, 2, 3}, 2, {1, 2, 5, 6}, {1, 4, 2, 3}},
        {"runs fewer than buckets", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, 4, {1, 3, 4, 6, 7, 9, 10}, {1, 3, 4, 6, 7, 9, 10}},
    };
    TelemetryLayout layout;
    layout.panels.resize(1);
    layout.panels[0].y = {"y"};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const TelemetryCharts::Series line = TelemetryCharts(readings(c.ys), layout, c.buckets).series.at(0);
        EXPECT_EQ(line.xs, c.keptXs);
        EXPECT_EQ(line.ys, c.keptYs);
        EXPECT_EQ(line.total, static_cast<std::int64_t>(c.ys.size()));
    }
    for (const auto& [count, kept] : {std::pair{1000, 1000U}, std::pair{1001, 668U}}) {
        std::vector<double> rising;
        for (int index = 0; index < count; ++index)
            rising.push_back(index);
        EXPECT_EQ(TelemetryCharts(readings(rising)).series.at(0).ys.size(), kept);
    }
}

TEST(TelemetryCharts, JoinLinesThatReportAtOtherTimes)
{
    std::mt19937 random(3);
    for (int round = 0; round < 200; ++round) {
        std::string lines;
        std::vector<double> xs;
        std::vector<double> ys;
        for (int line = 0; line < 60; ++line) {
            const bool hasX = round % 2 == 0 || random() % 3 > 0;
            const bool hasY = random() % 3 > 0;
            lines += fmt::format(
                "{{\"k\":0{}{}}}\n", hasX ? fmt::format(",\"x\":{}", line) : "",
                hasY ? fmt::format(",\"y\":{}", -line) : "");
            if (hasX && hasY) {
                xs.push_back(line);
                ys.push_back(-line);
            }
        }
        TelemetryLayout layout;
        layout.x = "x";
        layout.panels.resize(1);
        layout.panels[0].y = {"y"};
        const TelemetryCharts charts(reported(lines), layout);
        ASSERT_EQ(charts.series.at(0).xs, xs) << lines;
        ASSERT_EQ(charts.series.at(0).ys, ys) << lines;
    }
}

TEST(TelemetryCharts, HaveAJSONForm)
{
    const auto layout = TelemetryLayout::parse(
        "[[panel]]\ny = 'a'\nscale = 'log'\nmin = 0.5\n[[stat]]\ny = 'a'\nreduce = 'max'\n[[stat]]\ny = 'b'");
    EXPECT_EQ(
        toJSON(TelemetryCharts(reported("{\"a\":1}\n[]"), layout)).text(),
        R"({"configured":true,"dropped":{"not_object":1},)"
        R"("panels":[{"min":0.5,"scale":"log","title":"a","wide":false,"y":["a"]}],)"
        R"("series":[{"total":1,"xs":[1],"y":"a","ys":[1]}],)"
        R"("stats":[{"reduce":"max","title":"a","value":1,"y":"a"},{"reduce":"last","title":"b","y":"b"}]})");
}

} // namespace
} // namespace veltry
