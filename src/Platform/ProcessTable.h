#pragma once

#include "Platform/ProcessID.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// The machine's processes, as far as this one may see them, looked at anew at each call. May be called from any
/// thread.
namespace veltry::ProcessTable {

/// The ids of all processes of a process group, ended ones that nobody has waited for included; in no order.
[[nodiscard]] std::vector<ProcessID> group(ProcessID group);

/// The ids of all processes whose environment, as it was when their program began, has that variable with that value;
/// in no order. The environments of other users' processes can't be read.
[[nodiscard]] std::vector<ProcessID> carriers(const std::string& variable, const std::string& value);
/// Whether that one does.
[[nodiscard]] bool carries(ProcessID process, const std::string& variable, const std::string& value);
/// Whether it is of that process group.
[[nodiscard]] bool isInGroup(ProcessID process, ProcessID group);

/// Ends the process with that id by SIGKILL if `isMeant` says so of it, and returns whether it did. The system may give
/// an id to another process as soon as the first is gone; only the one that was asked about is ever hit.
bool kill(ProcessID process, const std::function<bool(ProcessID process)>& isMeant);

/// When its program's process began, in seconds since 1970, as exactly as the kernel's ticks tell (10 milliseconds).
/// Nothing for a process that isn't there.
[[nodiscard]] std::optional<double> began(ProcessID process);

/// What a process uses.
struct Usage {
    double cpuSeconds = 0; ///< its processor time so far, in its own code and in the system's; all its threads
    /// Bytes in memory that no file holds, and what is swapped out.
    std::uint64_t memory = 0;
};

/// What becomes of the pages that forked processes share.
enum class SharedPages {
    countForEach, ///< the sum of several processes may be far too high
    divide,       ///< among those that share them. Walks the page tables: some 10 milliseconds for each gigabyte
};

/// Nothing for a process that has ended, for another user's (unless we are root), and for one that can't be looked at.
[[nodiscard]] std::optional<Usage> usage(ProcessID process, SharedPages shared = SharedPages::countForEach);

} // namespace veltry::ProcessTable
