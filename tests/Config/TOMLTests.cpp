#include "Config/TOML.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace veltry {
namespace {

std::string repeated(std::string_view piece, std::size_t count)
{
    std::string text;
    text.reserve(piece.size() * count);
    for (std::size_t index = 0; index < count; ++index)
        text += piece;
    return text;
}

/// What is wrong with a text; "nothing" if it can be parsed.
std::string faultOf(std::string_view text)
{
    try {
        static_cast<void>(TOML::parse(text));
        return "nothing";
    } catch (const TOML::Failure& failure) {
        return failure.description();
    }
}

TEST(TOML, ReadsValues)
{
    const struct {
        std::string_view text;
        TOML value;
    } cases[] = {
        {"1_000", 1000},
        {"+5", 5},
        {"-.5", -0.5},
        {"1.e3", 1000},
        {"3e2", 300},
        {"_1__0_", 10},
        {"1e-999", 0},
        {"true", true},
        {"false # no", false},
        {R"("a\tb\n\r\"\\")", "a\tb\n\r\"\\"},
        {R"("\u00e9\U0001F600\u+041")", "é😀A"},
        {R"("\u-000")", std::string(1, '\0')},
        {R"('C:\temp')", R"(C:\temp)"},
        {R"("C:\temp")", "C:\temp"},
        {"\"\"", ""},
        {"'# no comment'", "# no comment"},
        {"[]", TOML::Array{}},
        {R"([1, "a", [true],])", TOML::Array{1, "a", TOML::Array{true}}},
        {"[ # one\n 1 # two\n\r\n ,\n 2 ]", TOML::Array{1, 2}},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(TOML::parse("x = " + std::string(c.text)), (TOML::Table{{"x", c.value}}));
    }
}

TEST(TOML, SortsStatementsIntoTables)
{
    const TOML::Table document = TOML::parse("\n# a comment\r\n"
                                             "a = 1\r\n"
                                             "[ t ]  # a table\n"
                                             "a-1_B = 2\n"
                                             "'b.c' = 3\n"
                                             "[[rows]]\n"
                                             "[[ \"rows\" ]]\n"
                                             "a = 4\n"
                                             "[\"t.u\"]\n"
                                             "\"\" = 5");
    EXPECT_EQ(
        document, (TOML::Table{
                      {"a", 1},
                      {"t", TOML::Table{{"a-1_B", 2}, {"b.c", 3}}},
                      {"rows", TOML::Tables{{}, {{"a", 4}}}},
                      {"t.u", TOML::Table{{"", 5}}},
                  }));
    EXPECT_EQ(TOML::parse(""), TOML::Table{});
    EXPECT_EQ(TOML::parse("# only this"), TOML::Table{});
}

TEST(TOML, NamesTheSentenceAndTheLineOfARefusal)
{
    const struct {
        std::string_view text, message;
    } cases[] = {
        {"= 1", "expected a key on line 1"},
        {"\n\n?", "expected a key on line 3"},
        {"\uFEFFa = 1", "expected a key on line 1"},
        {"[ [a]]", "expected a key on line 1"},
        {"[", "expected ] on line 1"},
        {"[[a] ]", "expected ] on line 1"},
        {"a.b = 1", "dotted keys are not supported on line 1"},
        {".a = 1", "dotted keys are not supported on line 1"},
        {"\"a\".b = 1", "expected = after a on line 1"},
        {"# x\na", "expected = after a on line 2"},
        {"x = 0x10", "expected the end of the line on line 1"},
        {"x = trueish", "expected the end of the line on line 1"},
        {"x = \"\" \"\"", "expected the end of the line on line 1"},
        {"x = 1 \r y", "expected the end of the line on line 1"},
        {"[a] x = 1", "expected the end of the line on line 1"},
        {"x =", "expected a value on line 1"},
        {"x = truth", "expected a value on line 1"},
        {"x = 1979-05-27", "expected a value on line 1"},
        {"x = .5", "expected a value on line 1"},
        {"x = 1e999", "expected a value on line 1"},
        {"x = -inf", "expected a value on line 1"},
        {"x = [1,\n 2,\n ?]", "expected a value on line 3"},
        {"x = [1 2]", "expected , or ] in an array on line 1"},
        {"x = [1\n\n", "expected , or ] in an array on line 3"},
        {"x = {a = 1}", "inline tables are not supported on line 1"},
        {"x = \"\"\"a\"\"\"", "multi-line strings are not supported on line 1"},
        {"x = ''''''", "multi-line strings are not supported on line 1"},
        {"x = \"a\nb\"", "a string with no closing quote on line 1"},
        {"x = \"a\\", "a string with no closing quote on line 1"},
        {R"(x = "\b")", R"(an unknown escape \b on line 1)"},
        {R"(x = "\é")", R"(an unknown escape \é on line 1)"},
        {R"(x = "\uD800")", R"(a bad \u escape on line 1)"},
        {R"(x = "\U00110000")", R"(a bad \u escape on line 1)"},
        {R"(x = "\u00g0")", R"(a bad \u escape on line 1)"},
        {R"(x = "\u0+41")", R"(a bad \u escape on line 1)"},
        {R"(x = "\u1)", R"(a bad \u escape on line 1)"},
        {"a = 1\na = 1\n\n", "a is defined twice on line 2"},
        {"a = 1\na = [\n]\n", "a is defined twice on line 3"},
        {"[a]\n[a]\n", "a is defined twice on line 2"},
        {"[a]\n[[a]]\n", "a is defined twice on line 2"},
        {"[[a]]\n[a]", "a is defined twice on line 2"},
        {"a = 1\n[a]", "a is defined twice on line 2"},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(faultOf(c.text), c.message);
    }
}

TEST(TOML, LimitsHowDeepArraysNest)
{
    const auto nested = [](std::size_t depth) { return "x = " + repeated("[", depth) + repeated("]", depth); };
    EXPECT_EQ(faultOf(nested(TOML::maximumDepth)), "nothing");
    EXPECT_EQ(faultOf(nested(TOML::maximumDepth + 1)), "expected a value on line 1");
    EXPECT_EQ(faultOf("x = " + repeated("[", 100'000)), "expected a value on line 1");
}

// Each would take minutes if a step looked at the whole rest of the text, or at all that stands before it.
TEST(TOML, ReadsLargeTextsInOnePass)
{
    constexpr std::size_t count = 200'000;
    EXPECT_EQ(TOML::parse("x = [" + repeated("1, # one\n", count) + "]").at("x").array()->size(), count);
    EXPECT_EQ(TOML::parse(repeated("[[row]]\na = 1\n", count)).at("row").tables()->size(), count);
    EXPECT_EQ(TOML::parse("x = '" + repeated("a", count) + "'").at("x").string()->size(), count);
    EXPECT_EQ(faultOf("x = " + repeated("1", count)), "expected a value on line 1");
}

} // namespace
} // namespace veltry
