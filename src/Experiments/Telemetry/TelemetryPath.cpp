#include "Experiments/Telemetry/TelemetryPath.h"

#include "Base/Text.h"

#include <algorithm>

namespace veltry {

namespace {

bool isNameCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

} // namespace

bool isTelemetryPath(std::string_view text)
{
    return std::ranges::all_of(text::split(text, '.'), [](std::string_view name) {
        return !name.empty() && std::ranges::all_of(name, isNameCharacter);
    });
}

} // namespace veltry
