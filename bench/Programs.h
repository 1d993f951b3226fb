#pragma once

#include "Platform/ChildProcess.h"
#include "Platform/ProcessFacts.h"

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace veltry::bench {

/// Runs a command to its end. Throws std::runtime_error with its errors if it fails.
inline void runProgram(const ChildProcess::Command& command)
{
    if (const ChildProcess::Output output = ChildProcess::run(command); output.exitNumber != 0)
        throw std::runtime_error(output.error);
}

/// The same with a program in our environment.
inline void runProgram(const std::filesystem::path& executable, const std::vector<std::string>& arguments)
{
    runProgram(
        {.executable = executable,
         .arguments = arguments,
         .environment = ProcessFacts::environment(),
         .directory = {},
         .input = {},
         .output = {},
         .error = {}});
}

/// The same with a script of the shell.
inline void runScript(const std::string& script)
{
    runProgram("/bin/sh", {"-c", script});
}

} // namespace veltry::bench
