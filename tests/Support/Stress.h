#pragma once

#include <algorithm>
#include <cstdlib>

namespace veltry::test {

/// Whether this build counts no memory, since its sanitizer keeps what was freed.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool sanitized = true;
#elif defined(__has_feature)
inline constexpr bool sanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
inline constexpr bool sanitized = false;
#endif

/// The size of a stress test: `whole` where the environment variable VELTRY_STRESS is set (`script/test --stress`),
/// else a hundredth of it, and at least 1.
template <typename Number>
[[nodiscard]] Number stressed(Number whole)
{
    return std::getenv("VELTRY_STRESS") ? whole : std::max(whole / 100, Number{1});
}

} // namespace veltry::test
