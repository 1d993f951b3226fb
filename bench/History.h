#pragma once

#include "Experiments/Lab.h"
#include "Platform/FileLock.h"

#include <cstdint>
#include <filesystem>
#include <string_view>
#include <vector>

namespace veltry::bench {

/// A store with one project whose history has the given size, made quickly: a tree in which each node has three
/// children, with as many ended runs for each node, and two more runs in flight, whose supervisors seem to live.
class History {
public:
    struct Size {
        std::int64_t nodes;
        std::int64_t runs; ///< ended ones
    };

    static constexpr Size large{.nodes = 10'000, .runs = 100'000};
    static constexpr Size middling{.nodes = 1'000, .runs = 10'000};
    static constexpr Size small{.nodes = 1, .runs = 10};

    /// Makes the store as a file of that name in `folder`.
    History(const std::filesystem::path& folder, std::string_view name, Size size);

    [[nodiscard]] const Lab& lab() const { return lab_; }

    [[nodiscard]] ProjectStore& store() const { return *lab_.store; }

    [[nodiscard]] const UUID& project() const { return lab_.project.id; }

    /// The node that was made last. It has runs in flight.
    [[nodiscard]] const Experiment& lastNode() const { return lastNode_; }

    /// Of the runs that it was made with.
    [[nodiscard]] std::int64_t lastNumber() const { return lastNumber_; }

private:
    static constexpr std::int64_t inFlight = 2;

    void fill(Size size);

    Lab lab_;
    std::int64_t lastNumber_;
    Experiment lastNode_;
    std::vector<FileLock> supervisors_;
};

} // namespace veltry::bench
