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
    /// The kinds of clients, which differ in how they write it, as --client takes them. The block tells its server the
    /// kind in Computer::clientVariable.
    static constexpr std::string_view kinds = "common claude codex opencode";
    /// The kind of the client that a harness starts; "common" for one that isn't known.
    [[nodiscard]] static std::string_view kindOf(std::string_view harness);
    /// Seconds that a client has to wait for an answer: the longest wait of a tool, and a minute.
    static constexpr int patience = 1860;

    /// For that project and the conversation in which its questions are asked. `environment` is this process's own: the
    /// block passes on what the server reads. `kind` is one of `kinds`.
    [[nodiscard]] static ClientConfiguration of(
        const ProjectStore& store, const Project& project, const Conversation& conversation,
        const ChildProcess::Environment& environment, std::string_view kind);

    /// The block, with its line feed. As JSON or TOML, since the default paths hold a blank.
    [[nodiscard]] std::string text() const;
    /// What else a person has to know, a line each.
    [[nodiscard]] std::vector<std::string> notes() const;

    std::string kind;
    std::filesystem::path command;
    std::vector<std::string> arguments;
    ChildProcess::Environment environment; ///< what the server reads and a client wouldn't pass on by itself
};

} // namespace veltry
