#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace veltry {

/// What an axis spans, where a value lies on it, and the round values that are written along it.
class Axis {
public:
    struct Range {
        double low = 0;
        double high = 1; ///< above `low`
    };

    /// On a logarithmic axis both ends are above 0. With `whole` no tick lies between two whole numbers.
    Axis(Range range, bool isLogarithmic = false, bool whole = false)
        : range_(range), isLogarithmic_(isLogarithmic), isWhole_(whole)
    {
    }

    /// Widened to the next ticks where an end isn't `fixed`. What spans nothing becomes something around it.
    [[nodiscard]] static Axis around(
        Range data, std::optional<double> fixedLow, std::optional<double> fixedHigh, bool isLogarithmic);

    [[nodiscard]] const Range& range() const { return range_; }
    [[nodiscard]] bool isLogarithmic() const { return isLogarithmic_; }

    /// From 0 at the low end to 1 at the high one; below and above for values beyond them. Nothing for a value that a
    /// logarithmic axis can't show.
    [[nodiscard]] std::optional<double> place(double value) const;

    struct Tick {
        double place; ///< from 0 to 1
        std::string label;
        friend bool operator==(const Tick&, const Tick&) = default;
    };

    /// At most `most` (at least 2) round values within the range, the lowest first.
    [[nodiscard]] std::vector<Tick> ticks(std::size_t most) const;

private:
    [[nodiscard]] std::vector<Tick> logarithmicTicks(std::size_t most) const;

    Range range_;
    bool isLogarithmic_;
    bool isWhole_;
};

} // namespace veltry
