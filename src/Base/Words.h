#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace veltry {

/// A value of an enumeration and the word that stands for it in a column, a file or a message.
template <typename Enumeration>
struct Word {
    Enumeration value;
    std::string_view word;
};

/// The table of an enumeration: an array with a row for each value, in the order of the values. An enumeration with
/// words defines it, beside itself if others need the words. Rows are Word, or have more beside `value` and `word`.
template <typename Enumeration>
constexpr auto wordsOf = nullptr;

/// True if the enumeration has a name for that number. Nothing but the compiler's own spelling of the value tells: it
/// writes "(Status)5" for a number that has none.
template <auto value>
consteval bool isNamed()
{
    return !std::string_view(__PRETTY_FUNCTION__).contains("= (");
}

/// True if the table has a row for each value of the enumeration, in their order: a new value without a row, or two
/// rows in each other's place, don't compile.
template <typename Enumeration>
consteval bool hasAllWords()
{
    constexpr const auto& table = wordsOf<Enumeration>;
    for (std::size_t index = 0; index < table.size(); ++index)
        if (static_cast<std::size_t>(table[index].value) != index)
            return false;
    return !isNamed<static_cast<Enumeration>(table.size())>();
}

/// The row of a value.
template <typename Enumeration>
[[nodiscard]] constexpr const auto& rowOf(Enumeration value)
{
    static_assert(hasAllWords<Enumeration>());
    return wordsOf<Enumeration>[static_cast<std::size_t>(value)];
}

/// The word of a value.
template <typename Enumeration>
[[nodiscard]] constexpr std::string_view toWord(Enumeration value)
{
    return rowOf(value).word;
}

/// The value of a word, in exactly this spelling; nothing if no value has it, such as a word of a later version.
template <typename Enumeration>
[[nodiscard]] constexpr std::optional<Enumeration> fromWord(std::string_view word)
{
    static_assert(hasAllWords<Enumeration>());
    for (const auto& row : wordsOf<Enumeration>)
        if (row.word == word)
            return row.value;
    return std::nullopt;
}

} // namespace veltry
