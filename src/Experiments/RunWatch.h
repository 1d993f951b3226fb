#pragma once

#include "Experiments/Lab.h"

#include <cstdint>
#include <set>
#include <vector>

namespace veltry {

/// Looks at a project's runs in flight again and again, at a cost that doesn't grow with the history: after the first
/// look only what was in flight then and what was made since is read. Each look closes runs whose supervisor is gone.
///
/// `lab` outlives it. A value for one thread; each operation throws what Lab::reconcile() throws.
class RunWatch {
public:
    /// Takes the first look.
    explicit RunWatch(const Lab& lab);

    /// How many of the runs that the first look found in flight had not ended at the last look.
    [[nodiscard]] std::size_t waiting() const { return waiting_.size(); }

    /// Looks again: those of the waiting runs that have ended since, by number. They don't wait any more.
    [[nodiscard]] std::vector<Run> finishedSince();

private:
    void keepInFlight(const ProjectStore::RunLook& look);

    const Lab* lab_;
    std::set<UUID> waiting_;
    std::vector<UUID> inFlight_; // the waiting ones and those that were made later
    std::int64_t lastRowID_ = 0;
};

} // namespace veltry
