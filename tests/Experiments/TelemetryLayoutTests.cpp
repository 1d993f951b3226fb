#include "Experiments/Telemetry/TelemetryLayout.h"
#include "Platform/Files.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>
#include <vector>

namespace veltry {
namespace {

using ::testing::ThrowsMessage;
using Panel = TelemetryLayout::Panel;

auto parsing(std::string text)
{
    return [text = std::move(text)] { static_cast<void>(TelemetryLayout::parse(text)); };
}

auto refused(std::string message)
{
    return ThrowsMessage<TelemetryLayout::Invalid>(std::move(message));
}

TEST(TelemetryLayout, ReadsPanelsAndStats)
{
    const auto layout = TelemetryLayout::parse("x = 'step'\n"
                                               "[[stat]]\ny = 'acc'\n"
                                               "[[panel]]\ny = ['loss', 'eval.loss', 'loss']\n"
                                               "[[panel]]\ny = 'lr-1_0.a'\nx = 'time'\ntitle = 'Rate'\nscale = 'log'\n"
                                               "min = 1\nmax = 2.5\nrule = -1\nwide = true\n"
                                               "[[stat]]\ny = 'loss'\ntitle = 'Best'\nreduce = 'min'\n");
    TelemetryLayout expected;
    expected.x = "step";
    expected.panels.resize(2);
    expected.panels[0].title = "loss, eval.loss";
    expected.panels[0].y = {"loss", "eval.loss"};
    expected.panels[1] = {
        .title = "Rate",
        .x = "time",
        .y = {"lr-1_0.a"},
        .scale = TelemetryLayout::Scale::log,
        .min = 1,
        .max = 2.5,
        .rule = -1,
        .wide = true,
    };
    expected.stats = {
        {.title = "acc", .y = "acc"}, {.title = "Best", .y = "loss", .reduce = TelemetryLayout::Reduce::min}};
    EXPECT_EQ(layout, expected);
}

TEST(TelemetryLayout, NamesTheFirstMistake)
{
    const struct {
        std::string_view text, message;
    } cases[] = {
        {"x = ", "is not TOML: expected a value on line 1"},
        {"zoom = 1\nscale = 1", "the file has \"scale\", which is not one of x, panel, stat"},
        {"x = 3", "x must be a key, like \"loss\""},
        {"x = '.loss'", "x: \".loss\" is not a key; use dots between names, like eval.loss"},
        {"x = 'eval..loss'", "x: \"eval..loss\" is not a key; use dots between names, like eval.loss"},
        {"panel = 1", "has panel as a value; write each one as a [[panel]] table"},
        {"[[stat]]\nfoo = 1\n[[panel]]", "[[panel]] 1 needs y, the key or keys to draw"},
        {"[[panel]]\ny = 'a'\n[[panel]]\ncolour = 1",
         "[[panel]] 2 has \"colour\", which is not one of title, x, y, scale, min, max, rule, wide"},
        {"[[panel]]\ny = 1", "[[panel]] 1: y must be a key or a list of keys"},
        {"[[panel]]\ny = []", "[[panel]] 1: y names no keys"},
        {"[[panel]]\ny = ['a','b','c','d','a']", "[[panel]] 1: y has 5 keys; a panel draws at most 4"},
        {"[[panel]]\ny = ['a b']", "[[panel]] 1: y: \"a b\" is not a key; use dots between names, like eval.loss"},
        {"[[panel]]\ny = 'a'\ntitle = 1", "[[panel]] 1: title must be a string"},
        {"[[panel]]\ny = 'a'\nscale = 'Log'", "[[panel]] 1: scale must be one of linear, log"},
        {"[[panel]]\ny = 'a'\nrule = '1'", "[[panel]] 1: rule must be a number"},
        {"[[panel]]\ny = 'a'\nwide = 1", "[[panel]] 1: wide must be true or false"},
        {"[[panel]]\ny = 'a'\nmin = 1\nmax = 1", "[[panel]] 1: min must be below max"},
        {"[[panel]]\ny = 'a'\nmin = 0\nscale = 'log'", "[[panel]] 1: min must be above zero on a log scale"},
        {"[[stat]]\nrule = 1", "[[stat]] 1 has \"rule\", which is not one of title, y, reduce"},
        {"[[stat]]", "[[stat]] 1: y is required"},
        {"[[stat]]\ny = 'a'\nreduce = 1", "[[stat]] 1: reduce must be one of last, min, max"},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_THAT(parsing(std::string(c.text)), refused(std::string(c.message)));
    }
    EXPECT_NO_THROW(parsing("[[panel]]\ny = 'a'\nmax = 0\nrule = -1\nscale = 'log'")());
}

TEST(TelemetryLayout, LimitsItsSize)
{
    const auto tables = [](const std::string& name, std::size_t count) {
        std::string text;
        while (count-- > 0)
            text += "[[" + name + "]]\ny = 'a'\n";
        return text;
    };
    EXPECT_NO_THROW(parsing(tables("panel", 32) + tables("stat", 16))());
    std::string letters;
    for (int index = 0; index < 100; ++index)
        letters += "e\u0301"; // each of three bytes
    const auto layout = TelemetryLayout::parse("[[panel]]\ny = 'a'\ntitle = '" + letters + "'");
    EXPECT_EQ(layout.panels.at(0).title, letters.substr(0, 80 * 3));
    EXPECT_THAT(parsing(tables("panel", 33)), refused("has 33 [[panel]] tables; the maximum is 32"));
    EXPECT_THAT(parsing(tables("stat", 17)), refused("has 17 [[stat]] tables; the maximum is 16"));
    EXPECT_NO_THROW(parsing(std::string(16384, '\n'))());
    EXPECT_THAT(parsing(std::string(16385, '\n')), refused("must be under 16 KiB"));
}

TEST(TelemetryLayout, IsReadFromAFolder)
{
    const test::TemporaryFolder folder;
    const auto file = folder / "telemetry.toml";
    EXPECT_EQ(TelemetryLayout::read(folder.path()), std::nullopt);
    EXPECT_EQ(TelemetryLayout::read(folder / "missing"), std::nullopt);

    Files::writeAtomically(file, "");
    EXPECT_EQ(TelemetryLayout::read(folder.path()), TelemetryLayout());
    Files::writeAtomically(file, "[[panel]]\ny = 'a'\ntitle = '\xFF'");
    EXPECT_EQ(TelemetryLayout::read(folder.path()).value().panels.at(0).title, "\uFFFD");
    // Below the limit as it lies there, and above it in the UTF-8 that it is read as.
    for (const std::string& contents : {"# " + std::string(6000, '\xFF'), std::string(20'000, ' ')}) {
        Files::writeAtomically(file, contents);
        EXPECT_THAT([&] { static_cast<void>(TelemetryLayout::read(folder.path())); }, refused("must be under 16 KiB"));
    }

    Files::remove(file);
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(TelemetryLayout::read(folder.path()), std::nullopt) << "waits for nobody";
    Files::remove(file);
    Files::createFolders(file);
    EXPECT_EQ(TelemetryLayout::read(folder.path()), std::nullopt);
}

TEST(TelemetryLayout, HasAStandardForRunsWithoutAFile)
{
    const auto standard = [](const std::vector<std::string>& keys) { return TelemetryLayout::standard(keys); };
    TelemetryLayout expected = TelemetryLayout::parse("[[panel]]\ny = 'loss'\n[[panel]]\ny = 'acc'");
    EXPECT_EQ(standard({"loss", "acc"}), expected);
    expected.x = "step";
    EXPECT_EQ(standard({"loss", "step", "acc"}), expected);

    std::vector<std::string> many;
    for (int index = 0; index < 40; ++index)
        many.push_back("key" + std::to_string(index));
    many.push_back("step");
    const TelemetryLayout layout = standard(many);
    EXPECT_EQ(layout.panels.size(), 32U);
    EXPECT_EQ(layout.panels.back().title, "key31");
    EXPECT_EQ(layout.x, "step");
}

} // namespace
} // namespace veltry
