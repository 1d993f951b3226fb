#pragma once

#include "Projects/Run.h"

#include <string>
#include <string_view>

/// What commands say of runs.
namespace veltry::RunWords {

/// "Run #3 failed after 2 min 5 s, with exit code 1.", or that it is queued or runs and since when.
[[nodiscard]] std::string state(const Run& run, Date now = Date::now());

/// Whether the words name a run by its number. The start of an id may be digits alone as well, but is longer.
[[nodiscard]] bool isNumber(std::string_view given);

} // namespace veltry::RunWords
