#pragma once

#include "Projects/Conversation.h"
#include "Projects/Project.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace veltry {

class Context;
class ProjectStore;

/// `veltry init`: makes a project of a git repository and says how an agent is attached to it.
namespace Init {

/// The title of the conversation that attached clients share, by which it is found again.
constexpr std::string_view conversationTitle = "Attached clients";

struct Options {
    std::filesystem::path folder = ".";
    std::optional<std::string> name; ///< the folder's own name where there is none
    std::string client = "common";   ///< one of ClientConfiguration::kinds
};

/// Registers the repository's top, unless it is there, writes `settings.toml` where there is none, and finds or makes
/// the conversation that attached clients share, and asks the login shell which Python it finds. Prints the
/// configuration block of an MCP client and notes what it did. Throws Refusal for a folder that can't become a project,
/// and what the store and the file system throw.
void run(Context& context, const Options& options);

/// The top of the repository in which the folder lies, and a note where that is another one. Throws Refusal for what is
/// no folder, no repository or a node's worktree.
[[nodiscard]] std::filesystem::path repositoryTop(const std::filesystem::path& folder, const Context& context);

/// The conversation that run() made for that project, if it did.
[[nodiscard]] std::optional<Conversation> conversationOfClients(const ProjectStore& store, const Project& project);

} // namespace Init

} // namespace veltry
