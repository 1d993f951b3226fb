#include "VeltryTools/LabTexts.h"

#include "Base/Text.h"
#include "Platform/Files.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <unordered_map>

namespace veltry::LabTexts {

namespace {

constexpr std::int64_t bytesPerLine = 400;
constexpr std::int64_t bytesBesides = 4096;

/// Writes the nodes of one tree. Depth first over a stack of its own, since a chain of children may be long.
class TreeWriter {
public:
    TreeWriter(const Lab& lab, const Tree& tree) : lab_(lab)
    {
        for (const Experiment& node : tree.experiments)
            if (!node.archived)
                visible_.emplace(node.id, &node);
        for (const Run& run : tree.runs)
            runs_[run.experimentID].push_back(&run);
        for (const Citation& citation : tree.citations)
            citations_[citation.experimentID].push_back(&citation);
        for (const Experiment& node : tree.experiments)
            if (!node.archived)
                (hasVisibleParent(node) ? children_[*node.parentID] : roots_).push_back(&node);
    }

    std::string write()
    {
        struct Place {
            const Experiment* node;
            std::size_t depth;
        };
        std::vector<Place> open; // the next one last
        const auto add = [&open](const std::vector<const Experiment*>& nodes, std::size_t depth) {
            for (auto node = nodes.rbegin(); node != nodes.rend(); ++node)
                open.push_back({*node, depth});
        };
        add(roots_, 0);
        while (!open.empty()) {
            const Place place = open.back();
            open.pop_back();
            writeNode(*place.node, std::string(2 * place.depth, ' '));
            if (const auto children = children_.find(place.node->id); children != children_.end())
                add(children->second, place.depth + 1);
        }
        if (!text_.empty())
            text_.pop_back(); // the last line feed
        return std::move(text_);
    }

private:
    bool hasVisibleParent(const Experiment& node) const { return node.parentID && visible_.contains(*node.parentID); }

    template <typename... Arguments>
    void line(fmt::format_string<Arguments...> format, Arguments&&... arguments)
    {
        fmt::format_to(std::back_inserter(text_), format, std::forward<Arguments>(arguments)...);
        text_ += '\n';
    }

    void writeNode(const Experiment& node, const std::string& indent)
    {
        static const std::vector<const Run*> noRuns;
        const auto found = runs_.find(node.id);
        const std::vector<const Run*>& runs = found == runs_.end() ? noRuns : found->second;
        const bool frozen = std::ranges::any_of(runs, [](const Run* run) { return run->answered(); });
        line("{}- {} [{}]{}", indent, node.title, frozen ? "frozen" : "provisional", node.isRoot() ? " baseline" : "");
        line("{}  id: {}", indent, node.id.text());
        line("{}  branch: {}", indent, node.branch);
        line("{}  worktree: {}", indent, lab_.worktree(node).string());
        if (node.isRoot())
            line("{}  run command: {}", indent, node.runCommand);
        if (!node.notes.empty())
            line("{}  notes: {}", indent, firstLine(node.notes));
        for (const Run* run : runs)
            line("{}  {}", indent, runLine(*run, node.title));
        if (const auto citations = citations_.find(node.id); citations != citations_.end())
            for (const Citation* citation : citations->second)
                line("{}  cites {} {}: {}", indent, citation->paper.id, citation->paper.title, citation->reason);
    }

    static std::string_view firstLine(std::string_view notes)
    {
        for (std::string_view piece : text::split(notes, '\n'))
            if (!piece.empty())
                return piece;
        return {};
    }

    const Lab& lab_;
    std::unordered_map<UUID, const Experiment*> visible_;
    std::vector<const Experiment*> roots_;
    std::unordered_map<UUID, std::vector<const Experiment*>> children_;
    std::unordered_map<UUID, std::vector<const Run*>> runs_;
    std::unordered_map<UUID, std::vector<const Citation*>> citations_;
    std::string text_;
};

} // namespace

std::string tree(const Lab& lab, const Tree& tree)
{
    std::string text = TreeWriter(lab, tree).write();
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
    constexpr std::int64_t mostLines = (std::numeric_limits<std::int64_t>::max() - bytesBesides) / bytesPerLine;
    const auto bound = static_cast<std::uint64_t>(std::min(count, mostLines) * bytesPerLine + bytesBesides);
    const std::uint64_t size = Files::size(file);
    const std::uint64_t span = std::min(size, bound);
    const std::string tail = text::repaired(Files::readAt(file, size - span, span));

    // The last `count` pieces begin behind the count-th line feed from the end; a final line feed ends an empty piece.
    std::size_t lineFeed = tail.size();
    for (std::int64_t pieces = 0; pieces < count && lineFeed != std::string::npos; ++pieces)
        lineFeed = lineFeed == 0 ? std::string::npos : tail.rfind('\n', lineFeed - 1);
    const std::size_t start = lineFeed == std::string::npos ? 0 : lineFeed + 1;
    return std::string(text::trimmedNewlines(std::string_view(tail).substr(start)));
}

} // namespace veltry::LabTexts
