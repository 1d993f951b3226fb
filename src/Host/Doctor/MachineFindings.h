#pragma once

#include "Config/VeltrySettings.h"
#include "Host/Doctor/Finding.h"

#include <cstdint>
#include <filesystem>
#include <vector>

/// What this machine offers to runs and agents. All of it is looked at when asked, in milliseconds.
namespace veltry::MachineFindings {

/// git and whose name commits bear in `folder`, tar, the shell of runs, and `veltry-tools`.
[[nodiscard]] std::vector<Finding> programs(const std::filesystem::path& folder, const std::filesystem::path& tools);

/// Node and the command of each known agent; nothing of it is wrong, since no run needs them.
[[nodiscard]] std::vector<Finding> agents(const std::string& defaultAgent);

/// The machine, as far as it bounds how many runs go at once.
struct Capacity {
    std::int64_t cores = 0;
    std::uint64_t memory = 0; ///< bytes
    std::int64_t gpus = 0;    ///< those that tell how busy they are
};
[[nodiscard]] Capacity capacity();
/// The GPUs, and whether `maxRuns` runs at once fit this machine. Pure.
[[nodiscard]] std::vector<Finding> fit(const Capacity& capacity, std::int64_t maxRuns);

/// Whether runs outlive the login.
[[nodiscard]] Finding logins();

} // namespace veltry::MachineFindings
