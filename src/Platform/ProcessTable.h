#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <vector>

/// The machine's processes, as far as this one may see them, looked at anew at each call. May be called from any
/// thread.
namespace veltry::ProcessTable {

/// The ids of all processes of a process group, ended ones that nobody has waited for included; in no order.
[[nodiscard]] std::vector<pid_t> group(pid_t group);

/// What a process uses.
struct Usage {
    double cpuSeconds = 0; ///< its processor time so far, in its own code and in the system's; all its threads
    std::uint64_t memory =
        0; ///< its physical footprint in bytes: what would be free without it, and what is swapped out
};

/// Nothing for a process that has ended or can't be looked at.
[[nodiscard]] std::optional<Usage> usage(pid_t process);

} // namespace veltry::ProcessTable
