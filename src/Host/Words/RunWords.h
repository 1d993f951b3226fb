#pragma once

#include "Projects/Run.h"

#include <string>
#include <string_view>

/// What commands say of runs.
namespace veltry::RunWords {

/// "Run #3 failed after 2 min 5 s, with exit code 1.", or that it is queued or runs and since when.
[[nodiscard]] std::string state(const Run& run, Date now = Date::now());

/// Why a failed run has no exit code: "its supervisor was lost". Empty for any other run.
[[nodiscard]] std::string_view withoutEnd(const Run& run);

/// The values of the run's result, each on a line set in; of a finished run without a result what is wrong with the
/// file that it left, if it left one.
[[nodiscard]] std::string result(const Run& run);

/// The start of the run's commit, as people are shown it.
[[nodiscard]] std::string commit(const Run& run);

/// How long the run took, or has taken by now, waiting in the queue included.
[[nodiscard]] double seconds(const Run& run, Date now = Date::now());

} // namespace veltry::RunWords
