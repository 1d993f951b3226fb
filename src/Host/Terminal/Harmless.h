#pragma once

#include <string>
#include <string_view>

namespace veltry {

/// A line that a run printed, as it may reach a terminal: with `colours` the sequences that set colours and weights
/// (SGR) stay, and a last one ends them; all other control sequences go. Where carriage returns wrote over a line, as
/// progress bars do, its last state is left; other control characters but tabs become U+FFFD.
[[nodiscard]] std::string harmless(std::string_view line, bool colours);

} // namespace veltry
