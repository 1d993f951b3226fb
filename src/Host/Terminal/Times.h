#pragma once

#include "Base/Date.h"

#include <chrono>
#include <string>

/// Times as a person reads them, in the local zone.
namespace veltry::Times {

/// "just now", "5 minutes ago", "3 hours ago", "yesterday", "6 days ago", then the date. A moment to come counts as
/// now.
[[nodiscard]] std::string ago(Date moment, Date now = Date::now());

/// "2026-03-01 14:05:09".
[[nodiscard]] std::string local(Date moment);

/// "0.4 s", "12 s", "3 min 20 s", "2 h 5 min", "4 d 3 h". Below 0 counts as 0.
[[nodiscard]] std::string length(double seconds);
/// The same without tenths: "4 s".
[[nodiscard]] std::string length(std::chrono::seconds time);

} // namespace veltry::Times
