#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace veltry {

/// The facts of one computer that an agent plans its experiments by.
struct Machine {
    std::string model; ///< the computer's product name
    std::string chip;  ///< the processor's brand text
    std::int64_t performanceCores = 0;
    std::int64_t efficiencyCores = 0;
    std::optional<std::int64_t> gpuCores; ///< where the system tells it
    std::uint64_t memory = 0;             ///< physical memory in bytes

    friend bool operator==(const Machine&, const Machine&) = default;

    /// This computer, looked at anew. What the system doesn't tell has a common name or is 0. Never fails.
    [[nodiscard]] static Machine current();

    /// The section for the agent: five lines, no line feed at the end.
    [[nodiscard]] std::string description() const;
};

} // namespace veltry
