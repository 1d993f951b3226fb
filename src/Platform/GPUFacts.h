#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The machine's GPUs, looked at anew at each call. May be called from any thread.
namespace veltry::GPUFacts {

/// How busy each GPU that tells it has been of late, in percent, in no order. A machine without any gives none.
[[nodiscard]] std::vector<double> utilizations();

struct Card {
    std::string name;              ///< as its driver calls it
    std::uint64_t memory = 0;      ///< bytes; 0 where the driver doesn't tell
    std::optional<bool> isInUse{}; ///< whether some process computes on it

    friend bool operator==(const Card&, const Card&) = default;
};

/// The cards that programs could compute on: NVIDIA's by their management library, or by the driver's files where that
/// isn't there, and AMD's by the driver's files.
struct Cards {
    std::vector<Card> cards; ///< in the drivers' order
    std::string driver;      ///< NVIDIA's version; empty where it isn't told
    std::string cuda;        ///< the newest version of CUDA that the driver serves; empty where it isn't told

    friend bool operator==(const Cards&, const Cards&) = default;
};

/// Nothing where a driver didn't answer in time: there may be cards then.
[[nodiscard]] std::optional<Cards> cards(std::chrono::milliseconds patience = std::chrono::seconds(1));

} // namespace veltry::GPUFacts
