#pragma once

#include "Host/Terminal/Terminal.h"

#include <string>
#include <vector>

namespace veltry {

/// Texts beside each other, each below its heading, as wide together as the terminal, or as a page of 100 columns.
[[nodiscard]] std::string sideBySide(
    const std::vector<std::string>& headings, const std::vector<std::string>& texts, const Terminal& terminal);

} // namespace veltry
