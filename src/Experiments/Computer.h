#pragma once

#include "Experiments/LoginPython.h"
#include "Platform/GPUFacts.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace veltry {

/// This computer as it is told to an agent that `veltry` has attached: what a training may use, and nothing that the
/// system doesn't tell. (Machine is the shorter section for all other clients.)
struct Computer {
    std::string system;               ///< "Debian GNU/Linux 12, Linux 6.1, x86-64"
    std::optional<std::string> model; ///< the product's name
    std::optional<std::string> chip;  ///< the processor's
    std::int64_t cores = 0;           ///< physical ones
    std::int64_t threads = 0;
    double usableThreads = 0;            ///< by this process and its runs, at a time
    std::optional<GPUFacts::Cards> gpus; ///< none if a driver didn't answer in time
    std::string visibleGPUs{};           ///< CUDA_VISIBLE_DEVICES, which runs inherit; empty where it isn't set
    std::uint64_t memory = 0;            ///< bytes
    std::optional<std::uint64_t> availableMemory{}; ///< bytes
    std::optional<std::uint64_t> memoryLimit{};     ///< bytes, of this process and its runs
    std::optional<std::uint64_t> freeDisk{};        ///< bytes, where runs are written
    std::int64_t maxRuns = 0;                       ///< at once; 0 is no limit
    std::filesystem::path shell;                    ///< in which runs start
    std::optional<LoginPython> python{};            ///< if somebody looked in that shell

    /// Looked at anew, which takes milliseconds and at most a second more where a GPU's driver is slow. Starts no
    /// process. Never fails.
    [[nodiscard]] static Computer current(
        const std::filesystem::path& runs, std::int64_t maxRuns, std::optional<LoginPython> python);

    /// The section for the agent, of at most `longestDescription` bytes: lines without a line feed at the end. Names
    /// that are long are cut, and of more than two kinds of cards the rest is counted.
    [[nodiscard]] std::string description() const;

    static constexpr std::size_t longestDescription = 600;
    /// The variable by which the block that `veltry` makes for a client tells its server so, and for which kind.
    static constexpr const char* clientVariable = "VELTRY_CLIENT";
};

} // namespace veltry
