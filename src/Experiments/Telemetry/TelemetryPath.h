#pragma once

#include <string_view>

namespace veltry {

/// True for the spelling of a telemetry key: names of ASCII letters, digits, "_" and "-", joined by full stops, such as
/// `eval.loss`. No name may be empty.
[[nodiscard]] bool isTelemetryPath(std::string_view text);

} // namespace veltry
