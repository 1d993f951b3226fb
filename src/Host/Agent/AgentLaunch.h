#pragma once

#include "ACP/ACPClient/AgentProcess.h"
#include "ACP/ACPClient/Harness.h"
#include "Host/Context.h"
#include "Platform/ChildProcess.h"

#include <asio/awaitable.hpp>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

/// Which agent program is started, and in which environment.
namespace veltry::AgentLaunch {

/// The harness of that name, or the one that runs a command of the person's own, a line for a POSIX shell. Throws
/// UsageError, which lists the harnesses, for a name that isn't known.
[[nodiscard]] Harness harnessFor(
    const std::optional<std::string>& name, const std::optional<std::string>& command, const std::string& usual);

/// Starts the agent in the folder, in the environment that environment() gives. Throws Refusal, with where to get it,
/// if a program that the harness needs isn't on that environment's PATH, and what the start meets.
[[nodiscard]] asio::awaitable<std::shared_ptr<AgentProcess>> start(
    Context& context, Harness harness, std::filesystem::path folder);

/// The environment without the `*_API_KEY` variables where the settings say that agents don't get them.
[[nodiscard]] ChildProcess::Environment permitted(ChildProcess::Environment environment);

/// What is permitted() of the environment of the person's login shell, with the limits of the agent's own MCP client
/// raised so that a wait of ten minutes and an answer of 100 KB come through. A shell that can't be captured is noted,
/// and the usual folders take its place.
[[nodiscard]] asio::awaitable<ChildProcess::Environment> environment(Context& context, Harness harness);

/// Why an agent that has just ended did so, as far as it said, for the end of a sentence.
[[nodiscard]] std::string lastWords(const Harness& harness, const std::string& standardError);

} // namespace veltry::AgentLaunch
