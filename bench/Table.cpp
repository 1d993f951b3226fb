#include "Table.h"

#include <fmt/format.h>

#include <array>

namespace veltry::bench {

namespace {

constexpr double mebibyte = 1048576.0;

using Cells = std::array<std::string, 7>;

std::string amount(double value, Row::Unit unit)
{
    if (unit == Row::Unit::bytes)
        return fmt::format("{:.2f} MB", value / mebibyte);
    if (value < 1e-3)
        return fmt::format("{:.1f} us", value * 1e6);
    if (value < 1)
        return fmt::format("{:.2f} ms", value * 1e3);
    return fmt::format("{:.2f} s", value);
}

Cells cells(const Result& result)
{
    const Row& row = *result.row;
    if (!result.measured)
        return {std::string(row.what), "", std::string(row.limit), "", "", "", result.measured.error()};
    const Measured& measured = *result.measured;
    const bool isRatio = row.unit == Row::Unit::seconds;
    const double value = isRatio ? measured.ours / measured.limit : measured.ours - measured.limit;
    return {
        std::string(row.what),
        amount(measured.ours, row.unit),
        std::string(row.limit),
        amount(measured.limit, row.unit),
        isRatio ? fmt::format("{:.2f}", value) : fmt::format("{:+.2f} MB", value / mebibyte),
        row.aim == 0 ? ""
        : isRatio    ? fmt::format("{:.1f}", row.aim)
                     : fmt::format("{:+.0f} MB", row.aim / mebibyte),
        row.aim == 0       ? "told"
        : value <= row.aim ? "holds"
                           : "misses"};
}

} // namespace

std::string table(const std::vector<Result>& results)
{
    std::vector<Cells> lines{{"what", "took", "limit", "took", "ratio", "aim", "verdict"}};
    for (const Result& result : results)
        lines.push_back(cells(result));
    std::array<std::size_t, std::tuple_size_v<Cells>> widths{};
    for (const Cells& line : lines)
        for (std::size_t column = 0; column < widths.size(); ++column)
            widths[column] = std::max(widths[column], line[column].size());

    std::string text;
    for (std::size_t index = 0; index < lines.size(); ++index) {
        for (std::size_t column = 0; column < widths.size(); ++column)
            text += fmt::format("| {:{}} ", lines[index][column], widths[column]);
        text += "|\n";
        if (index == 0) {
            for (const std::size_t width : widths)
                text += fmt::format("|-{:-<{}}-", "", width);
            text += "|\n";
        }
    }
    return text;
}

} // namespace veltry::bench
