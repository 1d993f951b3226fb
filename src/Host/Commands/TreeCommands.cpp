#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Terminal/Screen.h"
#include "Host/Terminal/TextTable.h"
#include "Host/Terminal/TreeDrawing.h"
#include "Host/Views/NodeState.h"
#include "Host/Views/StoreWatch.h"
#include "Host/Views/TreeJSON.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace veltry::Commands {

namespace {

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

/// The first number of the results that all nodes with a result share.
std::optional<std::string> sharedNumber(const std::vector<Line>& lines)
{
    std::optional<std::vector<std::string_view>> shared;
    for (const Line& line : lines) {
        if (line.values.empty())
            continue;
        if (!shared) {
            shared.emplace();
            for (const ResultValue& value : line.values)
                if (value.number())
                    shared->push_back(value.key);
        }
        std::erase_if(*shared, [&](std::string_view key) { return !findNumber(line.values, key); });
    }
    return shared && !shared->empty() ? std::optional<std::string>(shared->front()) : std::nullopt;
}

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

std::string drawn(const Shown& shown, TreeDrawing::Manner manner, const Terminal& terminal)
{
    const bool isGraph = manner == TreeDrawing::Manner::graph;
    TextTable table({
        {.heading = "node", .mayBeCut = true},
        {.heading = "state"},
        {.heading = shown.metric.value_or(""), .toTheRight = true},
        {.heading = ""}, // the best
        {.heading = "runs", .toTheRight = true},
        {.heading = "papers", .toTheRight = true},
    });
    for (const TreeDrawing::Line& place : TreeDrawing::lines(forestOf(shown.lines), manner, terminal.isUTF8())) {
        const Line& line = shown.lines[place.number];
        const ExperimentTree::Node& node = *line.node;
        const NodeState state = nodeState(node);
        if (isGraph && place.startsTree && !table.isEmpty())
            table.add({{""}, {""}, {""}, {""}, {""}, {""}}); // or an only child would look like another baseline
        table.add({
            {fmt::format("{}{}{}", place.lead, isGraph ? symbol(state, terminal.isUTF8()) : "", node.record.title),
             node.record.archived ? Style::dim
             : line.isBest        ? Style::bold
                                  : Style::plain},
            {std::string(stateText(state)) + (node.record.archived ? ", archived" : ""), stateStyle(state)},
            {line.number ? shownNumber(*line.number) : "", line.isBest ? Style::green : Style::plain},
            {line.isBest ? (terminal.isUTF8() ? "★" : "best") : "", Style::green},
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

View viewed(const Context& context, const Lab& lab, const Wish& wish)
{
    const ExperimentTree project = lab.tree();
    const Shown shown = chosen(project, wish);
    if (context.json())
        return {.text = json(shown).prettyText() + "\n", .note = ""};
    if (project.nodes().empty())
        return {
            .text = "",
            .note = "There is no node yet. Make a baseline: veltry create Baseline --command \"python3 train.py\"."};
    if (shown.lines.empty())
        return {.text = "", .note = "All nodes are archived. veltry tree --all shows them."};
    View view{.text = drawn(shown, wish.manner, context.out()), .note = ""};
    if (wish.metric && std::ranges::none_of(shown.lines, [](const Line& line) { return line.number.has_value(); }))
        view.note = fmt::format("No node has a result with a number {}.", text::oneLine(*wish.metric));
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
    while (true) {
        const View view = viewed(context, lab, wish);
        screen.show(view.note.empty() ? view.text : view.text + view.note + "\n");
        static_cast<void>(watch.wait());
    }
}

constexpr std::array options = {
    Option{"--all", "", "Archived nodes as well"},
    Option{"--watch", "", "Draw it again whenever something changes, until Ctrl-C"},
    Option{"--metric", "KEY", "The number of the results to show; by default the first that all of them have"},
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
