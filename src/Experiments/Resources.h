#pragma once

#include "Base/JSONValue.h"
#include "Platform/ProcessTable.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>

namespace veltry {

/// What a run uses at one moment.
struct ResourceReading {
    std::int64_t processes = 0; ///< of its group
    /// Their processor time so far, summed. It may go down from one reading to the next, when a process ends.
    double cpuSeconds = 0;
    std::uint64_t memory = 0;  ///< their physical footprints in bytes, summed: what ProcessTable::Usage says
    std::optional<double> gpu; ///< as Resources::gpuUtilization() gives it

    friend bool operator==(const ResourceReading&, const ResourceReading&) = default;
};

/// A gpu that isn't known is left out.
[[nodiscard]] JSONValue toJSON(const ResourceReading& reading);

/// What runs use, on request: nothing is sampled or kept here. A client that wants a rate or a graph reads as often as
/// it likes, and gives two readings to cores(). All may be called from any thread.
namespace Resources {

/// What a process group uses. A run is the leader of a group of its own (`Run::pid`), and what it starts is counted
/// however deep, unless it left the group. Processes of other users don't count. Nothing if the group has no process
/// that can be read, as after a run's end.
[[nodiscard]] std::optional<ResourceReading> read(
    std::int32_t group, ProcessTable::SharedPages shared = ProcessTable::SharedPages::countForEach);

/// How busy the machine's busiest GPU is, from 0 to 1, whoever uses it. Nothing if no GPU tells it.
[[nodiscard]] std::optional<double> gpuUtilization();
/// The same of given GPUs, in percent.
[[nodiscard]] std::optional<double> gpuUtilization(std::span<const double> percentages);

/// A reading's processor time, and when it was read.
struct Moment {
    std::chrono::steady_clock::time_point at;
    double cpuSeconds = 0;
};

/// The processor cores that were kept busy between the two, on average. 0 where no time has passed, or where the
/// processor time went down because a process ended.
[[nodiscard]] double cores(const Moment& from, const Moment& to);

} // namespace Resources

} // namespace veltry
