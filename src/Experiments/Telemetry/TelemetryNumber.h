#pragma once

namespace veltry {

/// Reads the number that begins at `at`: an optional "-", digits, optionally "." and digits, optionally an exponent.
/// Leading zeros are fine. Returns the place after it, or null where that is no number, and sets `value` to the
/// nearest double: one that is too large is infinite.
[[nodiscard]] const char* readTelemetryNumber(const char* at, const char* end, double& value);

} // namespace veltry
