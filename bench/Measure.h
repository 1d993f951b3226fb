#pragma once

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <vector>

namespace veltry::bench {

/// What a row compares, in seconds or in bytes.
struct Measured {
    double ours = 0;
    double limit = 0;
};

/// Of an even number of values the upper one of the two in the middle; `values` isn't empty.
[[nodiscard]] inline double median(const std::vector<double>& values)
{
    std::vector<double> sorted = values;
    std::ranges::sort(sorted);
    return sorted[sorted.size() / 2];
}

/// Seconds that pass while `work` runs.
template <typename Work>
[[nodiscard]] double secondsOf(Work work)
{
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

/// The median of many single runs of `work`, for what takes microseconds: the few that another process interrupted
/// don't count.
template <typename Work>
[[nodiscard]] double medianSecondsOf(int times, Work work)
{
    std::vector<double> values;
    for (int time = 0; time < times; ++time)
        values.push_back(secondsOf(work));
    return median(values);
}

/// The least one. Where processes start, whatever else the machine does only ever adds, and adds most to the longer
/// side, so the least of many rounds is what the work itself takes.
[[nodiscard]] inline double least(const std::vector<double>& values)
{
    return *std::ranges::min_element(values);
}

/// Takes both in turn, so that whatever else the machine does meets both alike, and gives what `statistic` (the median,
/// the least) makes of their rounds. Each is called once before, which doesn't count, and returns what it measured.
template <typename Ours, typename Limit>
[[nodiscard]] Measured interleaved(
    int rounds, Ours ours, Limit limit, double (*statistic)(const std::vector<double>&) = median)
{
    static_cast<void>(ours());
    static_cast<void>(limit());
    std::vector<double> ourValues;
    std::vector<double> limitValues;
    for (int round = 0; round < rounds; ++round) {
        ourValues.push_back(ours());
        limitValues.push_back(limit());
    }
    return {.ours = statistic(ourValues), .limit = statistic(limitValues)};
}

/// Where a row works.
struct Workplace {
    std::filesystem::path folder; ///< absolute and empty at the row's start; goes away with all it holds
    std::filesystem::path tools;  ///< the `veltry-tools` executable
};

} // namespace veltry::bench
