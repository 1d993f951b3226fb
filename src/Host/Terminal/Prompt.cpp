#include "Host/Terminal/Prompt.h"

#include "Base/Text.h"

#include <fmt/format.h>

#include <iostream>

namespace veltry::Prompt {

std::optional<std::string> line(const Terminal& terminal, std::string_view prompt)
{
    if (canAsk())
        terminal.write(prompt);
    std::string given;
    if (!std::getline(std::cin, given)) {
        if (canAsk())
            terminal.write("\n");
        return std::nullopt;
    }
    return text::repaired(given);
}

bool confirms(const Terminal& terminal, std::string_view question)
{
    if (!canAsk())
        return false;
    const std::string given = line(terminal, fmt::format("{} [y/N] ", question)).value_or("");
    const std::string answer = text::lowercased(text::trimmed(given));
    return answer == "y" || answer == "yes";
}

} // namespace veltry::Prompt
