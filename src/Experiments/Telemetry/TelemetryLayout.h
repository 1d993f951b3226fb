#pragma once

#include "Base/Error.h"
#include "Base/Words.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// How a run's telemetry is to be drawn: what `telemetry.toml` at the root of the code under test asks for.
///
/// The file travels with the branch and is written by agents and people. It is read before a run is made, so that a
/// mistake in it is told at once, and its messages are meant to stand after the file's name.
struct TelemetryLayout {
    static constexpr std::string_view fileName = "telemetry.toml";
    static constexpr std::size_t maximumBytes = 16384;
    static constexpr std::size_t maximumPanels = 32;
    static constexpr std::size_t maximumStats = 16;
    static constexpr std::size_t maximumKeysOfPanel = 4;
    static constexpr std::size_t titleCharacters = 80; ///< longer titles are cut, as a reader counts characters

    enum class Scale { linear, log };
    enum class Reduce { last, min, max };

    /// A chart.
    struct Panel {
        std::string title;
        std::optional<std::string> x; ///< the key of the horizontal axis; nothing for the layout's
        std::vector<std::string> y;   ///< the keys to draw, 1 to 4, each once
        Scale scale = Scale::linear;
        std::optional<double> min; ///< ends of the vertical axis, `min` below `max`, and above 0 on a log scale
        std::optional<double> max;
        std::optional<double> rule; ///< where a horizontal line is drawn
        bool wide = false;          ///< takes the whole width
        friend bool operator==(const Panel&, const Panel&) = default;
    };

    /// A headline number.
    struct Stat {
        std::string title;
        std::string y; ///< the key
        Reduce reduce = Reduce::last;
        friend bool operator==(const Stat&, const Stat&) = default;
    };

    /// The file asks for something that can't be drawn.
    struct Invalid : Error {
        explicit Invalid(std::string text) : message(std::move(text)) {}

        [[nodiscard]] std::string description() const override { return message; }

        std::string message; ///< to be read after the file's name, such as "must be under 16 KiB"
    };

    std::optional<std::string> x; ///< the key of the horizontal axis for panels that name none
    std::vector<Panel> panels;
    std::vector<Stat> stats;

    friend bool operator==(const TelemetryLayout&, const TelemetryLayout&) = default;

    /// The layout in that folder's `telemetry.toml`; nothing if there is no such file or it can't be read. An empty
    /// file is a layout. At most 16 KiB are read, and what is no plain file counts as missing. Throws Invalid.
    [[nodiscard]] static std::optional<TelemetryLayout> read(const std::filesystem::path& folder);

    /// The layout in a text. Throws Invalid for the first problem in it.
    [[nodiscard]] static TelemetryLayout parse(std::string_view text);

    /// The layout where a project has no file: a panel for each of the first 32 keys, against `step` if a run reports
    /// it. `keys` are a run's, in the order in which it first reported them.
    [[nodiscard]] static TelemetryLayout standard(std::span<const std::string> keys);
};

/// As the file has them.
template <>
inline constexpr auto wordsOf<TelemetryLayout::Scale> = std::to_array<Word<TelemetryLayout::Scale>>({
    {TelemetryLayout::Scale::linear, "linear"},
    {TelemetryLayout::Scale::log, "log"},
});
template <>
inline constexpr auto wordsOf<TelemetryLayout::Reduce> = std::to_array<Word<TelemetryLayout::Reduce>>({
    {TelemetryLayout::Reduce::last, "last"},
    {TelemetryLayout::Reduce::min, "min"},
    {TelemetryLayout::Reduce::max, "max"},
});

} // namespace veltry
