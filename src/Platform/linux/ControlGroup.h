#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

namespace veltry {

/// What the control groups of a process allow it and its children, as containers and services are limited.
struct ControlGroupLimits {
    std::optional<double> processors;    ///< threads at a time
    std::optional<std::uint64_t> memory; ///< bytes
};

/// The limits of the process whose groups `groups` tells (cgroups(7)), the least of each from its own group to the root
/// of the hierarchy. Both versions of the interface count, also side by side. Files that aren't there limit nothing.
[[nodiscard]] ControlGroupLimits controlGroupLimits(
    const std::filesystem::path& groups = "/proc/self/cgroup", const std::filesystem::path& root = "/sys/fs/cgroup");

} // namespace veltry
