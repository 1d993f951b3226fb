#include "Base/Text.h"
#include "Experiments/Telemetry/Telemetry.h"
#include "Platform/Files.h"
#include "Support/PlainTelemetry.h"
#include "Support/Stress.h"
#include "Support/TemporaryFolder.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>

#include <random>

namespace veltry {
namespace {

using Drop = Telemetry::Drop;
using Values = std::map<std::string, double>;

Telemetry taken(std::string_view file)
{
    Telemetry telemetry;
    telemetry.take(file, true);
    return telemetry;
}

/// `{"k0":1,"k1":1,...}` of keys from `first` on.
std::string lineOf(int count, int first = 0)
{
    std::string line = "{";
    for (int index = first; index < first + count; ++index)
        line += fmt::format("{}\"k{}\":1", index == first ? "" : ",", index);
    return line + "}";
}

std::string nested(int levels, std::string_view opening, std::string_view inner, std::string_view closing)
{
    std::string text(inner);
    while (levels-- > 0)
        text = std::string(opening) + text + std::string(closing);
    return text;
}

class TelemetryFile : public ::testing::Test {
protected:
    void write(std::string_view bytes, Files::Purpose purpose = Files::forAppending)
    {
        Files::writeAll(Files::open(file_, purpose), bytes, "telemetry");
    }

    test::TemporaryFolder folder_;
    std::filesystem::path file_ = folder_ / "telemetry.jsonl";
    Telemetry telemetry_;
};

TEST(Telemetry, ReadsOrRefusesALine)
{
    const std::string deepest = nested(63, R"({"a":)", "1", "}");
    const std::string exact = R"({"a":1,"b":")" + std::string(4096 - 14, 'x') + "\"}";
    const struct {
        std::string name, line;
        Values values;
        Telemetry::Drops dropped;
    } cases[] = {
        {"plain", R"({"step": 3, "loss": -0.5e-1})", {{"step", 3}, {"loss", -0.05}}, {}},
        {"flattened", R"({"a":{"b":{"c":1}},"d":2})", {{"a.b.c", 1}, {"d", 2}}, {}},
        {"no number", R"({"a":1,"b":"x","c":[1,{"d":2}],"e":true,"f":null,"g":1e400})", {{"a", 1}}, {}},
        {"twice", R"({"a":{"b":1,"b":2},"c":3,"a":{"b":4,"d":5}})", {{"a.b", 1}, {"c", 3}, {"a.d", 5}}, {}},
        {"escaped", R"({"\u0061\_-9":1,"\/":2,"\n":3,"\ud83d":4})", {{"a_-9", 1}}, {{Drop::badKey, 3}}},
        {"bad key", R"({"a.b":1,"c":2,"é":"x"})", {{"c", 2}}, {{Drop::badKey, 1}}},
        {"all under a bad key", R"({"a b":{"c":1,"d e":2},"f":1})", {{"f", 1}}, {{Drop::badKey, 1}}},
        {"too large", R"({"a":1e400,"b":-1e400})", {}, {{Drop::noNumbers, 1}}},
        {"NaN", "NaN", {}, {{Drop::notObject, 1}}},
        {"negative infinity", R"({"a":-Infinity,"b":Infinity,"c":1})", {{"c", 1}}, {}},
        {"two values", R"({"a":1}{"a":2})", {}, {{Drop::notJSON, 1}}},
        {"cut in an escape", "{\"a\\", {}, {{Drop::notJSON, 1}}},
        {"cut in a code", R"({"a\u00g0":1})", {}, {{Drop::notJSON, 1}}},
        {"control character", "{\"a\x01\":1}", {}, {{Drop::notJSON, 1}}},
        {"no UTF-8", "{\"\xFF\":\"\xFF\",\"a\":1}", {{"a", 1}}, {}},
        {"white", "\t{ \"a\" :\t1 , \"b\" : { \"c\" : 2 } } \r", {{"a", 1}, {"b.c", 2}}, {}},
        {"deepest", deepest, {{nested(62, "a.", "a", ""), 1}}, {}},
        {"too deep", R"({"a":)" + deepest + "}", {}, {{Drop::notJSON, 1}}},
        {"arrays too deep", R"({"a":)" + nested(63, "[", "", "]") + "}", {}, {{Drop::notJSON, 1}}},
        {"longest", exact, {{"a", 1}}, {}},
        {"too long", exact + " ", {}, {{Drop::tooLong, 1}}},
        {"long and blank", std::string(5000, ' '), {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Telemetry telemetry = taken(c.line + "\n");
        EXPECT_EQ(telemetry.point(1).value_or(Telemetry::Point()).values, c.values);
        EXPECT_EQ(telemetry.pointCount(), c.values.empty() ? 0 : 1);
        EXPECT_EQ(telemetry.dropped(), c.dropped);
    }
}

TEST(Telemetry, ReadsNumbersToTheNearestDouble)
{
    for (const char* text :
         {"0", "-0", "007", "0.1", "123456789012345678", "9007199254740993", "0.30000000000000004", "1e22", "1e23",
          "8.5e-22", "123456789.123456789e-5", "1.7976931348623157e308", "2.2250738585072011e-308", "4.9e-324",
          "1e-999", "0.00000000000000000000000000000000000000012345678901234567890123456789e40",
          "100000000000000000000000e-23"}) {
        const Telemetry telemetry = taken(fmt::format("{{\"a\":{}}}", text));
        ASSERT_EQ(telemetry.pointCount(), 1) << text;
        const double value = telemetry.column("a")->values.front();
        EXPECT_EQ(value, std::strtod(text, nullptr)) << text;
        EXPECT_EQ(std::signbit(value), text[0] == '-') << text;
    }
    for (const char* text : {"+1", ".5", "1.", "1.e5", "1e", "1e+", "-", "--1", "0x10", "1_000", "1,5"})
        EXPECT_EQ(taken(fmt::format("{{\"a\":{}}}", text)).dropped(), (Telemetry::Drops{{Drop::notJSON, 1}})) << text;
}

TEST(Telemetry, KeepsItsLimits)
{
    EXPECT_EQ(taken(lineOf(64)).keys().size(), 64U);
    EXPECT_EQ(taken(lineOf(65) + "\n{\"a b\":1,\"c\":1}").keys(), std::vector<std::string>{"c"});
    EXPECT_EQ(taken(lineOf(65)).dropped(), (Telemetry::Drops{{Drop::tooManyKeys, 1}}));

    std::string many;
    for (int first = 0; first < 256; first += 64)
        many += lineOf(64, first) + "\n";
    const Telemetry full = taken(many + R"({"k0":2,"new":1,"new":2})" + "\n" + R"({"new":1})" + "\n" + R"({"k1":2})");
    EXPECT_EQ(full.keys().size(), 256U);
    EXPECT_EQ(full.pointCount(), 6) << "a line whose keys are all refused makes no point";
    EXPECT_EQ(full.point(5).value().values, (Values{{"k0", 2}}));
    EXPECT_EQ(full.dropped(), (Telemetry::Drops{{Drop::keysCap, 2}}));
    EXPECT_EQ(full.column("new"), nullptr);
    EXPECT_EQ(full.point(0), std::nullopt);
    EXPECT_EQ(full.point(7), std::nullopt);

    std::string points;
    for (int line = 0; line < 200'003; ++line)
        points += "{\"a\":1,\"b c\":1}\n";
    const Telemetry capped = taken(points);
    EXPECT_EQ(capped.pointCount(), 200'000);
    EXPECT_EQ(capped.dropped(), (Telemetry::Drops{{Drop::badKey, 200'003}, {Drop::pointsCap, 3}}));
}

TEST_F(TelemetryFile, IsReadAsItGrows)
{
    EXPECT_FALSE(telemetry_.read(file_, false)) << "not there yet";
    write("{\"a\":1}\n{\"a\":2");
    EXPECT_TRUE(telemetry_.read(file_, false));
    EXPECT_FALSE(telemetry_.read(file_, false));
    EXPECT_EQ(telemetry_.pointCount(), 1);
    write("5,\"b\":1}\n \r\n");
    EXPECT_TRUE(telemetry_.read(file_, false));
    EXPECT_EQ(telemetry_.point(2).value().values, (Values{{"a", 25}, {"b", 1}}));
    write("\n\t");
    EXPECT_FALSE(telemetry_.read(file_, true)) << "only blanks";
    write("\n{\"a\":3}");
    EXPECT_FALSE(telemetry_.read(file_, false));
    EXPECT_TRUE(telemetry_.read(file_, true));
    EXPECT_FALSE(telemetry_.read(file_, true));
    EXPECT_EQ(telemetry_.pointCount(), 3);
    EXPECT_EQ(telemetry_, taken(Files::read(file_)));
    write("no\n");
    EXPECT_TRUE(telemetry_.read(file_, false)) << "a refusal is news too";
    EXPECT_NE(telemetry_, taken(""));
}

TEST_F(TelemetryFile, MayBeAnythingAtAll)
{
    ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
    EXPECT_FALSE(telemetry_.read(file_, true)) << "waits for nobody";
    Files::remove(file_);
    std::filesystem::create_symlink("/dev/zero", file_);
    EXPECT_FALSE(telemetry_.read(file_, true));
    Files::remove(file_);
    Files::createFolders(file_);
    EXPECT_FALSE(telemetry_.read(file_, true));
    std::filesystem::remove(file_);

    write("{\"a\":1}\n{\"a\":2}\n{\"a\":");
    EXPECT_TRUE(telemetry_.read(file_, false));
    write("{\"b\":1}\n", Files::forReplacing);
    EXPECT_FALSE(telemetry_.read(file_, true)) << "shorter than what was read";
    write("0123456\n{\"a\":3}\n");
    EXPECT_TRUE(telemetry_.read(file_, false)) << "goes on at its place";
    EXPECT_EQ(telemetry_.pointCount(), 3);
    Files::writeAtomically(file_, std::string(100, '\n') + "{\"a\":4}\n");
    EXPECT_TRUE(telemetry_.read(file_, false)) << "another file of that name";
    EXPECT_EQ(telemetry_.pointCount(), 4);
}

TEST_F(TelemetryFile, MayHoldALineWithoutEnd)
{
    const auto peak = [] {
        rusage usage{};
        ::getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss; // KiB
    };
    const long before = peak();
    write("{\"a\":1}\n");
    std::filesystem::resize_file(file_, 100'000'000); // a hole of NULs
    EXPECT_TRUE(telemetry_.read(file_, false));
    for (int time = 0; time < test::stressed(10'000); ++time) {
        write("xy");
        EXPECT_FALSE(telemetry_.read(file_, false));
    }
    write("\n{\"a\":2}\n");
    EXPECT_TRUE(telemetry_.read(file_, false));
    EXPECT_EQ(telemetry_.pointCount(), 2);
    EXPECT_EQ(telemetry_.dropped(), (Telemetry::Drops{{Drop::tooLong, 1}}));
    EXPECT_TRUE(test::sanitized || peak() - before < 20'000);

    // What stands in a long line's place later is read for what it is.
    const std::string rest(1'000'000, ' ');
    write(rest);
    EXPECT_FALSE(telemetry_.read(file_, false));
    std::filesystem::resize_file(file_, Files::size(Files::open(file_, Files::forReading)) - rest.size());
    write("{\"a\":3}\n" + rest);
    EXPECT_TRUE(telemetry_.read(file_, false));
    EXPECT_FALSE(telemetry_.read(file_, true)) << "however long, blank";
    EXPECT_EQ(telemetry_.pointCount(), 3);
    write(std::string(5000, ' '));
    EXPECT_FALSE(telemetry_.read(file_, false));
    write("x");
    EXPECT_TRUE(telemetry_.read(file_, true));
    EXPECT_EQ(telemetry_.dropped(), (Telemetry::Drops{{Drop::tooLong, 2}}));
}

/// Telemetry of a program that is mostly right, in pieces of real lines and of what may go wrong in them.
std::string randomTelemetry(std::mt19937& random, std::size_t pieces)
{
    const std::vector<std::string> good = {
        "{\"step\": 1, \"loss\": 0.25}\n", "{\"train\": {\"loss\": 1e-3}, \"lr\": 0.30000000000000004}\n", "\n",
        "{\"eval\": {\"a\": 1, \"b\": 2}, \"step\": 2}\n", "{\"loss\": 7, \"step\": 3}\n"};
    std::vector<std::string> parts = {
        " ",       "\t", "\r", "\n", "\xFF", std::string(1, '\0'), std::string(5000, ' '), std::string(4100, 'x'),
        lineOf(70)};
    for (const std::string_view part : text::split(
             R"({ } [ ] , : " \ \u0061 "a" "a":1 "b":{"c": "a.b": NaN -Infinity null 1e999 2.50 12345678901234567890)"
             R"( {"z":1,"z":{"z":2}})",
             ' '))
        parts.emplace_back(part);
    std::string text;
    while (pieces-- > 0)
        if (random() % 4 == 0)
            text += parts[random() % parts.size()];
        else if (random() % 8 == 0)
            text += lineOf(static_cast<int>(random() % 9 + 1), static_cast<int>(random() % 300)) + "\n";
        else
            text += good[random() % good.size()];
    return text;
}

TEST_F(TelemetryFile, ReadsWhatAPlainReadingReads)
{
    std::mt19937 random(20);
    for (int round = 0; round < test::stressed(3000); ++round) {
        SCOPED_TRACE(round);
        const std::string text = randomTelemetry(random, 400);
        Files::remove(file_);
        Telemetry growing;
        for (std::size_t written = 0; written < text.size();) {
            const std::size_t count = std::min<std::size_t>(random() % 9000, text.size() - written);
            write(text.substr(written, count));
            written += count;
            growing.read(file_, false);
            ASSERT_TRUE(round > 0 || test::PlainTelemetry(text.substr(0, written), false).isSame(growing)) << written;
        }
        Telemetry atOnce;
        EXPECT_TRUE(atOnce.read(file_, false));
        EXPECT_EQ(atOnce, growing);
        atOnce.read(file_, true);
        growing.read(file_, true);
        EXPECT_EQ(atOnce, growing);
        EXPECT_EQ(atOnce, taken(text));
        ASSERT_TRUE(test::PlainTelemetry(text, true).isSame(atOnce));
    }
}

TEST(Telemetry, IsToldInWordsAndAsJSON)
{
    EXPECT_EQ(Telemetry::describe(Drop::tooLong, 1), "line over 4 KiB");
    EXPECT_EQ(Telemetry::describe(Drop::keysCap, 0), "keys past the 256 a run keeps");
    EXPECT_EQ(Telemetry::describe(Drop::pointsCap, 2), "points past the 200,000 a run keeps");
    EXPECT_EQ(
        toJSON(taken("{\"b\":1,\"a\":{\"c\":1}}\n{}\n{}\nno")).text(),
        R"({"dropped":{"no_numbers":2,"not_json":1},"keys":["b","a.c"],"pointCount":1})");
}

} // namespace
} // namespace veltry
