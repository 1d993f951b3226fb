#pragma once

#include "ACP/ACPClient/WireRecord.h"

#include <optional>
#include <string>
#include <vector>

namespace veltry {

struct ConfigChoice {
    std::string value;
    std::string name;
    std::optional<std::string> description;

    friend bool operator==(const ConfigChoice&, const ConfigChoice&) = default;
};

/// A setting that the agent offers for a session, such as a model or a mode.
struct ConfigOption {
    /// The choice that `currentValue` names; nothing where it is no text, or names none.
    [[nodiscard]] std::optional<ConfigChoice> currentChoice() const;

    /// The same option with `value` as its current one.
    [[nodiscard]] ConfigOption choosing(std::string value) const;

    std::string id;
    std::string name;
    std::optional<std::string> category;   ///< absent also where it is no text
    std::string type = "select";           ///< "select" also where it is missing or no text
    std::optional<JSONValue> currentValue; ///< any JSON; the one field that changes
    /// "options": a list of choices, or one of groups, whose choices are joined in order and whose names are dropped.
    /// Empty where it is neither. Written as the flat list.
    std::vector<ConfigChoice> choices;

    friend bool operator==(const ConfigOption&, const ConfigOption&) = default;
};

/// A list from which an option that doesn't read is left out, so that an unusual one never costs the others.
struct LenientConfigOptions {
    std::vector<ConfigOption> options;
};

} // namespace veltry
