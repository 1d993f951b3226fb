#include "Base/Text.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Views/RecordJSON.h"
#include "Platform/StandardStreams.h"

#include <fmt/format.h>

#include <array>

namespace veltry::Commands {

namespace {

using Count = Option::Count;
using Completion = Option::Completion;

/// The text itself; standard input for "-".
std::string textOrInput(const std::string& given)
{
    if (given != "-")
        return given;
    return text::repaired(StandardStreams::restOfInput());
}

void create(Context& context, const Arguments& arguments)
{
    Lab::NewNode wanted{
        .title = arguments.required("TITLE"),
        .notes = textOrInput(arguments.text("--notes").value_or("")),
        .parent = {},
        .runCommand = arguments.text("--command"),
        .conversation = {}};
    if (const std::optional<std::string> parent = arguments.text("--parent"))
        wanted.parent = context.node(*parent).id;
    const Lab& lab = context.workingLab();
    const Experiment made = lab.create(wanted);
    if (context.json()) {
        JSONValue document = RecordJSON::of(made);
        document.object()->emplace("worktree", lab.worktree(made).string());
        return context.printJSON(document);
    }
    context.note(fmt::format(
        "Made {} on the branch {}. Make its change in the worktree below, then: veltry run {}.",
        text::oneLine(made.title), made.branch, made.slug));
    context.print(lab.worktree(made).string() + "\n");
}

void notes(Context& context, const Arguments& arguments)
{
    const Experiment node = context.node(arguments.required("NODE"));
    if (const std::optional<std::string> given = arguments.text("TEXT")) {
        context.lab().setNotes(node.id, textOrInput(*given));
        return context.note(fmt::format("The notes of {} are saved.", node.slug));
    }
    if (context.json())
        return context.printJSON(RecordJSON::of(node));
    if (node.notes.empty())
        return context.note(fmt::format("{} has no notes.", node.slug));
    if (!context.out().isTerminal())
        return context.print(node.notes.ends_with('\n') ? node.notes : node.notes + "\n");
    std::string text;
    for (const std::string_view line : text::split(text::trimmedNewlines(node.notes), '\n'))
        text += text::oneLine(line) + "\n";
    context.print(text);
}

void archive(Context& context, const Arguments& arguments)
{
    const bool restores = arguments.has("--restore");
    std::vector<Experiment> nodes; // all names are looked up before the first node is changed
    for (const std::string& given : arguments.all("NODE"))
        nodes.push_back(context.node(given));
    for (const Experiment& node : nodes) {
        context.lab().setArchived(node.id, !restores);
        context.note(fmt::format(
            "{} is {}.", node.slug, restores ? "back in the tree" : "archived; its branch and its runs stay"));
    }
}

constexpr std::array createOptions = {
    Option{"TITLE", "", "The idea that the node tests, in a few words", Count::required},
    Option{
        "--parent", "NODE", "The node to start from; a baseline where none is given", Count::optional,
        Completion::node},
    Option{"--command", "COMMAND", "What every run of a baseline, and of the nodes below it, runs"},
    Option{"--notes", "TEXT", "What is changed, and why; - reads standard input"},
};
constexpr std::array notesOptions = {
    Option{"NODE", "", "The node", Count::required, Completion::node},
    Option{"TEXT", "", "The new notes; - reads standard input. Without it the notes are shown"},
};
constexpr std::array archiveOptions = {
    Option{"NODE", "", "The nodes", Count::oneOrMore, Completion::node},
    Option{"--restore", "", "Bring them back"},
};

constexpr std::array table = {
    Command{
        .name = "create",
        .summary = "Make a node: a branch with a worktree of its own, whose path is printed",
        .example = "veltry create Baseline --command \"python3 train.py\"\nveltry create \"LR 3e-5\" --parent baseline",
        .hasJSON = true,
        .options = createOptions,
        .run = &create},
    Command{
        .name = "notes",
        .summary = "Show or replace the notes of a node",
        .example = "veltry notes lr-3e-5 \"The loss still falls at the end.\"",
        .hasJSON = true,
        .options = notesOptions,
        .run = &notes},
    Command{
        .name = "archive",
        .summary = "Hide nodes from the tree, or bring them back; nothing of them is removed",
        .example = "veltry archive dropout\nveltry archive --restore dropout",
        .options = archiveOptions,
        .run = &archive},
};

} // namespace

Family nodeCommands()
{
    return table;
}

} // namespace veltry::Commands
