#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Terminal/Progress.h"
#include "Host/Terminal/SideBySide.h"
#include "Host/Terminal/Times.h"
#include "Host/Views/NodeState.h"
#include "Host/Views/RecordJSON.h"
#include "Host/Views/TreeJSON.h"
#include "Host/Words/LabErrorWords.h"
#include "Host/Words/RunWords.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <expected>

namespace veltry::Commands {

namespace {

/// One side of the comparison: a node with the run that speaks for it, or a run with its node.
struct Side {
    std::string name;
    const ExperimentTree::Node* node;
    const Run* run; ///< null where there is none
    ResultValues values;
    std::expected<Changes, std::string> changes; ///< or why there are none
};

std::expected<Changes, std::string> changesOf(const Lab& lab, const Experiment& node)
{
    try {
        return lab.changes(node);
    } catch (const LabError& error) { // a branch that is gone leaves the rest to compare
        return std::unexpected(LabErrorWords::forPerson(error));
    }
}

Side side(const Lab& lab, const Context::Look::Named& named)
{
    const auto& [node, run] = named;
    return {
        .name = run ? fmt::format("#{} {}", run->number, node->record.title) : node->record.title,
        .node = node,
        .run = run ? run : node->answer,
        .values = run ? resultValues(*run) : node->values(),
        .changes = changesOf(lab, node->record)};
}

/// The names of `names` in the order in which the sides first have them.
template <typename Names>
std::vector<std::string> inOrder(const std::vector<Side>& sides, Names names)
{
    std::vector<std::string> all;
    for (const Side& side : sides)
        for (const std::string& name : names(side))
            if (std::ranges::find(all, name) == all.end())
                all.push_back(name);
    return all;
}

std::vector<std::string> keysOf(const Side& side)
{
    std::vector<std::string> keys;
    for (const ResultValue& value : side.values)
        keys.push_back(value.key);
    return keys;
}

std::vector<std::string> pathsOf(const Side& side)
{
    std::vector<std::string> paths;
    if (side.changes)
        for (const Changes::File& file : side.changes->files)
            paths.push_back(file.path);
    return paths;
}

std::string valueText(const Side& side, const std::string& key, const Side& first)
{
    const ResultValue* value = find(side.values, key);
    if (!value)
        return "";
    if (!value->number())
        return value->text();
    const std::optional<double> above = &side == &first ? std::nullopt : difference(*value, first.values);
    return shownNumber(*value->number()) + (above ? fmt::format(" ({})", shownDifference(*above)) : "");
}

std::string fileText(const Side& side, const std::string& path)
{
    if (!side.changes)
        return "";
    const auto file = std::ranges::find(side.changes->files, path, &Changes::File::path);
    if (file == side.changes->files.end())
        return "";
    const std::string counts =
        file->added && file->removed ? fmt::format("+{} -{}", *file->added, *file->removed) : "binary";
    return file->kind == Changes::Kind::modified ? counts : fmt::format("{} {}", toWord(file->kind), counts);
}

constexpr std::size_t mostBesideEachOther = 4;

/// The same turned round: a row for each of the sides.
template <typename CellOf>
std::string turnedRound(
    const Context& context, const std::vector<Side>& sides, const std::vector<std::string>& names, CellOf cellOf,
    std::string_view heading)
{
    std::vector<TextTable::Column> columns{{.heading = std::string(heading), .mayBeCut = true, .stays = true}};
    for (const std::string& name : names)
        columns.push_back({.heading = name, .lessAskedFor = 1});
    TextTable table(std::move(columns));
    for (const Side& side : sides) {
        std::vector<TextTable::Cell> cells{{side.name, Style::dim}};
        for (const std::string& name : names)
            cells.push_back(cellOf(side, name));
        table.add(std::move(cells));
    }
    return table.text(context.out());
}

/// A table with a row for each of the names and a column for each of the sides, while these have room.
template <typename CellOf>
std::string rows(
    const Context& context, const std::vector<Side>& sides, const std::vector<std::string>& names, CellOf cellOf,
    std::string_view heading)
{
    if (sides.size() > mostBesideEachOther)
        return turnedRound(context, sides, names, cellOf, heading);
    std::vector<TextTable::Column> columns{{.heading = std::string(heading), .mayBeCut = true}};
    for (const Side& side : sides)
        columns.push_back({.heading = side.name, .mayBeCut = true});
    TextTable table(std::move(columns));
    for (const std::string& name : names) {
        std::vector<TextTable::Cell> cells{{name, Style::dim}};
        for (const Side& side : sides)
            cells.push_back(cellOf(side, name));
        table.add(std::move(cells));
    }
    return table.text(context.out());
}

TextTable::Cell factText(const Side& side, std::string_view name)
{
    const NodeState state = nodeState(*side.node);
    if (name == "state")
        return {std::string(stateText(state)), stateStyle(state)};
    if (!side.run)
        return {""};
    if (name == "run")
        return {fmt::format("#{} {}", side.run->number, statusText(*side.run)), statusStyle(side.run->status)};
    return {side.run->endedAt ? Times::length(RunWords::seconds(*side.run)) : ""};
}

void print(const Context& context, const std::vector<Side>& sides)
{
    std::string text = rows(context, sides, {"state", "run", "took"}, factText, "");
    if (const std::vector<std::string> keys = inOrder(sides, keysOf); !keys.empty())
        text += "\n" + rows(
                           context, sides, keys,
                           [&](const Side& side, const std::string& key) {
                               return TextTable::Cell{valueText(side, key, sides.front())};
                           },
                           "result");
    if (std::ranges::any_of(sides, [](const Side& side) { return !text::isBlank(side.node->record.notes); })) {
        std::vector<std::string> names;
        std::vector<std::string> notes;
        for (const Side& side : sides) {
            names.push_back("Notes of " + side.name);
            notes.emplace_back(text::trimmed(side.node->record.notes));
        }
        text += "\n";
        if (sides.size() <= mostBesideEachOther)
            text += sideBySide(names, notes, context.out());
        else
            for (std::size_t place = 0; place < sides.size(); ++place)
                if (!notes[place].empty())
                    text += sideBySide({names[place]}, {notes[place]}, context.out());
    }
    if (const std::vector<std::string> paths = inOrder(sides, pathsOf); !paths.empty())
        text +=
            "\n" + rows(
                       context, sides, paths,
                       [](const Side& side, const std::string& path) { return TextTable::Cell{fileText(side, path)}; },
                       "files changed");
    context.print(text);
    for (const Side& side : sides)
        if (!side.changes)
            context.note(text::oneLine(fmt::format("The changes of {}: {}", side.name, side.changes.error())));
}

JSONValue json(const Side& side, const Side& first)
{
    JSONValue document = TreeJSON::of(*side.node);
    JSONValue::Object& object = *document.object();
    object.emplace("differences", TreeJSON::differences(side.values, first.values));
    if (side.run)
        object.emplace("run", RecordJSON::of(*side.run));
    if (!side.changes)
        return document;
    JSONValue::Array files;
    for (const Changes::File& file : side.changes->files) {
        JSONValue record = toJSON(file);
        record.object()->erase("hunks");
        files.push_back(std::move(record));
    }
    object.emplace("files", std::move(files));
    object.emplace("against", side.changes->against);
    return document;
}

void compare(Context& context, const Arguments& arguments)
{
    const std::vector<std::string> given = arguments.all("NODE|RUN");
    if (given.size() < 2)
        throw UsageError("Name at least two nodes or runs to compare: veltry compare A B.");
    const Context::Look look = context.look(given);
    std::vector<Side> sides;
    {
        const Progress progress(context.notes(), "Looking at what the nodes changed");
        for (const Context::Look::Named& named : look.named)
            sides.push_back(side(context.lab(), named));
    }
    if (!context.json())
        return print(context, sides);
    JSONValue::Array documents;
    for (const Side& each : sides)
        documents.push_back(json(each, sides.front()));
    context.printJSON(JSONValue(std::move(documents)));
}

constexpr std::array options = {
    Option{
        "NODE|RUN", "", "Nodes or runs; differences are to the first", Option::Count::oneOrMore,
        Option::Completion::node},
};

constexpr std::array table = {
    Command{
        .name = "compare",
        .summary = "Show results, notes and changed files of several nodes or runs side by side",
        .example = "veltry compare baseline lr-3e-5 dropout",
        .hasJSON = true,
        .options = options,
        .run = &compare},
};

} // namespace

Family compareCommands()
{
    return table;
}

} // namespace veltry::Commands
