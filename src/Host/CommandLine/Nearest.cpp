#include "Host/CommandLine/Nearest.h"

#include "Base/Text.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace veltry {

namespace {

constexpr std::size_t shown = 3;

/// How many characters have to be put in, taken out or changed to make one of the other.
std::size_t distance(std::u32string_view left, std::u32string_view right)
{
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t line = 1; line <= left.size(); ++line) {
        std::size_t diagonal = row[0];
        row[0] = line;
        for (std::size_t column = 1; column <= right.size(); ++column) {
            const std::size_t changed = diagonal + (left[line - 1] == right[column - 1] ? 0 : 1);
            diagonal = row[column];
            row[column] = std::min({row[column] + 1, row[column - 1] + 1, changed});
        }
    }
    return row.back();
}

} // namespace

std::string didYouMean(std::string_view given, std::span<const std::string> names)
{
    const std::u32string wanted = text::scalars(text::lowercased(given));
    std::vector<std::pair<std::size_t, std::string>> near;
    for (const std::string& name : names) {
        const std::u32string known = text::scalars(text::lowercased(name));
        // Part of a name is how people shorten it.
        const bool contains = !wanted.empty() && known.contains(wanted);
        const std::size_t far = contains ? 0 : distance(wanted, known);
        // A third of the letters wrong is a slip; more is another word.
        if (far <= std::max<std::size_t>(1, wanted.size() / 3))
            near.emplace_back(far, name);
    }
    std::ranges::sort(near);
    const auto repeated = std::ranges::unique(near);
    near.erase(repeated.begin(), repeated.end());
    near.resize(std::min(near.size(), shown));
    std::string text;
    for (std::size_t index = 0; index < near.size(); ++index)
        text.append(
                index == 0                 ? " Did you mean "
                : index + 1 == near.size() ? " or "
                                           : ", ")
            .append(near[index].second);
    return near.empty() ? text : text + "?";
}

} // namespace veltry
