#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace veltry {

/// The word that goes with the count.
[[nodiscard]] constexpr std::string_view plural(std::int64_t count, std::string_view one, std::string_view many)
{
    return count == 1 ? one : many;
}

/// "1 run", "3 runs": the count and the word that goes with it.
[[nodiscard]] std::string counted(std::int64_t count, std::string_view one, std::string_view many);

} // namespace veltry
