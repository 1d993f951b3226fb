#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// What becomes of a word that is wider than a line. One that stays whole, such as a path, can be copied.
enum class LongWords { broken, whole };

/// The text's lines, broken between words so that none takes more than `columns` columns. Each is harmless on a
/// terminal. An empty text has no line.
[[nodiscard]] std::vector<std::string> wrapped(
    std::string_view text, std::size_t columns, LongWords longWords = LongWords::broken);

} // namespace veltry
