#include "Base/Text.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Terminal/Numbers.h"
#include "Host/Terminal/Screen.h"
#include "Host/Terminal/TextTable.h"
#include "Host/Terminal/TreeDrawing.h"
#include "Host/Views/ProjectView.h"
#include "Host/Views/RecordJSON.h"
#include "Host/Views/StoreWatch.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace veltry::Commands {

namespace {

using Node = ProjectView::Node;

struct Wish {
    bool all;
    std::optional<std::string> metric;
    std::optional<std::string> best; ///< "min" or "max"
    TreeDrawing::Manner manner;
};

/// What is shown of one look.
struct Shown {
    std::vector<const Node*> nodes;
    TreeDrawing::Forest forest; ///< by their places in `nodes`
    std::optional<std::string> metric;
    std::optional<double> best;
};

/// The first number of the results that all nodes with a result share.
std::optional<std::string> sharedNumber(const std::vector<const Node*>& nodes)
{
    std::optional<std::vector<std::string_view>> shared;
    for (const Node* node : nodes) {
        if (node->result.empty())
            continue;
        if (!shared) {
            shared.emplace();
            for (const ResultValue& value : node->result)
                if (value.number())
                    shared->push_back(value.key);
        }
        std::erase_if(*shared, [&](std::string_view key) { return !findNumber(node->result, key); });
    }
    return shared && !shared->empty() ? std::optional<std::string>(shared->front()) : std::nullopt;
}

/// A node whose parent isn't shown begins a tree of its own.
Shown chosen(const ProjectView& view, const Wish& wish)
{
    Shown shown;
    std::unordered_map<const Node*, std::size_t> places;
    for (const Node& node : view.nodes())
        if (wish.all || !node.record.archived) {
            places.emplace(&node, shown.nodes.size());
            shown.nodes.push_back(&node);
        }
    shown.forest.children.resize(shown.nodes.size());
    for (std::size_t place = 0; place < shown.nodes.size(); ++place) {
        const auto parent = places.find(shown.nodes[place]->parent);
        (parent == places.end() ? shown.forest.roots : shown.forest.children[parent->second]).push_back(place);
    }
    shown.metric = wish.metric ? wish.metric : sharedNumber(shown.nodes);
    if (!shown.metric || !wish.best)
        return shown;
    for (const Node* node : shown.nodes)
        if (const double* number = findNumber(node->result, *shown.metric))
            if (!shown.best || (*wish.best == "min" ? *number < *shown.best : *number > *shown.best))
                shown.best = *number;
    return shown;
}

bool isBest(const Node& node, const Shown& shown)
{
    const double* number = shown.metric ? findNumber(node.result, *shown.metric) : nullptr;
    return number && shown.best && *number == *shown.best;
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
    for (const TreeDrawing::Line& line : TreeDrawing::lines(shown.forest, manner, terminal.isUTF8())) {
        const Node& node = *shown.nodes[line.number];
        const NodeState state = nodeState(node.runs);
        const double* number = shown.metric ? findNumber(node.result, *shown.metric) : nullptr;
        const bool best = isBest(node, shown);
        if (isGraph && line.startsTree && !table.isEmpty())
            table.add({{""}, {""}, {""}, {""}, {""}, {""}}); // or an only child would look like another baseline
        table.add({
            {fmt::format("{}{}{}", line.lead, isGraph ? symbol(state, terminal.isUTF8()) : "", node.record.title),
             node.record.archived ? Style::dim
             : best               ? Style::bold
                                  : Style::plain},
            {std::string(stateText(state)) + (node.record.archived ? ", archived" : ""), stateStyle(state)},
            {number ? shownNumber(*number) : "", best ? Style::green : Style::plain},
            {best ? (terminal.isUTF8() ? "★" : "best") : "", Style::green},
            {node.runs.empty() ? "" : std::to_string(node.runs.size())},
            {node.citations.empty() ? "" : std::to_string(node.citations.size())},
        });
    }
    return table.text(terminal);
}

JSONValue nodeJSON(const Node& node, const Shown& shown)
{
    JSONValue document = RecordJSON::of(node.record);
    JSONValue::Array runs;
    for (const Run& run : node.runs)
        runs.push_back(JSONValue::object({{"number", run.number}, {"status", JSONValue(Run::statusText(run.status))}}));
    JSONValue::Array papers;
    for (const Citation& citation : node.citations)
        papers.push_back(citation.paper.id);
    JSONValue::Object& object = *document.object();
    object.emplace("state", JSONValue(stateText(nodeState(node.runs))));
    object.emplace("frozen", answerAmong(node.runs) != nullptr);
    object.emplace("runs", std::move(runs));
    object.emplace("papers", std::move(papers));
    object.emplace("best", isBest(node, shown));
    if (const double* number = shown.metric ? findNumber(node.result, *shown.metric) : nullptr)
        object.emplace("value", *number);
    return document;
}

JSONValue json(const Shown& shown)
{
    JSONValue::Array nodes;
    for (const TreeDrawing::Line& line : TreeDrawing::lines(shown.forest, TreeDrawing::Manner::indented, false))
        nodes.push_back(nodeJSON(*shown.nodes[line.number], shown));
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
    const ProjectView project(lab);
    const Shown shown = chosen(project, wish);
    if (context.json())
        return {.text = json(shown).prettyText() + "\n", .note = ""};
    if (project.nodes().empty())
        return {
            .text = "",
            .note = "There is no node yet. Make a baseline: veltry create Baseline --command \"python3 train.py\"."};
    if (shown.nodes.empty())
        return {.text = "", .note = "All nodes are archived. veltry tree --all shows them."};
    View view{.text = drawn(shown, wish.manner, context.out()), .note = ""};
    if (wish.metric &&
        std::ranges::none_of(shown.nodes, [&](const Node* node) { return findNumber(node->result, *wish.metric); }))
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
