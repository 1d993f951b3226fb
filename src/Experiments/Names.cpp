#include "Experiments/Names.h"

#include "Base/Text.h"

namespace veltry {

namespace {

std::string_view withoutHashes(std::string_view text)
{
    while (text.starts_with('#'))
        text.remove_prefix(1);
    while (text.ends_with('#'))
        text.remove_suffix(1);
    return text;
}

} // namespace

NodeName NodeName::parse(std::string_view text)
{
    return {UUID::parse(text), text};
}

RunName RunName::parse(std::string_view text)
{
    RunName name(text);
    if (const std::optional<std::int64_t> number = text::integer(withoutHashes(text)))
        name.name_ = *number;
    else if (const std::optional<UUID> id = UUID::parse(text)) // with its hashes: only a number has some
        name.name_ = *id;
    return name;
}

std::string RunName::text() const
{
    if (!given_.empty())
        return given_;
    return number() ? std::to_string(*number()) : id() ? id()->text() : "";
}

} // namespace veltry
