#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Experiments/RunLog/RunLog.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Terminal/Fields.h"
#include "Host/Terminal/Harmless.h"
#include "Host/Terminal/Times.h"
#include "Host/Views/NodeState.h"
#include "Host/Views/TreeJSON.h"
#include "Host/Words/RunWords.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace veltry::Commands {

namespace {

constexpr std::int64_t shownLogLines = 10;

std::string heading(const Terminal& terminal, std::string_view words)
{
    return "\n" + terminal.styled(Style::bold, words) + "\n";
}

/// Lines as someone wrote them, set in.
std::string block(std::string_view lines)
{
    std::string text;
    for (const std::string_view line : text::split(text::trimmed(lines), '\n'))
        text += "  " + text::oneLine(line) + "\n";
    return text;
}

std::string when(Date moment)
{
    return fmt::format("{} ({})", Times::local(moment), Times::ago(moment));
}

std::string differenceText(const ResultValue& value, const ResultValues& reference)
{
    const std::optional<double> above = difference(value, reference);
    return above ? shownDifference(*above) : "";
}

std::string results(const Terminal& terminal, const Run& run, const ExperimentTree::Node& node)
{
    const ExperimentTree::References references = node.references();
    TextTable table({
        {.heading = "  value"},
        {.heading = "", .toTheRight = true},
        {.heading = references.parent.empty() ? "" : "vs parent", .toTheRight = true},
        {.heading = references.baseline.empty() ? "" : "vs baseline", .toTheRight = true},
    });
    for (const ResultValue& value : resultValues(run))
        table.add({
            {"  " + value.key, Style::dim},
            {value.number() ? shownNumber(*value.number()) : value.text()},
            {differenceText(value, references.parent)},
            {differenceText(value, references.baseline)},
        });
    return table.text(terminal);
}

std::string runsTable(const Terminal& terminal, const std::vector<const Run*>& runs)
{
    TextTable table({{}, {}, {}, {.heading = "", .toTheRight = true}, {.heading = "", .mayBeCut = true}});
    for (const Run* run : runs)
        table.add({
            {fmt::format("  #{}", run->number)},
            {statusText(*run), statusStyle(run->status)},
            {Times::ago(run->createdAt)},
            {Times::length(RunWords::seconds(*run))},
            {run->result.value_or(""), Style::dim},
        });
    return table.text(terminal);
}

std::string papersTable(const Terminal& terminal, const std::vector<const Citation*>& citations)
{
    TextTable table({{}, {}, {.heading = "", .mayBeCut = true}, {.heading = "", .mayBeCut = true}});
    for (const Citation* citation : citations)
        table.add({
            {"  " + citation->paper.id, Style::dim},
            {citation->paper.year ? std::to_string(*citation->paper.year) : ""},
            {citation->paper.title},
            {citation->reason, Style::dim},
        });
    return table.text(terminal);
}

void showNode(const Context& context, const Lab& lab, const ExperimentTree::Node& shown)
{
    const Experiment& node = shown.record;
    if (context.json())
        return context.printJSON(TreeJSON::full(shown, lab.worktree(node)));

    const Terminal& out = context.out();
    const NodeState state = nodeState(shown);
    std::string text = fmt::format(
        "{}  {}{}\n", out.styled(Style::bold, text::oneLine(node.title)),
        out.styled(stateStyle(state), stateText(state)), node.archived ? out.styled(Style::dim, "  archived") : "");
    Fields fields;
    fields.add("name", node.slug);
    fields.add("branch", node.branch);
    fields.add("worktree", lab.worktree(node).string());
    fields.add("from", shown.parent ? shown.parent->record.title : "the project's code, as a baseline");
    fields.add("command", node.runCommand);
    fields.add("made", when(node.createdAt));
    fields.add("id", node.id.text());
    text += fields.text(out);
    if (!text::isBlank(node.notes))
        text += heading(out, "Notes") + block(node.notes);
    if (shown.answer)
        text +=
            heading(out, fmt::format("Result of run #{}", shown.answer->number)) + results(out, *shown.answer, shown);
    if (!shown.runs.empty())
        text += heading(out, "Runs") + runsTable(out, shown.runs);
    if (!shown.children.empty()) {
        text += heading(out, "Children");
        for (const ExperimentTree::Node* child : shown.children)
            text += block(child->record.title);
    }
    if (!shown.citations.empty())
        text += heading(out, "Papers") + papersTable(out, shown.citations);
    context.print(text);
}

/// The end of the log of a run that is still going or didn't succeed, since it may tell why.
std::string logEnd(const Terminal& terminal, const Run& run)
{
    std::string text;
    if (run.status != Run::Status::succeeded)
        for (const RunLog::Line& line : RunLog::tail(run.log(), shownLogLines))
            text += "  " + harmless(line.text, terminal.hasColours()) + "\n";
    return text.empty() ? text : heading(terminal, "The log's end") + text;
}

void showRun(const Context& context, const Run& run, const ExperimentTree::Node& node)
{
    if (context.json()) {
        const ExperimentTree::References references = node.references();
        JSONValue document = TreeJSON::of(run, node);
        document.object()->emplace(
            "differences", TreeJSON::differences(resultValues(run), references.parent, references.baseline));
        return context.printJSON(document);
    }

    const Terminal& out = context.out();
    std::string text = fmt::format(
        "{}  {}\n", out.styled(Style::bold, fmt::format("Run #{} of {}", run.number, text::oneLine(node.record.title))),
        out.styled(statusStyle(run.status), statusText(run)));
    Fields fields;
    fields.add("began", when(run.createdAt));
    if (run.endedAt)
        fields.add("ended", fmt::format("{}, after {}", when(*run.endedAt), Times::length(RunWords::seconds(run))));
    else
        fields.add("so far", Times::length(RunWords::seconds(run)));
    fields.add("command", run.command);
    fields.add("commit", RunWords::commit(run));
    fields.add("folder", run.directory.string());
    fields.add("log", run.log().string());
    if (run.pid)
        fields.add("process", std::to_string(*run.pid));
    fields.add("id", run.id.text());
    text += fields.text(out);
    if (run.answered())
        text += heading(out, "Result") + results(out, run, node);
    else if (run.isFinished())
        text += "\n  It left no result.\n";
    context.print(text + logEnd(out, run));
}

void show(Context& context, const Arguments& arguments)
{
    const std::optional<std::string> given = arguments.text("NODE|RUN");
    const Context::Look look = context.look({given ? *given : context.nodeOrHere(given).slug});
    const auto& [node, run] = look.named.front();
    run ? showRun(context, *run, *node) : showNode(context, context.lab(), *node);
}

constexpr std::array showOptions = {
    Option{
        "NODE|RUN", "", "A node by its name, title, branch or id, or a run by its number or id; in a worktree its node",
        Option::Count::optional, Option::Completion::node},
};

constexpr std::array table = {
    Command{
        .name = "show",
        .summary = "Show all of one node or of one run: its result with the differences, notes, runs and papers",
        .example = "veltry show lr-3e-5\nveltry show 7",
        .hasJSON = true,
        .options = showOptions,
        .run = &show},
};

} // namespace

Family showCommands()
{
    return table;
}

} // namespace veltry::Commands
