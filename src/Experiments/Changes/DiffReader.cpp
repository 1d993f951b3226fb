#include "Experiments/Changes/DiffReader.h"

#include "Base/Text.h"

#include <limits>
#include <utility>

namespace veltry {

namespace {

struct HunkHeader {
    std::int64_t oldStart;
    std::int64_t newStart;
    std::string_view heading;
};

/// The piece up to the next blank, which is taken too; nothing if the line is over.
std::optional<std::string_view> takePiece(std::optional<std::string_view>& line)
{
    if (!line)
        return std::nullopt;
    const std::size_t end = line->find(' ');
    const std::string_view piece = line->substr(0, end);
    line = end == std::string_view::npos ? std::nullopt : std::optional(line->substr(end + 1));
    return piece;
}

/// The start in "-12,3" or "+12".
std::optional<std::int64_t> start(std::optional<std::string_view> range)
{
    if (!range || range->empty())
        return std::nullopt;
    const std::string_view digits = range->substr(1, range->find(',') - 1);
    if (digits.find_first_not_of("0123456789") != std::string_view::npos)
        return std::nullopt;
    const std::optional<std::int64_t> number = text::integer(digits);
    // No file has lines up there, and counting from there would pass the largest number.
    return number && *number <= std::numeric_limits<std::int64_t>::max() / 2 ? number : std::nullopt;
}

/// "@@ -12,3 +14,5 @@ heading".
std::optional<HunkHeader> hunkHeader(std::string_view line)
{
    std::optional<std::string_view> rest = line;
    const auto opening = takePiece(rest);
    const auto oldStart = start(takePiece(rest));
    const auto newStart = start(takePiece(rest));
    const auto closing = takePiece(rest);
    if (opening != "@@" || closing != "@@" || !oldStart || !newStart)
        return std::nullopt;
    return HunkHeader{.oldStart = *oldStart, .newStart = *newStart, .heading = rest.value_or("")};
}

} // namespace

std::vector<DiffReader::Section> DiffReader::read()
{
    while (!atEnd_) {
        const std::string_view line = takeLine();
        // No line of a hunk looks like these: each has a sign in front.
        if (line.starts_with("diff --git ") || line.starts_with("Submodule "))
            beginSection(line);
        else if (line.starts_with("@@ ") && beginHunk(line))
            continue;
        else if (hunk_)
            hunkLine(line);
        else if (!sections_.empty())
            extendHeader(line);
    }
    return std::move(sections_);
}

/// What stands after the last line feed is a line too, if only an empty one.
std::string_view DiffReader::takeLine()
{
    const std::size_t end = rest_.find('\n');
    const std::string_view line = rest_.substr(0, end);
    atEnd_ = end == std::string_view::npos;
    rest_.remove_prefix(atEnd_ ? rest_.size() : end + 1);
    return line;
}

void DiffReader::beginSection(std::string_view line)
{
    hunk_ = nullptr;
    sections_.push_back({.header = std::string(line), .hunks = {}});
    wentAwayBefore_ = std::exchange(wentAway_, false);
}

/// What stands between a section's first line and its hunks.
void DiffReader::extendHeader(std::string_view line)
{
    for (const std::string_view name : {"rename to ", "copy to "})
        if (line.starts_with(name))
            sections_.back().target = line.substr(name.size());
    wentAway_ = wentAway_ || line.starts_with("deleted file mode ");
    if (wentAwayBefore_ && line.starts_with("new file mode ") &&
        sections_.back().header == sections_[sections_.size() - 2].header)
        sections_.pop_back();
}

bool DiffReader::beginHunk(std::string_view line)
{
    const std::optional<HunkHeader> header = hunkHeader(line);
    if (!header)
        return false;
    if (sections_.empty()) // nobody's hunk
        return true;
    sections_.back().hunks.push_back(
        {.oldStart = header->oldStart,
         .newStart = header->newStart,
         .heading = text::repaired(header->heading),
         .lines = {}});
    hunk_ = &sections_.back().hunks.back();
    oldLine_ = header->oldStart;
    newLine_ = header->newStart;
    return true;
}

void DiffReader::hunkLine(std::string_view line)
{
    using Kind = Changes::Line::Kind;
    const char sign = line.empty() ? ' ' : line.front(); // git can be told to write empty lines of context without it
    if (sign != ' ' && sign != '+' && sign != '-')
        return; // "\ No newline at end of file"
    line.remove_prefix(line.empty() ? 0 : 1);
    Changes::Line read{
        .kind = sign == '+'   ? Kind::added
                : sign == '-' ? Kind::removed
                              : Kind::context,
        .text = text::repaired(line),
        .oldNumber = {},
        .newNumber = {}};
    if (sign != '+')
        read.oldNumber = oldLine_++;
    if (sign != '-')
        read.newNumber = newLine_++;
    hunk_->lines.push_back(std::move(read));
}

} // namespace veltry
