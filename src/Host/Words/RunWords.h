#pragma once

#include "Projects/Run.h"

#include <string>

/// What commands say of runs.
namespace veltry::RunWords {

/// "Run #3 failed after 2 min 5 s, with exit code 1.", or that it is queued or runs and since when.
[[nodiscard]] std::string state(const Run& run, Date now = Date::now());

/// The start of the run's commit, as people are shown it.
[[nodiscard]] std::string commit(const Run& run);

/// How long the run took, or has taken by now, waiting in the queue included.
[[nodiscard]] double seconds(const Run& run, Date now = Date::now());

} // namespace veltry::RunWords
