#pragma once

#include "Host/CommandLine/Command.h"

#include <span>
#include <vector>

/// The families of commands; each has a source of its own here, which holds its rows and what they do.
namespace veltry::Commands {

using Family = std::span<const Command>;

/// init, projects, project …
[[nodiscard]] Family projectCommands();
/// new, files
[[nodiscard]] Family folderCommands();
/// tree
[[nodiscard]] Family treeCommands();
/// list
[[nodiscard]] Family listCommands();
/// compare
[[nodiscard]] Family compareCommands();
/// show
[[nodiscard]] Family showCommands();
/// diff
[[nodiscard]] Family diffCommand();
/// log
[[nodiscard]] Family logCommand();
/// charts
[[nodiscard]] Family chartCommand();
/// top
[[nodiscard]] Family topCommand();
/// run, cancel, wait
[[nodiscard]] Family runCommands();
/// create, notes, archive
[[nodiscard]] Family nodeCommands();
/// questions, answer, dismiss
[[nodiscard]] Family questionCommands();
/// agent, import
[[nodiscard]] Family agentCommands();
/// conversations …, said
[[nodiscard]] Family conversationCommands();
/// papers …
[[nodiscard]] Family paperCommands();
/// settings …
[[nodiscard]] Family settingsCommands();
/// disk
[[nodiscard]] Family diskCommand();
/// doctor
[[nodiscard]] Family doctorCommand();
/// complete, for the shells
[[nodiscard]] Family completeCommand();

/// All of them, in the order in which they are shown.
[[nodiscard]] inline std::vector<Family> families()
{
    return {
        projectCommands(), folderCommands(),   treeCommands(),     listCommands(),  compareCommands(),
        showCommands(),    diffCommand(),      logCommand(),       chartCommand(),  topCommand(),
        runCommands(),     nodeCommands(),     questionCommands(), agentCommands(), conversationCommands(),
        paperCommands(),   settingsCommands(), diskCommand(),      doctorCommand(), completeCommand(),
    };
}

} // namespace veltry::Commands
