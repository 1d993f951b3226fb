#include "Experiments/Telemetry/TelemetryPath.h"

#include "Base/Text.h"

#include <algorithm>

namespace veltry {

bool isTelemetryPath(std::string_view text)
{
    return std::ranges::all_of(text::split(text, '.'), [](std::string_view name) {
        return !name.empty() && std::ranges::all_of(name, isTelemetryNameCharacter);
    });
}

} // namespace veltry
