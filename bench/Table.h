#pragma once

#include "Measure.h"

#include <expected>
#include <string>
#include <string_view>
#include <vector>

namespace veltry::bench {

/// One line of the table: what is measured, against what, and how much of that is allowed.
struct Row {
    enum class Unit {
        seconds, ///< the aim is a ratio
        bytes,   ///< the aim is a difference
    };

    std::string_view what;
    std::string_view limit;
    double aim; ///< at most; 0 for a row that is only told
    Unit unit;
    Measured (*measure)(const Workplace& place);
};

/// A row and what came of it: its medians, or why there are none.
struct Result {
    const Row* row;
    std::expected<Measured, std::string> measured;
};

/// The results as a table in Markdown with aligned columns, ending in a line feed.
[[nodiscard]] std::string table(const std::vector<Result>& results);

} // namespace veltry::bench
