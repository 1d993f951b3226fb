#include "Experiments/Changes/Changes.h"

#include "Base/RecordCoding.h"

namespace veltry {

template <>
constexpr auto wordsOf<Changes::File::Shown> = std::to_array<Word<Changes::File::Shown>>({
    {Changes::File::Shown::lines, "lines"},
    {Changes::File::Shown::binary, "binary"},
    {Changes::File::Shown::tooLarge, "tooLarge"},
});

template <>
constexpr auto wordsOf<Changes::Line::Kind> = std::to_array<Word<Changes::Line::Kind>>({
    {Changes::Line::Kind::context, "context"},
    {Changes::Line::Kind::added, "added"},
    {Changes::Line::Kind::removed, "removed"},
});

namespace records {

template <>
constexpr auto fields<Changes::Line> = std::tuple(
    field("kind", &Changes::Line::kind), field("text", &Changes::Line::text), field("old", &Changes::Line::oldNumber),
    field("new", &Changes::Line::newNumber));

template <>
constexpr auto fields<Changes::Hunk> = std::tuple(
    field("oldStart", &Changes::Hunk::oldStart), field("newStart", &Changes::Hunk::newStart),
    field("heading", &Changes::Hunk::heading), field("lines", &Changes::Hunk::lines));

template <>
constexpr auto fields<Changes::File> = std::tuple(
    field("path", &Changes::File::path), field("oldPath", &Changes::File::oldPath), field("kind", &Changes::File::kind),
    field("added", &Changes::File::added), field("removed", &Changes::File::removed),
    field("shown", &Changes::File::shown), field("hunks", &Changes::File::hunks));

template <>
constexpr auto fields<Changes> = std::tuple(
    field("base", &Changes::base), field("against", &Changes::against), field("frozen", &Changes::frozen),
    field("files", &Changes::files));

} // namespace records

namespace {

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

JSONValue toJSON(const Changes& changes)
{
    return records::writeRecord(changes);
}

JSONValue toJSON(const Changes::File& file)
{
    return records::writeRecord(file);
}

} // namespace veltry
