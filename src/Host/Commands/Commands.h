#pragma once

#include "Host/Command.h"

#include <span>
#include <vector>

/// The families of commands; each has a source of its own here, which holds its rows and what they do.
namespace veltry::Commands {

using Family = std::span<const Command>;

[[nodiscard]] Family projectCommands(); ///< init, projects, project …
[[nodiscard]] Family treeCommands();    ///< tree
[[nodiscard]] Family listCommands();    ///< list
[[nodiscard]] Family showCommands();    ///< show
[[nodiscard]] Family runCommands();     ///< run, cancel, wait
[[nodiscard]] Family nodeCommands();    ///< create, notes, archive
[[nodiscard]] Family logCommand();
[[nodiscard]] Family chartCommand();
[[nodiscard]] Family topCommand();
[[nodiscard]] Family diskCommand();     ///< disk
[[nodiscard]] Family doctorCommand();   ///< doctor
[[nodiscard]] Family completeCommand(); ///< complete, for the shells

/// All of them, in the order in which they are shown.
[[nodiscard]] inline std::vector<Family> families()
{
    return {
        projectCommands(),
        treeCommands(),
        listCommands(),
        showCommands(),
        runCommands(),
        nodeCommands(),
        logCommand(),
        chartCommand(),
        topCommand(),
        diskCommand(),
        doctorCommand(),
        completeCommand(),
    };
}

} // namespace veltry::Commands
