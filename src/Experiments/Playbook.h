#pragma once

#include "Experiments/Computer.h"
#include "Experiments/Machine.h"

#include <string>
#include <string_view>

/// What an agent is told at its start about working with the experiment tree.
namespace veltry::Playbook {

/// The rules alone: 46 lines, no line feed at the end.
[[nodiscard]] std::string_view instructions();

/// The rules, an empty line and the section on the computer.
[[nodiscard]] std::string instructions(const Machine& machine);
[[nodiscard]] std::string instructions(const Computer& computer);

} // namespace veltry::Playbook
