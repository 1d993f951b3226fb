#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// The computer's facts, read anew at each call. Nothing stands for what the system doesn't tell.
namespace veltry::MachineFacts {

/// The product's name, such as "ThinkPad T14 Gen 3".
[[nodiscard]] std::optional<std::string> productName();
/// The processor's brand text.
[[nodiscard]] std::optional<std::string> processorName();

struct CoreCounts {
    std::int64_t performance = 0; ///< physical cores; all of them where there is one kind alone
    std::int64_t efficiency = 0;
};
[[nodiscard]] CoreCounts cores();

/// The GPU's cores, where the system tells such a number.
[[nodiscard]] std::optional<std::int64_t> gpuCores();
/// Physical memory in bytes.
[[nodiscard]] std::uint64_t memory();

} // namespace veltry::MachineFacts
