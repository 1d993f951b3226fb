#pragma once

#include <array>
#include <string_view>

namespace veltry {

/// By character, whether it may stand in a name of a telemetry key. A table, since each key of each line is asked
/// about.
inline constexpr auto telemetryNameCharacters = [] {
    std::array<bool, 256> known{};
    for (const char c : std::string_view("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-"))
        known[static_cast<unsigned char>(c)] = true;
    return known;
}();

/// An ASCII letter, a digit, "_" or "-".
[[nodiscard]] constexpr bool isTelemetryNameCharacter(char character)
{
    return telemetryNameCharacters[static_cast<unsigned char>(character)];
}

/// True for the spelling of a telemetry key: names joined by full stops, such as `eval.loss`. No name may be empty.
[[nodiscard]] bool isTelemetryPath(std::string_view text);

} // namespace veltry
