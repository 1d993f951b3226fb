#pragma once

#include "Platform/ProcessID.h"
#include "Projects/Run.h"

#include <set>

namespace veltry {

/// The processes of a run, wherever they went: those of its group, and all that carry its result path in their
/// environment, as daemons do that left the group. This process and those that have ended don't count.
///
/// The group has its number from the run's shell, and the system may give that number away once the group is empty. So
/// it counts from a look at the run in flight, until it was seen empty. A value for one thread.
class RunProcesses {
public:
    /// Takes the first look.
    explicit RunProcesses(const Run& run);

    /// Looks again. `run` is its fresh row.
    [[nodiscard]] const std::set<ProcessID>& look(const Run& run);

    /// Whether the group that the row names may be taken for the run's. The row outlives the group, and anybody's may
    /// have its number now: one that began long after the run's supervisor, which has gone. No run has the number 1 or
    /// a lower one, by which signals reach everybody.
    [[nodiscard]] static bool mayReachGroup(const Run& run);

    /// Ends each of them by SIGKILL, and those that they start meanwhile. Returns how many it ended.
    std::size_t kill(const Run& run);

private:
    [[nodiscard]] bool isOfRun(const Run& run, ProcessID process) const;

    ProcessID group_ = 0; ///< 0 while it isn't known, and when it has gone
    bool groupIsOver_ = false;
    std::set<ProcessID> processes_;
};

} // namespace veltry
