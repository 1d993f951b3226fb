#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace veltry {

/// What an axis spans, where a value lies on it, and the round values that are written along it. Any finite numbers
/// will do: the largest, those whose distance no double holds, and those that hardly differ.
class Axis {
public:
    struct Range {
        double low = 0;
        double high = 1; ///< above `low`; both are finite
    };

    /// On a logarithmic axis both ends are above 0. With `whole` no tick lies between two whole numbers.
    Axis(Range range, bool isLogarithmic = false, bool whole = false)
        : range_(range), isLogarithmic_(isLogarithmic), isWhole_(whole)
    {
    }

    /// Widened to the next ticks where an end isn't `fixed`. What spans nothing, or no more than the rounding of its
    /// numbers, becomes something around it.
    [[nodiscard]] static Axis around(
        Range data, std::optional<double> fixedLow, std::optional<double> fixedHigh, bool isLogarithmic);

    /// From end to end of the data, as an axis across has it, or around it where it spans nothing.
    [[nodiscard]] static Axis through(Range data, bool whole);

    [[nodiscard]] const Range& range() const { return range_; }
    [[nodiscard]] bool isLogarithmic() const { return isLogarithmic_; }

    /// From 0 at the low end to 1 at the high one; below and above for values beyond them, but always a number that can
    /// be reckoned with. Nothing for a value that a logarithmic axis can't show.
    [[nodiscard]] std::optional<double> place(double value) const;

    struct Tick {
        double place; ///< from 0 to 1
        std::string label;
        friend bool operator==(const Tick&, const Tick&) = default;
    };

    /// At most `most` (at least 2) round values within the range, the lowest first; the two ends where there are fewer
    /// than two.
    [[nodiscard]] std::vector<Tick> ticks(std::size_t most) const;

    /// As many as are written in one row of `characters` with room between them, but no more than `most`.
    [[nodiscard]] std::vector<Tick> ticksAcross(std::size_t most, double characters) const;

private:
    [[nodiscard]] std::vector<Tick> linearTicks(std::size_t most) const;
    [[nodiscard]] std::vector<Tick> logarithmicTicks(std::size_t most) const;
    [[nodiscard]] std::vector<Tick> ends() const;

    Range range_;
    bool isLogarithmic_;
    bool isWhole_;
};

} // namespace veltry
