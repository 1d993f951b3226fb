#include "Base/JSONValue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <string_view>

namespace veltry {
namespace {

using ::testing::HasSubstr;
using ::testing::Throws;

constexpr double infinity = std::numeric_limits<double>::infinity();

std::string nested(std::size_t depth)
{
    return std::string(depth, '[') + std::string(depth, ']');
}

TEST(JSONValue, WritesNumbers)
{
    const struct {
        double number;
        std::string_view text;
    } cases[] = {
        {3.0, "3"},
        {-0.0, "0"},
        {-17, "-17"},
        {0.5, "0.5"},
        {0.1, "0.1"},
        {1e15, "1000000000000000"},
        {9007199254740991.0, "9007199254740991"},
        {5e-324, "5e-324"},
        {1e300, "1e+300"},
    };

    for (const auto& c : cases)
        EXPECT_EQ(JSONValue(c.number).text(), c.text);
    // From 2^53 on in floating form, which reads back as the same number.
    for (const double number : {9007199254740992.0, -1e18, std::numeric_limits<double>::max()})
        EXPECT_EQ(JSONValue::parse(JSONValue(number).text()), JSONValue(number));
    for (const double number : {std::nan(""), infinity, -infinity})
        EXPECT_THAT([&] { static_cast<void>(JSONValue::array({1, number}).text()); }, Throws<JSONValue::Failure>());
}

TEST(JSONValue, ReadsNumbersAsDoubles)
{
    EXPECT_EQ(JSONValue::parse("-0"), JSONValue(0));
    EXPECT_EQ(JSONValue::parse("9007199254740993"), JSONValue(9007199254740992.0));
    EXPECT_EQ(JSONValue::parse("123456789012345678901234567890"), JSONValue(123456789012345678901234567890.0));
    EXPECT_EQ(JSONValue::parse("1e-999"), JSONValue(0));
    EXPECT_EQ(JSONValue::parse("2.50E+1"), JSONValue(25));
    EXPECT_NE(JSONValue(std::nan("")), JSONValue(std::nan("")));
}

TEST(JSONValue, GivesIntegersThatFit)
{
    EXPECT_EQ(JSONValue(-1.9).integer(), -1);
    EXPECT_EQ(JSONValue(-0x1p63).integer(), std::numeric_limits<std::int64_t>::min());
    for (const JSONValue& none : {JSONValue(0x1p63), JSONValue(infinity), JSONValue(std::nan("")), JSONValue("1"), {}})
        EXPECT_EQ(none.integer(), std::nullopt);
}

TEST(JSONValue, RefusesWhatIsNotStrictlyJSON)
{
    const std::string_view cases[] = {
        "",
        " ",
        "{",
        "]",
        "[1,]",
        "{\"a\":1,}",
        "{a:1}",
        "{\"a\" 1}",
        "'a'",
        "[1] 2",
        "// x\n1",
        "01",
        "1.",
        ".5",
        "+1",
        "0x10",
        "NaN",
        "Infinity",
        "-",
        "1e",
        "1e999",
        "-1e999",
        "True",
        "nul",
        "\"\\x\"",
        "\"\\u12\"",
        "\"a\nb\"",
        "\"a\tb\"",
        "\"\\ud800\"",
        "\"\\udc00\"",
        "\"\xFF\"",
        "\"\xED\xA0\x80\"",
        "\"a",
        "[1\v]",
        "[1,\xA0"
        "2]",
    };
    for (const std::string_view text : cases) {
        SCOPED_TRACE(text);
        EXPECT_EQ(JSONValue::parseIfValid(text), std::nullopt);
        EXPECT_THAT([&] { static_cast<void>(JSONValue::parse(text)); }, Throws<JSONValue::Failure>());
    }
}

TEST(JSONValue, ANULByteEndsNoDocument)
{
    using namespace std::string_view_literals;
    for (const std::string_view text : {"1\0"sv, "{}\0{}"sv, "[1,\0 2]"sv, "\0"sv, "\"a\0\""sv})
        EXPECT_EQ(JSONValue::parseIfValid(text), std::nullopt);
    EXPECT_EQ(JSONValue::parse("\"\\u0000\""), JSONValue("\0"sv));
}

TEST(JSONValue, LimitsItsDepth)
{
    EXPECT_EQ(JSONValue::parse(nested(512)).text(), nested(512));
    EXPECT_EQ(JSONValue::parseIfValid(nested(513)), std::nullopt);
    std::string objects;
    for (int level = 0; level < 513; ++level)
        objects += "{\"a\":";
    for (const std::string& text : {std::string(100'000, '['), objects})
        EXPECT_THAT(
            [&] { static_cast<void>(JSONValue::parse(text)); },
            ::testing::ThrowsMessage<JSONValue::Failure>(HasSubstr("more than 512 levels")));
}

TEST(JSONValue, ARefusalIsShortHoweverLongTheText)
{
    try {
        static_cast<void>(JSONValue::parse('"' + std::string(1'000'000, 'a')));
        FAIL() << "not refused";
    } catch (const JSONValue::Failure& failure) {
        EXPECT_LT(failure.message.size(), 1000U);
    }
}

TEST(JSONValue, OfARepeatedKeyTheLastCounts)
{
    EXPECT_EQ(JSONValue::parse(R"({"a":{"b":[1]},"c":2,"a":[null]})").text(), R"({"a":[null],"c":2})");
}

TEST(JSONValue, WritesOneLineWithSortedKeys)
{
    const JSONValue value = JSONValue::object({
        {"z", JSONValue::array({})},
        {"a/b", JSONValue::array({true, nullptr, "\"\\\b\f\n\r\t\x1F\x7F/é"})},
        {"", JSONValue::object({})},
    });
    EXPECT_EQ(
        value.text(), R"({"":{},"a/b":[true,null,"\"\\\u0008\u000c\n\r\t\u001f)"
                      "\x7F"
                      R"(/é"],"z":[]})");
    EXPECT_EQ(JSONValue("a/b").text(JSONValue::Slashes::escaped), R"("a\/b")");
    EXPECT_EQ(JSONValue::parse(value.text(JSONValue::Slashes::escaped)), value);
    EXPECT_EQ(
        JSONValue::object({{"a", JSONValue::array({1, JSONValue::array({})})}}).prettyText(),
        "{\n  \"a\": [\n    1,\n    []\n  ]\n}");
}

TEST(JSONValue, WritesMalformedBytesAsReplacements)
{
    EXPECT_EQ(JSONValue("a\xFF\"é\xC3").text(), "\"a\uFFFD\\\"é\uFFFD\"");
    EXPECT_EQ(JSONValue::object({{"\xFF", 1}}).text(), "{\"\uFFFD\":1}");
}

TEST(JSONValue, FindsMembersOfObjectsAlone)
{
    const JSONValue value = JSONValue::parse(R"({"a":null})");
    ASSERT_NE(value.find("a"), nullptr);
    EXPECT_TRUE(value.find("a")->isNull());
    EXPECT_EQ(value.find("b"), nullptr);
    EXPECT_EQ(JSONValue::array({1}).find("a"), nullptr);
}

} // namespace
} // namespace veltry
