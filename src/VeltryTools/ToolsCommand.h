#pragma once

#include <map>
#include <string>
#include <vector>

/// The command line of `veltry-tools`: it reads the options, builds the objects of the chosen mode, and turns the
/// mode's end into an exit status. It holds nothing of the tools' logic.
namespace veltry::ToolsCommand {

/// From the option with its two leading dashes to the word after it. Options that no mode looks up are passed over.
using Options = std::map<std::string, std::string>;

/// Runs the mode that `arguments` name, the program's own name in place 0. Returns the exit status: 0, 1 for a failure,
/// which it writes to standard error, 2 for a command line that names no mode. `mcp` doesn't return: the end of
/// standard input ends the process with status 0.
[[nodiscard]] int main(const std::vector<std::string>& arguments);

/// A word that begins with "--" takes the next one as its value, whatever that is; one that stands last is dropped.
[[nodiscard]] Options parseOptions(const std::vector<std::string>& words);

/// The `mcp` mode: serves one agent on standard input and output. Throws LabError and the store's errors.
[[noreturn]] void serve(const Options& options);

/// The `supervise` mode: watches one run to its end, on the calling thread. Throws LabError and the store's errors.
void supervise(const Options& options);

} // namespace veltry::ToolsCommand
