#pragma once

#include "Projects/Run.h"

#include <chrono>
#include <cstdint>

namespace veltry {

class Context;

/// A run that a command watches until it ends. Looking costs next to nothing while the store doesn't change.
class LiveRun {
public:
    /// `context` outlives it.
    LiveRun(Context& context, Run run);

    /// The row as it stands now. A run whose supervisor is gone is closed on the way, every other second at most.
    /// Throws what the store and Context::lab() throw.
    const Run& look();

    /// As look() gave it last.
    [[nodiscard]] const Run& run() const { return run_; }

private:
    Context* context_;
    Run run_;
    std::int64_t version_;
    std::chrono::steady_clock::time_point nextTest_;
};

} // namespace veltry
