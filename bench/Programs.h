#pragma once

#include "Experiments/Lab.h"
#include "Measure.h"
#include "Platform/ChildProcess.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// The programs that rows start, and the projects that they work on.
namespace veltry::bench {

/// A program in our environment.
[[nodiscard]] ChildProcess::Command program(
    const std::filesystem::path& executable, std::vector<std::string> arguments);

/// `veltry` with settings of the row's own; in the project of `lab` where one is given.
[[nodiscard]] ChildProcess::Command veltryCommand(
    const Workplace& place, std::vector<std::string> arguments, const Lab* lab = nullptr);

/// Runs a command to its end. Throws std::runtime_error with its errors if it fails.
void runProgram(const ChildProcess::Command& command);
/// The same with a script of the shell.
void runScript(const std::string& script);

/// The only project of a new store, a file of that name in `folder`.
[[nodiscard]] Lab makeLab(
    const std::filesystem::path& folder, const std::filesystem::path& project, const std::filesystem::path& tools = {},
    std::string_view name = "store");

/// What `veltry-tools` is started with to serve it.
[[nodiscard]] std::vector<std::string> serverArguments(const Lab& lab);

} // namespace veltry::bench
