#pragma once

#include "Host/CommandLine/Command.h"

#include <array>
#include <span>
#include <string_view>
#include <vector>

/// All commands of `veltry`. One source in Commands/ holds each family's rows and what they do.
namespace veltry::CommandTable {

/// In the order in which help and the manual page show them.
[[nodiscard]] const std::vector<Command>& commands();

/// The command of that name, or null.
[[nodiscard]] const Command* find(std::string_view name);

/// The first word of commands with two words, and what they are about: {"project", "Change a registered project"}.
struct Group {
    std::string_view name;
    std::string_view summary;
};
[[nodiscard]] std::span<const Group> groups();

/// The options that every command of this kind takes, beside its own.
[[nodiscard]] std::vector<Option> commonOptions(const Command& command);

} // namespace veltry::CommandTable
