#include "Platform/linux/ControlGroup.h"

#include "Base/Text.h"
#include "Platform/Files.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace veltry {

namespace {

std::string firstLine(const std::filesystem::path& file)
{
    const std::string contents = Files::readIfPossible(file).value_or("");
    return contents.substr(0, contents.find('\n'));
}

template <typename Number>
void lower(std::optional<Number>& limit, Number other)
{
    limit = limit ? std::min(*limit, other) : other;
}

void lowerProcessors(ControlGroupLimits& limits, std::string_view quota, std::string_view period)
{
    const auto microseconds = text::integer(quota); // "max" and -1 are no limit
    const auto each = text::integer(period);
    if (microseconds && each && *microseconds > 0 && *each > 0)
        lower(limits.processors, static_cast<double>(*microseconds) / static_cast<double>(*each));
}

void lowerMemory(ControlGroupLimits& limits, std::string_view bytes)
{
    // Without a limit the first version writes about 2^63, the second "max".
    const auto count = text::integer(bytes);
    if (count && *count >= 0)
        lower(limits.memory, static_cast<std::uint64_t>(*count));
}

/// Version 2 has all in one folder, version 1 a folder for each controller.
void readGroup(ControlGroupLimits& limits, const std::filesystem::path& folder)
{
    const std::string both = firstLine(folder / "cpu.max");
    const std::size_t blank = both.find(' ');
    if (blank != std::string::npos)
        lowerProcessors(limits, std::string_view(both).substr(0, blank), std::string_view(both).substr(blank + 1));
    lowerProcessors(limits, firstLine(folder / "cpu.cfs_quota_us"), firstLine(folder / "cpu.cfs_period_us"));
    lowerMemory(limits, firstLine(folder / "memory.max"));
    lowerMemory(limits, firstLine(folder / "memory.limit_in_bytes"));
}

} // namespace

ControlGroupLimits controlGroupLimits(const std::filesystem::path& groups, const std::filesystem::path& root)
{
    ControlGroupLimits limits;
    const std::string contents = Files::readIfPossible(groups).value_or("");
    for (std::string_view line : text::split(contents, '\n')) { // "<number>:<controllers>:<path>"
        const std::size_t first = line.find(':');
        const std::size_t second = first == std::string_view::npos ? first : line.find(':', first + 1);
        if (second == std::string_view::npos)
            continue;
        const std::string_view controllers = line.substr(first + 1, second - first - 1);
        const bool isSecondVersion = controllers.empty();
        const std::filesystem::path mount = isSecondVersion ? root : root / controllers;
        // In a container the path may be one outside of it, which isn't there: the root of what is mounted is its own.
        std::filesystem::path group = std::filesystem::path(line.substr(second + 1)).relative_path();
        // A group is held to the limits of all that it lies in, so the least on the way up counts.
        while (true) {
            readGroup(limits, mount / group);
            if (isSecondVersion)
                readGroup(limits, root / "unified" / group); // where both versions are mounted side by side
            if (group.empty())
                break;
            group = group.parent_path();
        }
    }
    return limits;
}

} // namespace veltry
