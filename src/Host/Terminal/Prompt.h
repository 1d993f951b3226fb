#pragma once

#include "Host/Terminal/Terminal.h"

#include <optional>
#include <string>
#include <string_view>

/// Questions that a command puts to the person on standard input, a line for each answer.
namespace veltry::Prompt {

/// The next line, without its end; nothing at the end of the input. `prompt` is written to `terminal` first, if a
/// person sits there; a pipe or a file is read as it comes.
[[nodiscard]] std::optional<std::string> line(const Terminal& terminal, std::string_view prompt);

/// Whether the answer is "y" or "yes". False where nobody can be asked.
[[nodiscard]] bool confirms(const Terminal& terminal, std::string_view question);

} // namespace veltry::Prompt
