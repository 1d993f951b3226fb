#pragma once

#include <cstdio>
#include <cstdlib>

namespace veltry::fuzz {

/// Ends the process where the property doesn't hold, so that the fuzzer keeps the input. Unlike assert() it counts in
/// every build.
inline void require(bool holds, const char* property)
{
    if (holds)
        return;
    std::fprintf(stderr, "broken: %s\n", property);
    std::abort();
}

} // namespace veltry::fuzz
