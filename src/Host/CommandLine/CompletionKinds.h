#pragma once

#include "Host/CommandLine/Command.h"

#include <algorithm>
#include <array>
#include <string_view>

/// The words by which the shells' completions ask `veltry complete` for values.
namespace veltry::CompletionKinds {

struct Kind {
    Option::Completion completion;
    std::string_view word;
};

/// Those that veltry itself knows; a shell completes files, folders and choices on its own.
constexpr std::array table = {
    Kind{Option::Completion::project, "project"},
    Kind{Option::Completion::node, "node"},
    Kind{Option::Completion::run, "run"},
    Kind{Option::Completion::round, "round"},
    Kind{Option::Completion::conversation, "conversation"},
    Kind{Option::Completion::setting, "setting"},
    Kind{Option::Completion::starter, "template"},
};

/// Empty for what a shell completes on its own.
[[nodiscard]] constexpr std::string_view word(Option::Completion completion)
{
    const auto* const found = std::ranges::find(table, completion, &Kind::completion);
    return found == table.end() ? std::string_view() : found->word;
}

} // namespace veltry::CompletionKinds
