#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Experiments/Telemetry/Telemetry.h"
#include "Host/CommandLine/Nearest.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Terminal/Screen.h"
#include "Host/Terminal/TextTable.h"
#include "Host/Terminal/Times.h"
#include "Host/Terminal/TreeDrawing.h"
#include "Host/Views/NodeState.h"
#include "Host/Views/StoreWatch.h"
#include "Host/Views/TreeJSON.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <map>

namespace veltry::Commands {

namespace {

constexpr std::chrono::seconds betweenLooks(1); // at what runs

struct Wish {
    bool all;
    std::optional<std::string> metric;
    std::optional<std::string> best; ///< "min" or "max"
    TreeDrawing::Manner manner;
};

struct Line {
    const ExperimentTree::Node* node;
    std::size_t depth;
    ResultValues values;
    std::optional<double> number{}; ///< the headline
    bool isBest = false;
};

/// What is shown of one look, each node before its children.
struct Shown {
    std::vector<Line> lines;
    std::optional<std::string> metric;
};

/// The number that most nodes with a result have, of several the first.
std::optional<std::string> sharedNumber(const std::vector<Line>& lines)
{
    std::vector<std::pair<std::string_view, std::size_t>> counts;
    for (const Line& line : lines)
        for (const ResultValue& value : line.values) {
            if (!value.number())
                continue;
            const auto known = std::ranges::find(counts, value.key, &std::pair<std::string_view, std::size_t>::first);
            if (known == counts.end())
                counts.emplace_back(value.key, 1);
            else
                ++known->second;
        }
    const auto most = std::ranges::max_element(counts, {}, &std::pair<std::string_view, std::size_t>::second);
    return most == counts.end() ? std::nullopt : std::optional<std::string>(most->first);
}

/// A key that no result has is a slip, unless there is no result yet.
void refuseUnknown(const std::string& metric, const ExperimentTree& tree)
{
    std::vector<std::string> keys;
    for (const ExperimentTree::Node& node : tree.nodes())
        for (const ResultValue& value : node.values()) {
            if (value.key == metric)
                return;
            if (value.number() && std::ranges::find(keys, value.key) == keys.end())
                keys.push_back(value.key);
        }
    if (!keys.empty())
        throw UsageError(fmt::format(
            "No result has a number {}.{} There are: {}.", metric, didYouMean(metric, keys), text::joined(keys, ", ")));
}

/// What the runs in flight tell while the tree is watched.
class Live {
public:
    /// "12 min 5 s, loss 0.41" of the node's run that is in flight.
    std::string text(const ExperimentTree::Node& node, const std::optional<std::string>& metric)
    {
        const auto run = std::ranges::find(node.runs, Run::Status::running, &Run::status);
        if (run == node.runs.end())
            return "";
        Telemetry& telemetry = telemetry_[(*run)->number];
        static_cast<void>(telemetry.read((*run)->telemetryFile(), false));
        std::string text = Times::length(
            std::chrono::seconds(std::llround(Date::now().secondsSince2001 - (*run)->createdAt.secondsSince2001)));
        const std::vector<std::string>& keys = telemetry.keys();
        const auto first =
            std::ranges::find_if(keys, [](const std::string& key) { return key != "step" && key != "epoch"; });
        const std::string key = metric && telemetry.column(*metric) ? *metric : first == keys.end() ? "" : *first;
        if (const Telemetry::Column* column = telemetry.column(key))
            text += fmt::format(", {} {}", key, shownNumber(column->values.back()));
        return text;
    }

private:
    std::map<std::int64_t, Telemetry> telemetry_; // by the run's number
};

Shown chosen(const ExperimentTree& tree, const Wish& wish)
{
    using enum ExperimentTree::Archived;
    Shown result;
    for (const auto& [node, depth] : tree.depthFirst(wish.all ? shown : hidden))
        result.lines.push_back({.node = node, .depth = depth, .values = node->values()});
    result.metric = wish.metric ? wish.metric : sharedNumber(result.lines);
    if (!result.metric)
        return result;
    std::optional<double> best;
    for (Line& line : result.lines)
        if (const double* number = findNumber(line.values, *result.metric)) {
            line.number = *number;
            if (wish.best && (!best || (*wish.best == "min" ? *number < *best : *number > *best)))
                best = *number;
        }
    for (Line& line : result.lines)
        line.isBest = best && line.number == best;
    return result;
}

TreeDrawing::Forest forestOf(const std::vector<Line>& lines)
{
    TreeDrawing::Forest forest;
    forest.children.resize(lines.size());
    std::vector<std::size_t> above; // the last node of each depth
    for (std::size_t place = 0; place < lines.size(); ++place) {
        const std::size_t depth = lines[place].depth;
        (depth == 0 ? forest.roots : forest.children[above[depth - 1]]).push_back(place);
        above.resize(depth);
        above.push_back(place);
    }
    return forest;
}

std::string_view symbol(NodeState state, bool isUTF8)
{
    const bool isLive = state == NodeState::queued || state == NodeState::running;
    if (isUTF8)
        return isLive ? "◉ " : state == NodeState::frozen ? "● " : "○ ";
    return isLive ? "@ " : state == NodeState::frozen ? "* " : "o ";
}

std::string drawn(const Shown& shown, TreeDrawing::Manner manner, const Terminal& terminal, Live* live)
{
    const bool isGraph = manner == TreeDrawing::Manner::graph;
    TextTable table({
        {.heading = "node", .mayBeCut = true},
        {.heading = "state"},
        {.heading = shown.metric.value_or(""), .toTheRight = true, .stays = true},
        {.heading = ""}, // the best
        {.heading = live ? "so far" : ""},
        {.heading = "runs", .toTheRight = true},
        {.heading = "papers", .toTheRight = true},
    });
    for (const TreeDrawing::Line& place : TreeDrawing::lines(forestOf(shown.lines), manner, terminal.isUTF8())) {
        const Line& line = shown.lines[place.number];
        const ExperimentTree::Node& node = *line.node;
        const NodeState state = nodeState(node);
        if (isGraph && place.startsTree && !table.isEmpty())
            table.add({{""}, {""}, {""}, {""}, {""}, {""}, {""}});
        table.add({
            {fmt::format("{}{}{}", place.lead, isGraph ? symbol(state, terminal.isUTF8()) : "", node.record.title),
             node.record.archived ? Style::dim
             : line.isBest        ? Style::bold
                                  : Style::plain},
            {std::string(stateText(state)) + (node.record.archived ? ", archived" : ""), stateStyle(state)},
            {line.number ? shownNumber(*line.number) : "", line.isBest ? Style::green : Style::plain},
            {line.isBest ? (terminal.isUTF8() ? "★" : "best") : "", Style::green},
            {live ? live->text(node, shown.metric) : ""},
            {node.runs.empty() ? "" : std::to_string(node.runs.size())},
            {node.citations.empty() ? "" : std::to_string(node.citations.size())},
        });
    }
    return table.text(terminal);
}

JSONValue json(const Shown& shown)
{
    JSONValue::Array nodes;
    for (const Line& line : shown.lines) {
        JSONValue node = TreeJSON::brief(*line.node);
        node.object()->emplace("best", line.isBest);
        if (line.number)
            node.object()->emplace("value", *line.number);
        nodes.push_back(std::move(node));
    }
    JSONValue::Object document;
    document.emplace("nodes", std::move(nodes));
    if (shown.metric)
        document.emplace("metric", *shown.metric);
    return document;
}

struct View {
    std::string text;
    std::string note; ///< a line without its line feed
};

View viewed(const Context& context, const Lab& lab, const Wish& wish, Live* live = nullptr)
{
    const ExperimentTree project = lab.tree();
    const Shown shown = chosen(project, wish);
    if (wish.metric)
        refuseUnknown(*wish.metric, project);
    if (context.json())
        return {.text = json(shown).prettyText() + "\n", .note = ""};
    if (project.nodes().empty())
        return {
            .text = "",
            .note = "There is no node yet. Make a baseline: veltry create Baseline --command \"python3 train.py\"."};
    if (shown.lines.empty())
        return {.text = "", .note = "All nodes are archived. veltry tree --all shows them."};
    View view{.text = drawn(shown, wish.manner, context.out(), live), .note = ""};
    if (wish.metric && std::ranges::none_of(shown.lines, [](const Line& line) { return line.number.has_value(); }))
        view.note = fmt::format("No node has a result with a number {}.", text::oneLine(*wish.metric));
    if (const auto without =
            std::ranges::count_if(shown.lines, [](const Line& line) { return !line.values.empty() && !line.number; });
        shown.metric && !wish.metric && without > 0)
        view.note = fmt::format(
            "{} without a number {}, which most have. Choose another with --metric.",
            counted(without, "node has a result", "nodes have results"), text::oneLine(*shown.metric));
    return view;
}

void tree(Context& context, const Arguments& arguments)
{
    const Wish wish{
        .all = arguments.has("--all"),
        .metric = arguments.text("--metric"),
        .best = arguments.text("--best"),
        .manner = Context::settings().tree == VeltrySettings::Tree::graph ? TreeDrawing::Manner::graph
                                                                          : TreeDrawing::Manner::indented};
    const Lab& lab = context.lab();
    if (!arguments.has("--watch")) {
        const View view = viewed(context, lab, wish);
        context.print(view.text);
        return view.note.empty() ? void() : context.note(view.note);
    }
    StoreWatch watch(lab, context.out());
    Screen screen(context.out());
    Live live;
    while (true) {
        const View view = viewed(context, lab, wish, &live);
        screen.show(view.note.empty() ? view.text : view.text + view.note + "\n");
        const bool isMoving = context.out().canRedraw() && !lab.store->runsInFlight(lab.project.id).runs.empty();
        static_cast<void>(isMoving ? watch.wait(betweenLooks) : watch.wait());
    }
}

constexpr std::array options = {
    Option{"--all", "", "Archived nodes as well"},
    Option{"--watch", "", "Draw it again whenever something changes, until Ctrl-C"},
    Option{"--metric", "KEY", "The number of the results to show; by default the one that most of them have"},
    Option{
        "--best", "DIRECTION", "Mark the best node: the one whose number is the least, or the greatest",
        Option::Count::optional, Option::Completion::none, "min max"},
};

constexpr std::array table = {
    Command{
        .name = "tree",
        .summary = "Draw the tree of nodes with their state, headline number, runs and papers",
        .example = "veltry tree --metric val_loss --best min",
        .hasJSON = true,
        .options = options,
        .run = &tree},
};

} // namespace

Family treeCommands()
{
    return table;
}

} // namespace veltry::Commands
