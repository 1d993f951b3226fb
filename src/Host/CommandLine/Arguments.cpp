#include "Base/Text.h"
#include "Host/CommandLine/Command.h"
#include "Host/Refusal.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>

namespace veltry {

std::vector<std::string> Arguments::all(std::string_view name) const
{
    const auto found = values_.find(name);
    return found == values_.end() ? std::vector<std::string>() : found->second;
}

std::optional<std::string> Arguments::text(std::string_view name) const
{
    const auto found = values_.find(name);
    // An option that is given twice has its last value, so that a script's can be overridden.
    return found == values_.end() || found->second.empty() ? std::nullopt : std::optional(found->second.back());
}

std::string Arguments::required(std::string_view name) const
{
    if (std::optional<std::string> value = text(name))
        return std::move(*value);
    throw UsageError(fmt::format("{} is missing.", name));
}

std::optional<std::int64_t> Arguments::integer(std::string_view name, std::int64_t least) const
{
    const std::optional<std::string> given = text(name);
    if (!given)
        return std::nullopt;
    const std::optional<std::int64_t> value = text::integer(*given);
    if (!value || *value < least)
        throw UsageError(fmt::format("{} takes a whole number, {} or more; it is \"{}\".", name, least, *given));
    return value;
}

std::optional<double> Arguments::number(std::string_view name) const
{
    const std::optional<std::string> given = text(name);
    if (!given)
        return std::nullopt;
    double value = 0;
    const auto [end, error] = std::from_chars(given->data(), given->data() + given->size(), value);
    // "nan" and "inf" are numbers to the reader, and neither can be drawn or compared.
    if (error != std::errc() || end != given->data() + given->size() || !std::isfinite(value))
        throw UsageError(fmt::format("{} takes a number; it is \"{}\".", name, *given));
    return value;
}

} // namespace veltry
