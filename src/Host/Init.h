#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace veltry {

class Context;

/// `veltry init`: makes a project of a git repository and says how an agent is attached to it.
namespace Init {

struct Options {
    std::filesystem::path folder = ".";
    std::optional<std::string> name; ///< the folder's own name where there is none
};

/// Registers the repository's top, unless it is there, writes `settings.toml` where there is none, and finds or makes
/// the conversation that attached clients share. Prints the configuration block of an MCP client and notes what it did.
/// Throws Refusal for a folder that can't become a project, and what the store and the file system meet.
void run(Context& context, const Options& options);

} // namespace Init

} // namespace veltry
