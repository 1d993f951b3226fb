#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// The computer's facts, read anew at each call. Nothing stands for what the system doesn't tell.
namespace veltry::MachineFacts {

/// The operating system's own name and version, such as "Debian GNU/Linux 12".
[[nodiscard]] std::optional<std::string> systemName();
/// The kernel with the first two numbers of its version, such as "Linux 6.1".
[[nodiscard]] std::string kernelName();
/// The processors' architecture: "x86-64", "Arm64", else as the kernel calls it.
[[nodiscard]] std::string architecture();

/// The product's name, such as "ThinkPad T14 Gen 3".
[[nodiscard]] std::optional<std::string> productName();
/// The processor's brand text.
[[nodiscard]] std::optional<std::string> processorName();

struct CoreCounts {
    std::int64_t performance = 0; ///< physical cores; all of them where there is one kind alone
    std::int64_t efficiency = 0;
};
[[nodiscard]] CoreCounts cores();
/// How many threads the processors that are switched on carry out at once.
[[nodiscard]] std::int64_t threads();
/// How many of these this process and its children may use at a time, by affinity and by the limits of containers: may
/// be a fraction, such as 2.5.
[[nodiscard]] double usableThreads();

/// The GPU's cores, where the system tells such a number.
[[nodiscard]] std::optional<std::int64_t> gpuCores();
/// Physical memory in bytes.
[[nodiscard]] std::uint64_t memory();
/// Bytes that programs could take now before anything else must go.
[[nodiscard]] std::optional<std::uint64_t> availableMemory();
/// Bytes that this process and its children may take, where a container or a service limits them to less than memory().
[[nodiscard]] std::optional<std::uint64_t> memoryLimit();

} // namespace veltry::MachineFacts
