#pragma once

#include "Host/Terminal/Terminal.h"

#include <cstddef>
#include <span>
#include <string>

namespace veltry {

/// The last `columns` values as a line of bars, the newest at the right, filled with blanks on the left. `most` is a
/// full bar; the largest of the values shown is, where they go beyond it. 0 and less is no bar.
[[nodiscard]] std::string sparkline(
    std::span<const double> values, std::size_t columns, double most, const Terminal& terminal);

} // namespace veltry
