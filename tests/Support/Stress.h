#pragma once

#include <algorithm>
#include <cstdlib>

namespace veltry::test {

/// The size of a stress test: `whole` where the environment variable VELTRY_STRESS is set (`script/test --stress`),
/// else a hundredth of it, and at least 1.
template <typename Number>
[[nodiscard]] Number stressed(Number whole)
{
    return std::getenv("VELTRY_STRESS") ? whole : std::max(whole / 100, Number{1});
}

} // namespace veltry::test
