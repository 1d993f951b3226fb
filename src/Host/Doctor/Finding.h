#pragma once

#include "Base/JSONValue.h"
#include "Host/Terminal/Terminal.h"

#include <span>
#include <string>

namespace veltry {

/// What `veltry doctor` found out about one thing.
struct Finding {
    enum class Level {
        good,
        absent, ///< isn't there, and needn't be
        advice, ///< it works, but not as well as it could
        wrong,  ///< something that is needed doesn't work
    };

    std::string subject; ///< a word or two: "git", "free disk"
    Level level = Level::good;
    std::string text;        ///< what is, in a sentence or a few words
    std::string advice = {}; ///< what to do; empty where nothing is to be done
};

/// A mark and a line for each, wrapped to the terminal's width, with the advice below it.
[[nodiscard]] std::string drawn(std::span<const Finding> findings, const Terminal& terminal);
[[nodiscard]] JSONValue toJSON(const Finding& finding);

} // namespace veltry
