#pragma once

#include "Experiments/Lab.h"
#include "Host/Terminal/Terminal.h"

#include <chrono>
#include <optional>
#include <vector>

namespace veltry {

/// Waits for what changes a view of the store, for commands that redraw. While nothing happens a look costs some
/// microseconds: it asks whether another process has committed, tries the locks of the runs in flight once a second,
/// since a supervisor that dies commits nothing, and asks for the terminal's size.
///
/// A value for one thread; `lab` and `terminal` outlive it.
class StoreWatch {
public:
    enum class Event {
        changed,  ///< another process has written, or a run whose supervisor is gone was closed
        resized,  ///< the terminal has another size
        timedOut, ///< none of these
    };

    /// What is written from here on counts as a change, so it is made before the first view is drawn.
    StoreWatch(const Lab& lab, const Terminal& terminal);

    /// Blocks until one of these happens. Throws what the store throws.
    [[nodiscard]] Event wait(std::chrono::milliseconds longest = std::chrono::hours(24));

private:
    [[nodiscard]] bool closeTheDead();

    const Lab* lab_;
    const Terminal* terminal_;
    std::int64_t dataVersion_;
    std::optional<Terminal::Size> size_;
    std::vector<Run> inFlight_;
    std::chrono::steady_clock::time_point nextLiveness_;
};

} // namespace veltry
