#pragma once

#include "Host/Terminal/Terminal.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// The text's lines, broken between words so that none takes more than `columns` columns; a longer word is broken.
/// Each is harmless on a terminal. An empty text has no line.
[[nodiscard]] std::vector<std::string> wrapped(std::string_view text, std::size_t columns);

/// Texts beside each other, each below its heading, as wide together as the terminal, or as a page of 100 columns.
[[nodiscard]] std::string sideBySide(
    const std::vector<std::string>& headings, const std::vector<std::string>& texts, const Terminal& terminal);

} // namespace veltry
