#include "Experiments/Changes/Changes.h"

#include "Projects/JSONFields.h"

#include <array>

namespace veltry {

namespace {

/// The names of an enumeration's values, in their order.
constexpr std::array<std::string_view, 5> kindNames{"added", "deleted", "modified", "renamed", "copied"};
constexpr std::array<std::string_view, 3> shownNames{"lines", "binary", "tooLarge"};
constexpr std::array<std::string_view, 3> lineNames{"context", "added", "removed"};
static_assert(kindNames[static_cast<std::size_t>(Changes::Kind::copied)] == "copied");
static_assert(shownNames[static_cast<std::size_t>(Changes::File::Shown::tooLarge)] == "tooLarge");
static_assert(lineNames[static_cast<std::size_t>(Changes::Line::Kind::removed)] == "removed");

std::int64_t sum(const std::vector<Changes::File>& files, std::optional<std::int64_t> Changes::File::* count)
{
    std::int64_t total = 0;
    for (const Changes::File& file : files)
        total += (file.*count).value_or(0);
    return total;
}

} // namespace

std::int64_t Changes::added() const
{
    return sum(files, &File::added);
}

std::int64_t Changes::removed() const
{
    return sum(files, &File::removed);
}

std::string_view Changes::kindText(Kind kind)
{
    return kindNames[static_cast<std::size_t>(kind)];
}

JSONValue toJSON(const Changes& changes)
{
    JSONFields fields;
    fields.set("base", changes.base);
    fields.set("against", changes.against);
    fields.set("frozen", changes.frozen);
    fields.set("files", listToJSON(changes.files));
    return fields.take();
}

JSONValue toJSON(const Changes::Line& line)
{
    JSONFields fields;
    fields.set("kind", lineNames[static_cast<std::size_t>(line.kind)]);
    fields.set("text", line.text);
    fields.set("old", line.oldNumber);
    fields.set("new", line.newNumber);
    return fields.take();
}

JSONValue toJSON(const Changes::Hunk& hunk)
{
    JSONFields fields;
    fields.set("oldStart", hunk.oldStart);
    fields.set("newStart", hunk.newStart);
    fields.set("heading", hunk.heading);
    fields.set("lines", listToJSON(hunk.lines));
    return fields.take();
}

JSONValue toJSON(const Changes::File& file)
{
    JSONFields fields;
    fields.set("path", file.path);
    fields.set("oldPath", file.oldPath);
    fields.set("kind", Changes::kindText(file.kind));
    fields.set("added", file.added);
    fields.set("removed", file.removed);
    fields.set("shown", shownNames[static_cast<std::size_t>(file.shown)]);
    fields.set("hunks", listToJSON(file.hunks));
    return fields.take();
}

} // namespace veltry
