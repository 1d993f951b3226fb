#pragma once

#include "Platform/ChildProcess.h"
#include "Projects/Conversation.h"
#include "Projects/Project.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

class ProjectStore;

/// How an MCP client starts the server of one project: the block that its configuration takes. All paths are absolute.
struct ClientConfiguration {
    /// The names of the forms in which clients write it, as --client takes them.
    static constexpr std::string_view forms = "common codex opencode";
    /// Seconds that a client has to wait for an answer: the longest wait of a tool, and a minute.
    static constexpr int patience = 1860;

    /// For that project and the conversation in which its questions are asked. `environment` is this process's own;
    /// the block gets those of its variables that the server reads.
    [[nodiscard]] static ClientConfiguration of(
        const ProjectStore& store, const Project& project, const Conversation& conversation,
        const ChildProcess::Environment& environment);

    /// The block, with its line feed. As JSON or TOML, since the default paths hold a blank.
    [[nodiscard]] std::string text(std::string_view form = "common") const;
    /// What else a person has to know, a line each.
    [[nodiscard]] std::vector<std::string> notes(std::string_view form = "common") const;

    std::filesystem::path command;
    std::vector<std::string> arguments;
    ChildProcess::Environment environment; ///< what a client wouldn't pass on by itself
};

} // namespace veltry
