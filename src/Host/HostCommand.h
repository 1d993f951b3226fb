#pragma once

#include <string>
#include <vector>

/// The command line of `veltry`, the host at the terminal.
namespace veltry::HostCommand {

/// Runs the command that `arguments` name, the program's own name in place 0. Returns the exit status: 0, 1 for a
/// failure, which it tells in one line on standard error, 2 for a command line that it doesn't understand. Never
/// throws.
[[nodiscard]] int main(const std::vector<std::string>& arguments);

} // namespace veltry::HostCommand
