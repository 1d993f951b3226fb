#pragma once

#include <span>
#include <string>
#include <string_view>

namespace veltry {

/// The names that someone who typed `given` may have meant, for the end of a sentence: " Did you mean a, b or c?".
/// Empty if none is near. Letter case doesn't count.
[[nodiscard]] std::string didYouMean(std::string_view given, std::span<const std::string> names);

} // namespace veltry
