#include "Host/Terminal/Fields.h"

#include "Base/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace veltry {

void Fields::add(std::string_view name, std::string_view value)
{
    if (!value.empty())
        fields_.emplace_back(name, text::oneLine(value));
}

std::string Fields::text(const Terminal& terminal) const
{
    std::size_t widest = 0;
    for (const auto& [name, value] : fields_)
        widest = std::max(widest, name.size());
    std::string text;
    for (const auto& [name, value] : fields_)
        text += fmt::format("{}  {}\n", terminal.styled(Style::dim, fmt::format("  {:<{}}", name, widest)), value);
    return text;
}

} // namespace veltry
