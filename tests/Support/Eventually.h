#pragma once

#include <chrono>
#include <concepts>
#include <thread>

namespace veltry::test {

/// Looks again and again until the condition holds; false if it doesn't within the time. The time is long, since it
/// only passes whole where a test fails.
template <std::predicate Condition>
[[nodiscard]] bool eventually(Condition condition, std::chrono::seconds limit = std::chrono::seconds(30))
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

} // namespace veltry::test
