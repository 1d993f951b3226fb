#pragma once

#include "Host/CommandLine/Command.h"
#include "Host/Registration/ClientConfiguration.h"

/// Options and arguments that several families have in the same words.
namespace veltry::Commands {

inline constexpr Option clientOption = {
    "--client",
    "CLIENT",
    "The MCP client in whose form the block is written",
    Option::Count::optional,
    Option::Completion::none,
    ClientConfiguration::kinds};

/// For tables that may be longer than the terminal (writePaged()).
inline constexpr Option noPagerOption = {"--no-pager", "", "Don't show in a pager what is longer than the terminal"};

inline constexpr Option runOption = {
    "RUN", "", "The run, by its number or id", Option::Count::required, Option::Completion::run};

inline constexpr Option runOrNodeOption = {
    "RUN|NODE", "",
    "A run by its number or id, or a node for its latest run; in a node's worktree that node by default",
    Option::Count::optional, Option::Completion::node};

} // namespace veltry::Commands
