#include "Host/Words/DiffText.h"

#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Host/Terminal/TextTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace veltry::DiffText {

namespace {

constexpr std::size_t leastTextColumns = 20;
constexpr std::size_t mostRowsOfALine = 6; // on a terminal
constexpr std::size_t barColumns = 30;
constexpr std::string_view tab = "    ";

std::string counts(std::int64_t added, std::int64_t removed, const Terminal& terminal)
{
    return terminal.styled(Style::green, "+" + grouped(added)) + " " +
           terminal.styled(Style::red, "-" + grouped(removed));
}

std::string name(const Changes::File& file, const Terminal& terminal)
{
    if (!file.oldPath)
        return text::oneLine(file.path);
    return fmt::format(
        "{} {} {}", text::oneLine(*file.oldPath), terminal.isUTF8() ? "→" : "->", text::oneLine(file.path));
}

/// Why no line of the file is shown; empty if there are lines.
std::string inWords(const Changes::File& file)
{
    switch (file.shown) {
    case Changes::File::Shown::binary:
        return "A binary file: there are no lines to show.";
    case Changes::File::Shown::tooLarge:
        return fmt::format(
            "Too much to show: a file of more than {} changed lines, or one past the {} that are shown in all.",
            grouped(Changes::fileLimit), grouped(Changes::totalLimit));
    case Changes::File::Shown::lines:
        break;
    }
    if (!file.hunks.empty())
        return "";
    if (file.kind == Changes::Kind::renamed || file.kind == Changes::Kind::copied)
        return "Its lines are the same.";
    return "No line differs: the file is empty, or only its mode changed.";
}

/// The lines of one file's hunks.
class HunkText {
public:
    HunkText(const Changes::File& file, const Terminal& terminal) : terminal_(terminal)
    {
        std::int64_t last = 0;
        for (const Changes::Hunk& hunk : file.hunks)
            for (const Changes::Line& line : hunk.lines)
                last = std::max({last, line.oldNumber.value_or(0), line.newNumber.value_or(0)});
        digits_ = std::to_string(last).size();
        const std::size_t taken = 2 * digits_ + 4; // two numbers with blanks, the sign
        if (const auto size = terminal.size())
            columns_ = std::max(leastTextColumns, size->columns - std::min(size->columns, taken));
    }

    std::string run(const Changes::File& file)
    {
        for (const Changes::Hunk& hunk : file.hunks) {
            const std::string place = fmt::format("@@ {} @@", text::oneLine(hunk.heading));
            const std::string_view shown = hunk.heading.empty() ? "@@" : std::string_view(place);
            result_ += terminal_.styled(Style::cyan, columns_ ? fitted(shown, *columns_, terminal_) : shown) + "\n";
            for (const Changes::Line& line : hunk.lines)
                add(line);
        }
        return std::move(result_);
    }

private:
    void add(const Changes::Line& line)
    {
        const bool isAdded = line.kind == Changes::Line::Kind::added;
        const bool isRemoved = line.kind == Changes::Line::Kind::removed;
        const Style style = isAdded ? Style::green : isRemoved ? Style::red : Style::plain;
        const std::string text = text::oneLine(text::replacingAll(line.text, "\t", tab));
        std::string_view rest = text;
        std::string front = numbers(line) + (isAdded ? "+" : isRemoved ? "-" : " ");
        for (std::size_t row = 1;; ++row) {
            const std::string_view piece = columns_ ? text::firstColumns(rest, *columns_) : rest;
            rest.remove_prefix(piece.size());
            const std::string_view numbersOfIt = std::string_view(front).substr(0, front.size() - 1);
            const std::string sign(1, front.back());
            result_ +=
                terminal_.styled(Style::dim, numbersOfIt) + terminal_.styled(style, sign + std::string(piece)) + "\n";
            if (rest.empty())
                return;
            front.assign(front.size(), ' ');
            if (row < mostRowsOfALine && !piece.empty())
                continue;
            const auto left = static_cast<std::int64_t>(text::columns(rest));
            result_ += front +
                       terminal_.styled(Style::dim, fmt::format("({} more)", groupedCount(left, "column", "columns"))) +
                       "\n";
            return;
        }
    }

    [[nodiscard]] std::string numbers(const Changes::Line& line) const
    {
        const auto shown = [](const std::optional<std::int64_t>& number) {
            return number ? std::to_string(*number) : std::string();
        };
        return fmt::format("{:>{}} {:>{}}  ", shown(line.oldNumber), digits_, shown(line.newNumber), digits_);
    }

    const Terminal& terminal_;
    std::size_t digits_ = 1;
    std::optional<std::size_t> columns_; // of the lines' text; any number off a terminal
    std::string result_;
};

} // namespace

std::string summary(const Changes& changes, const Terminal& terminal)
{
    return fmt::format(
        "{}, {}, against {}{}\n", groupedCount(std::ssize(changes.files), "file", "files"),
        counts(changes.added(), changes.removed(), terminal), text::oneLine(changes.against),
        changes.frozen ? ", as a run's commit has it" : "");
}

std::string lines(const Changes& changes, const Terminal& terminal)
{
    std::string text;
    for (const Changes::File& file : changes.files) {
        text += "\n" + terminal.styled(Style::bold, name(file, terminal)) + "  " +
                terminal.styled(Style::dim, toWord(file.kind));
        if (file.added && file.removed)
            text += "  " + counts(*file.added, *file.removed, terminal);
        text += "\n";
        if (const std::string words = inWords(file); !words.empty())
            text += terminal.styled(Style::yellow, words) + "\n";
        text += HunkText(file, terminal).run(file);
    }
    return text;
}

std::string stat(const Changes& changes, const Terminal& terminal)
{
    std::int64_t most = 1;
    std::size_t widest = 0;
    for (const Changes::File& file : changes.files) {
        most = std::max(most, file.added.value_or(0) + file.removed.value_or(0));
        widest = std::max(widest, text::columns(name(file, terminal)));
    }
    const std::size_t countColumns = grouped(most).size() + 1;
    if (const auto size = terminal.size()) {
        const std::size_t others = 9 + 1 + 2 * (countColumns + 2) + barColumns + 2;
        widest = std::min(widest, std::max(leastTextColumns, size->columns - std::min(size->columns, others)));
    }
    const auto bar = [&](std::int64_t count, char sign) {
        const double part = static_cast<double>(count) / static_cast<double>(most);
        return std::string(static_cast<std::size_t>(std::ceil(part * barColumns / 2)), sign);
    };
    std::string text;
    for (const Changes::File& file : changes.files) {
        const std::string shown = fitted(name(file, terminal), widest, terminal);
        text += terminal.styled(Style::dim, fmt::format("{:<8}  ", toWord(file.kind))) + shown +
                std::string(widest - std::min(widest, text::columns(shown)), ' ');
        if (file.added && file.removed)
            text += terminal.styled(Style::green, fmt::format("  {:>{}}", "+" + grouped(*file.added), countColumns)) +
                    terminal.styled(Style::red, fmt::format("  {:>{}}", "-" + grouped(*file.removed), countColumns)) +
                    "  " + terminal.styled(Style::green, bar(*file.added, '+')) +
                    terminal.styled(Style::red, bar(*file.removed, '-'));
        else
            text += terminal.styled(Style::yellow, "  binary");
        text += "\n";
    }
    return text;
}

} // namespace veltry::DiffText
