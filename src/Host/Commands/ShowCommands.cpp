#include "Base/Text.h"
#include "Experiments/RunLog/RunLog.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Terminal/Harmless.h"
#include "Host/Terminal/Numbers.h"
#include "Host/Terminal/Times.h"
#include "Host/Views/NodeView.h"
#include "Host/Views/RecordJSON.h"
#include "Host/Words/RunWords.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace veltry::Commands {

namespace {

constexpr std::int64_t shownLogLines = 10;
constexpr std::size_t shownCommit = 12;

/// Names with a value each, one below the other. No value is cut: paths and ids are there to be copied.
class Fields {
public:
    void add(std::string_view name, std::string_view value)
    {
        if (!value.empty())
            fields_.emplace_back(name, text::oneLine(value));
    }

    [[nodiscard]] std::string text(const Terminal& terminal) const
    {
        std::size_t widest = 0;
        for (const auto& [name, value] : fields_)
            widest = std::max(widest, name.size());
        std::string text;
        for (const auto& [name, value] : fields_)
            text += fmt::format("{}  {}\n", terminal.styled(Style::dim, fmt::format("  {:<{}}", name, widest)), value);
        return text;
    }

private:
    std::vector<std::pair<std::string_view, std::string>> fields_;
};

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

double secondsOf(const Run& run)
{
    return run.endedAt.value_or(Date::now()).secondsSince2001 - run.createdAt.secondsSince2001;
}

std::string difference(const ResultValue& value, const ResultValues& reference)
{
    const double* other = findNumber(reference, value.key);
    return other && value.number() ? shownDifference(*value.number() - *other) : "";
}

std::string results(const Terminal& terminal, const ResultValues& values, const NodeView& view)
{
    TextTable table({
        {.heading = "  value"},
        {.heading = "", .toTheRight = true},
        {.heading = view.parentResult.empty() ? "" : "vs parent", .toTheRight = true},
        {.heading = view.baselineResult.empty() ? "" : "vs baseline", .toTheRight = true},
    });
    for (const ResultValue& value : values)
        table.add({
            {"  " + value.key, Style::dim},
            {value.number() ? shownNumber(*value.number()) : value.text()},
            {difference(value, view.parentResult)},
            {difference(value, view.baselineResult)},
        });
    return table.text(terminal);
}

std::vector<Citation> citationsOf(const Lab& lab, const UUID& node)
{
    std::vector<Citation> all = lab.store->citations(lab.project.id);
    std::erase_if(all, [&](const Citation& citation) { return citation.experimentID != node; });
    return all;
}

JSONValue differences(const ResultValues& values, const NodeView& view)
{
    return JSONValue::object({
        {"parent", differencesJSON(values, view.parentResult)},
        {"baseline", differencesJSON(values, view.baselineResult)},
    });
}

void showNodeJSON(const Context& context, const Lab& lab, const NodeView& view, const std::vector<Citation>& citations)
{
    JSONValue document = RecordJSON::of(view.node);
    JSONValue::Array runs;
    for (const Run& run : view.runs)
        runs.push_back(RecordJSON::of(run));
    JSONValue::Array papers;
    for (const Citation& citation : citations)
        papers.push_back(RecordJSON::of(citation));
    JSONValue::Array children;
    for (const Experiment& child : view.children)
        children.push_back(child.id.text());
    JSONValue::Object& object = *document.object();
    object.emplace("state", JSONValue(stateText(nodeState(view.runs))));
    object.emplace("frozen", answerAmong(view.runs) != nullptr);
    object.emplace("worktree", lab.worktree(view.node).string());
    object.emplace("children", std::move(children));
    object.emplace("runs", std::move(runs));
    object.emplace("citations", std::move(papers));
    object.emplace("differences", differences(view.result, view));
    context.printJSON(document);
}

std::string runsTable(const Terminal& terminal, const std::vector<Run>& runs)
{
    TextTable table({{}, {}, {}, {.heading = "", .toTheRight = true}, {.heading = "", .mayBeCut = true}});
    for (const Run& run : runs)
        table.add({
            {fmt::format("  #{}", run.number)},
            {statusText(run), statusStyle(run.status)},
            {Times::ago(run.createdAt)},
            {Times::length(secondsOf(run))},
            {run.result.value_or(""), Style::dim},
        });
    return table.text(terminal);
}

void showNode(const Context& context, const Lab& lab, const Experiment& node)
{
    const NodeView view = NodeView::of(lab, node);
    const std::vector<Citation> citations = citationsOf(lab, node.id);
    if (context.json())
        return showNodeJSON(context, lab, view, citations);

    const Terminal& out = context.out();
    const NodeState state = nodeState(view.runs);
    std::string text = fmt::format(
        "{}  {}{}\n", out.styled(Style::bold, text::oneLine(node.title)),
        out.styled(stateStyle(state), stateText(state)), node.archived ? out.styled(Style::dim, "  archived") : "");
    Fields fields;
    fields.add("name", node.slug);
    fields.add("branch", node.branch);
    fields.add("worktree", lab.worktree(node).string());
    fields.add("from", view.parent ? view.parent->title : "the project's code, as a baseline");
    fields.add("command", node.runCommand);
    fields.add("made", when(node.createdAt));
    fields.add("id", node.id.text());
    text += fields.text(out);
    if (!text::isBlank(node.notes))
        text += heading(out, "Notes") + block(node.notes);
    if (const Run* answer = answerAmong(view.runs))
        text += heading(out, fmt::format("Result of run #{}", answer->number)) + results(out, view.result, view);
    if (!view.runs.empty())
        text += heading(out, "Runs") + runsTable(out, view.runs);
    if (!view.children.empty()) {
        text += heading(out, "Children");
        for (const Experiment& child : view.children)
            text += block(child.title);
    }
    if (!citations.empty()) {
        TextTable papers({{}, {}, {.heading = "", .mayBeCut = true}, {.heading = "", .mayBeCut = true}});
        for (const Citation& citation : citations)
            papers.add({
                {"  " + citation.paper.id, Style::dim},
                {citation.paper.year ? std::to_string(*citation.paper.year) : ""},
                {citation.paper.title},
                {citation.reason, Style::dim},
            });
        text += heading(out, "Papers") + papers.text(out);
    }
    context.print(text);
}

/// The end of the log, where it tells why: of a run that still goes or didn't succeed.
std::string logEnd(const Terminal& terminal, const Run& run)
{
    std::string text;
    if (run.status != Run::Status::succeeded)
        for (const RunLog::Line& line : RunLog::tail(run.log(), shownLogLines))
            text += "  " + harmless(line.text, terminal.hasColours()) + "\n";
    return text.empty() ? text : heading(terminal, "The log's end") + text;
}

void showRun(const Context& context, const Lab& lab, const Run& given)
{
    const NodeView view = NodeView::of(lab, lab.experiment(given.experimentID.text()));
    const auto fresh = std::ranges::find(view.runs, given.id, &Run::id);
    const Run& run = fresh == view.runs.end() ? given : *fresh;
    const ResultValues values = resultValues(run);
    if (context.json()) {
        JSONValue document = RecordJSON::of(run);
        document.object()->emplace("title", view.node.title);
        document.object()->emplace("differences", differences(values, view));
        return context.printJSON(document);
    }

    const Terminal& out = context.out();
    std::string text = fmt::format(
        "{}  {}\n", out.styled(Style::bold, fmt::format("Run #{} of {}", run.number, text::oneLine(view.node.title))),
        out.styled(statusStyle(run.status), statusText(run)));
    Fields fields;
    fields.add("began", when(run.createdAt));
    if (run.endedAt)
        fields.add("ended", fmt::format("{}, after {}", when(*run.endedAt), Times::length(secondsOf(run))));
    else
        fields.add("goes for", Times::length(secondsOf(run)));
    fields.add("command", run.command);
    fields.add("commit", run.commit.substr(0, shownCommit));
    fields.add("folder", run.directory.string());
    fields.add("log", run.log().string());
    if (run.pid)
        fields.add("process", std::to_string(*run.pid));
    fields.add("id", run.id.text());
    text += fields.text(out);
    if (run.answered())
        text += heading(out, "Result") + results(out, values, view);
    else if (run.isFinished())
        text += "\n  It left no result.\n";
    context.print(text + logEnd(out, run));
}

void show(Context& context, const Arguments& arguments)
{
    const std::string given = arguments.required("NODE|RUN");
    const Lab& lab = context.lab();
    const bool isNumber = given.starts_with('#') || RunWords::isNumber(given);
    if (isNumber)
        return showRun(context, lab, context.run(given));
    try {
        return showNode(context, lab, context.node(given));
    } catch (const Refusal& noNode) {
        if (!UUID::parse(given))
            throw;
    }
    showRun(context, lab, context.run(given));
}

constexpr std::array showOptions = {
    Option{
        "NODE|RUN", "", "A node by its name, title, branch or id, or a run by its number or id",
        Option::Count::required, Option::Completion::node},
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
