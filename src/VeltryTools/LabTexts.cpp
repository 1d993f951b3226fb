#include "VeltryTools/LabTexts.h"

#include "Base/Text.h"
#include "Platform/Files.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace veltry::LabTexts {

namespace {

constexpr std::int64_t bytesPerLine = 400;
constexpr std::int64_t bytesBesides = 4096;

/// Lines of a tree, each set in by as much as the one before.
class Lines {
public:
    void setIn(std::size_t blanks) { indent_.assign(blanks, ' '); }

    template <typename... Arguments>
    void add(fmt::format_string<Arguments...> format, Arguments&&... arguments)
    {
        text_ += indent_;
        fmt::format_to(std::back_inserter(text_), format, std::forward<Arguments>(arguments)...);
        text_ += '\n';
    }

    std::string take()
    {
        if (!text_.empty())
            text_.pop_back(); // the last line feed
        return std::move(text_);
    }

private:
    std::string text_;
    std::string indent_;
};

std::string_view firstLine(std::string_view notes)
{
    for (std::string_view piece : text::split(notes, '\n'))
        if (!piece.empty())
            return piece;
    return {};
}

void write(const ExperimentTree::Node& node, const Lab& lab, Lines& lines)
{
    const Experiment& record = node.record;
    lines.add(
        "- {} [{}]{}", record.title, node.isFrozen() ? "frozen" : "provisional", record.isRoot() ? " baseline" : "");
    lines.add("  id: {}", record.id.text());
    lines.add("  branch: {}", record.branch);
    lines.add("  worktree: {}", lab.worktree(record).string());
    if (record.isRoot())
        lines.add("  run command: {}", record.runCommand);
    if (!record.notes.empty())
        lines.add("  notes: {}", firstLine(record.notes));
    for (const Run* run : node.runs)
        lines.add("  {}", runLine(*run, record.title));
    for (const Citation* citation : node.citations)
        lines.add("  cites {} {}: {}", citation->paper.id, citation->paper.title, citation->reason);
}

} // namespace

std::string tree(const Lab& lab, const ExperimentTree& tree)
{
    Lines lines;
    for (const ExperimentTree::Place& place : tree.depthFirst(ExperimentTree::Archived::hidden)) {
        lines.setIn(2 * place.depth);
        write(*place.node, lab, lines);
    }
    std::string text = lines.take();
    if (text.empty())
        return "The tree is empty. Create a baseline with create_experiment and a run_command.";
    return text;
}

std::string runLine(const Run& run, std::string_view title)
{
    std::string line = fmt::format("run {} of {}: {}", run.number, title, toWord(run.status));
    if (run.isFinished() && run.exitCode)
        line += fmt::format(" (exit {})", *run.exitCode);
    if (run.result) {
        std::string result = *run.result;
        // A run has one line in every list; the result is stored as the run wrote it.
        std::ranges::replace(result, '\n', ' ');
        line += " result " + result;
    } else if (run.isFinished()) {
        line += " no result";
    }
    return line;
}

std::string run(const Run& run, std::string_view title, std::int64_t logLines)
{
    std::string text = fmt::format(
        "Run {} of {}\nid: {}\nstatus: {}\ncommit: {}\ncommand: {}\n", run.number, title, run.id.text(),
        toWord(run.status), run.commit, run.command);
    if (run.exitCode)
        text += fmt::format("exit code: {}\n", *run.exitCode);
    const std::string tail = logTail(run.log(), logLines);
    text += fmt::format(
        "result: {}\ndirectory: {}\nlog, last {} lines:\n{}", run.result.value_or("none"), run.directory.string(),
        logLines, tail.empty() ? "(empty)" : tail);
    return text;
}

std::string logTail(const std::filesystem::path& log, std::int64_t count)
{
    if (count < 1)
        return {};
    const FileDescriptor file = Files::tryOpen(log, Files::forReadingPlain);
    if (!file)
        return {};
    // An agent may ask for any number of lines, and the product must fit.
    constexpr std::int64_t mostLines = (std::numeric_limits<std::int64_t>::max() - bytesBesides) / bytesPerLine;
    const auto bound = static_cast<std::uint64_t>(std::min(count, mostLines) * bytesPerLine + bytesBesides);
    const std::uint64_t size = Files::size(file);
    const std::uint64_t span = std::min(size, bound);
    const std::string tail = text::repaired(Files::readAt(file, size - span, span));

    // The last `count` pieces begin after the count-th line feed from the end; a final line feed ends an empty piece.
    std::size_t lineFeed = tail.size();
    for (std::int64_t pieces = 0; pieces < count && lineFeed != std::string::npos; ++pieces)
        lineFeed = lineFeed == 0 ? std::string::npos : tail.rfind('\n', lineFeed - 1);
    const std::size_t start = lineFeed == std::string::npos ? 0 : lineFeed + 1;
    return std::string(text::trimmedNewlines(std::string_view(tail).substr(start)));
}

} // namespace veltry::LabTexts
