#pragma once

#include "Experiments/Changes/Changes.h"
#include "Host/Terminal/Terminal.h"

#include <string>
#include <string_view>

/// What a node changed, as `veltry diff` shows it.
namespace veltry::DiffText {

/// "3 files, +12 -4, against main": the first line of both forms.
[[nodiscard]] std::string summary(const Changes& changes, const Terminal& terminal);

/// Each file with its lines, both sides' numbers in front. On a terminal a wide line goes on below its beginning; what
/// is too much for that is counted. A binary file and one that is too large are told in words.
[[nodiscard]] std::string lines(const Changes& changes, const Terminal& terminal);

/// A line for each file with its counts, and bars that compare them.
[[nodiscard]] std::string stat(const Changes& changes, const Terminal& terminal);

} // namespace veltry::DiffText
