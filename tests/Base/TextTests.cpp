#include "Base/Text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {
namespace {

using ::testing::ElementsAre;

// One character of each length that UTF-8 has.
constexpr std::string_view mixed = "aé€😀z";

TEST(Text, RepairsATextCutAnywhere)
{
    for (std::size_t cut = 0; cut <= mixed.size(); ++cut) {
        SCOPED_TRACE(cut);
        const bool isInside = cut < mixed.size() && (static_cast<unsigned char>(mixed[cut]) & 0xC0) == 0x80;
        const std::string start = text::repaired(mixed.substr(0, cut));
        EXPECT_EQ(text::isValidUTF8(mixed.substr(0, cut)), !isInside);
        EXPECT_TRUE(text::isValidUTF8(start));
        EXPECT_EQ(start.ends_with("\uFFFD"), isInside); // once, however much of the character is there
        EXPECT_EQ(start.find("\uFFFD\uFFFD"), std::string::npos);
        EXPECT_EQ(text::isValidUTF8(mixed.substr(cut)), !isInside);
        EXPECT_TRUE(cut == mixed.size() || text::repaired(mixed.substr(cut)).ends_with("z"));
    }
}

TEST(Text, ReplacesEachMalformedSequenceOnce)
{
    const struct {
        std::string_view name, bytes, text;
    } cases[] = {
        {"a byte that never occurs", "a\xFFz", "a\uFFFDz"},
        {"continuations alone", "\x80\xBF", "\uFFFD\uFFFD"},
        {"overlong in two bytes", "\xC0\x80", "\uFFFD\uFFFD"},
        {"overlong in three bytes", "\xE0\x80\x80", "\uFFFD\uFFFD\uFFFD"},
        {"overlong in four bytes", "\xF0\x8F\xBF\xBF", "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"a surrogate", "\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},
        {"beyond the last scalar", "\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"cut by a letter", "\xF0\x9F\x98z", "\uFFFDz"},
        {"cut by a character", "\xE2\x82\xC3\xA9", "\uFFFDé"},
        {"the last scalars", "\uD7FF\uE000\U0010FFFF", "\uD7FF\uE000\U0010FFFF"},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(text::repaired(c.bytes), c.text);
        EXPECT_EQ(text::fromScalars(text::scalars(c.bytes)), c.text);
        EXPECT_EQ(text::isValidUTF8(c.bytes), c.bytes == c.text);
    }
}

TEST(Text, TrimsWhiteSpaceOfEveryKind)
{
    EXPECT_EQ(text::trimmed(" \t\r\n\v\f\u0085\u00A0\u2003\u2028\u3000a b\u3000\u00A0\n"), "a b");
    EXPECT_EQ(text::trimmed("\u200Ba\u200B"), "\u200Ba\u200B"); // a format character, no space
    EXPECT_EQ(text::trimmed("\x80 a \xE3\x80"), "\x80 a \xE3\x80");
    EXPECT_EQ(text::trimmed("\u3000 "), "");
    EXPECT_EQ(text::trimmedNewlines("\r\n\u2028 a \u0085\n"), " a ");
    EXPECT_EQ(text::trimmedBlanks(" \t\u3000\n a\r\u00A0\t"), "\n a\r");
    EXPECT_TRUE(text::isBlank("\u3000\n"));
    EXPECT_FALSE(text::isBlank("\xFF"));
}

TEST(Text, CountsCharactersAsAReaderDoes)
{
    const std::vector<std::string> characters = {"a",  "e\u0301", "👨‍👩‍👧", "🇩🇪",
                                                 "🇫🇷", "\r\n",    "\u1112\u1161\u11AB", "z"};
    const std::string whole = text::joined(characters, "");
    std::string start;
    for (std::size_t count = 0; count < characters.size(); ++count) {
        EXPECT_EQ(text::firstCharacters(whole, count), start) << count;
        start += characters[count];
    }
    EXPECT_EQ(text::firstCharacters(whole, characters.size()), whole);
    EXPECT_EQ(text::firstCharacters("\xE2\x82\xFF", 1), "\xE2\x82");
}

TEST(Text, LowersByTheSimpleMapping)
{
    EXPECT_EQ(text::lowercased("ÀßΣ\u0130ǅ\xFF"), "àßσi\u0307ǆ\uFFFD");
}

TEST(Text, SplitsAndJoins)
{
    EXPECT_THAT(text::split("", ','), ElementsAre(""));
    EXPECT_THAT(text::split(",a,,b,", ','), ElementsAre("", "a", "", "b", ""));
    EXPECT_EQ(text::replacingAll("aaab", "aa", "a"), "aab");
    EXPECT_EQ(text::replacingAll("ab", "", "x"), "ab");
}

TEST(Text, ReadsIntegersWhole)
{
    const struct {
        std::string_view text;
        std::optional<std::int64_t> value;
    } cases[] = {
        {"0", 0},
        {"-0", 0},
        {"+7", 7},
        {"007", 7},
        {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
        {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
        {"9223372036854775808", std::nullopt},
        {"", std::nullopt},
        {"+", std::nullopt},
        {"-", std::nullopt},
        {"+-1", std::nullopt},
        {"++1", std::nullopt},
        {" 1", std::nullopt},
        {"1 ", std::nullopt},
        {"1.0", std::nullopt},
        {"1e3", std::nullopt},
        {"0x1", std::nullopt},
    };

    for (const auto& c : cases)
        EXPECT_EQ(text::integer(c.text), c.value) << c.text;
}

} // namespace
} // namespace veltry
