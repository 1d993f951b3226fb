#pragma once

#include "Host/Command.h"

#include <span>
#include <vector>

/// The families of commands; each has a source of its own here, which holds its rows and what they do.
namespace veltry::Commands {

using Family = std::span<const Command>;

// One a line and its words above it, so that families can be added side by side.

/// init, projects, project …
[[nodiscard]] Family projectCommands();
/// tree
[[nodiscard]] Family treeCommands();
/// list
[[nodiscard]] Family listCommands();
/// compare
[[nodiscard]] Family compareCommands();
/// show
[[nodiscard]] Family showCommands();
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
/// show
[[nodiscard]] Family showCommands();
/// run, cancel, wait
[[nodiscard]] Family runCommands();
/// create, notes, archive
[[nodiscard]] Family nodeCommands();
/// log
[[nodiscard]] Family logCommand();
/// disk
[[nodiscard]] Family diskCommand();
/// disk
[[nodiscard]] Family diskCommand();
/// doctor
[[nodiscard]] Family doctorCommand();
/// questions, answer, dismiss
[[nodiscard]] Family questionCommands();
/// settings …
[[nodiscard]] Family settingsCommands();
/// conversations …, said
[[nodiscard]] Family conversationCommands();
/// papers …
[[nodiscard]] Family paperCommands();
/// settings …
[[nodiscard]] Family settingsCommands();
/// doctor
[[nodiscard]] Family doctorCommand();
/// complete, for the shells
[[nodiscard]] Family completeCommand();
[[nodiscard]] Family chartCommand();
[[nodiscard]] Family topCommand();
/// complete, for the shells
[[nodiscard]] Family completeCommand();

/// All of them, in the order in which they are shown.
[[nodiscard]] inline std::vector<Family> families()
{
    return {
        projectCommands(),
        treeCommands(),
        listCommands(),
        compareCommands(),
        showCommands(),
        logCommand(),
        chartCommand(),
        topCommand(),
        runCommands(),
        nodeCommands(),
        questionCommands(),
        agentCommands(),
        conversationCommands(),
        paperCommands(),
        settingsCommands(),
        chartCommand(),
        topCommand(),
        diskCommand(),
        doctorCommand(),
        completeCommand(),
        projectCommands(),  treeCommands(),         listCommands(),  showCommands(),    runCommands(),
        nodeCommands(),     logCommand(),           diskCommand(),   doctorCommand(),   questionCommands(),
        settingsCommands(), conversationCommands(), paperCommands(), completeCommand(),
    };
}

} // namespace veltry::Commands
