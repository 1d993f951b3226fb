#pragma once

#include <compare>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// How to start one kind of coding agent as a server of the Agent Client Protocol. To add one: a row in Harness.cpp.
struct Harness {
    /// What has to be installed first.
    enum class Missing {
        node,    ///< Node, which brings `npx`; see nodePage
        command, ///< the agent itself; see installPage
    };

    /// Where Node is had.
    static constexpr const char* nodePage = "https://nodejs.org/en/download";

    /// All that are known, in the order in which they are offered.
    [[nodiscard]] static std::span<const Harness> all();
    [[nodiscard]] static const Harness& claudeCode() { return all()[0]; }
    [[nodiscard]] static const Harness& codex() { return all()[1]; }
    [[nodiscard]] static const Harness& openCode() { return all()[2]; }
    /// The one of exactly that name, or else claudeCode().
    [[nodiscard]] static const Harness& named(std::string_view name);

    /// What is lacking on the given value of PATH, or nothing.
    [[nodiscard]] std::optional<Missing> missing(std::string_view path) const;

    auto operator<=>(const Harness&) const = default;

    std::string name; ///< shown and stored, as in the setting `agents.default`
    std::string executable;
    std::vector<std::string> arguments{};
    std::optional<std::string> autoMode{};    ///< the agent's own name of its Auto mode, where it has one
    std::optional<std::string> command{};     ///< the agent's own command, needed on the PATH as well
    std::optional<std::string> installPage{}; ///< where a person who lacks it is sent
};

} // namespace veltry
