#pragma once

#include "Host/CommandLine/Command.h"

#include <string>
#include <vector>

/// The grammar of the command line, made from the table of commands.
namespace veltry::Grammar {

/// What a command line asks for.
struct Asked {
    const Command* command = nullptr; ///< null where `text` is the whole answer: to --help and --version
    Arguments arguments{};
    std::string text{};
};

/// Reads the words of a command line, of which the first is the program's own name. Throws UsageError, which names what
/// may have been meant.
[[nodiscard]] Asked read(const std::vector<std::string>& arguments);

} // namespace veltry::Grammar
