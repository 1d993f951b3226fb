#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Host/Commands/Commands.h"
#include "Host/Commands/SharedOptions.h"
#include "Host/Context.h"
#include "Host/Terminal/Pager.h"
#include "Host/Terminal/TextTable.h"
#include "Host/Terminal/Times.h"
#include "Host/Views/NodeState.h"
#include "Host/Views/RunTable.h"
#include "Host/Views/TreeJSON.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <numeric>

namespace veltry::Commands {

namespace {

using Column = RunTable::Column;

constexpr std::array<std::string_view, 5> ownColumnsForEyes = {"run", "node", "status", "began", "seconds"};

std::vector<Column> wantedColumns(const RunTable& table, const Arguments& arguments)
{
    std::vector<Column> columns;
    for (const std::string& given : arguments.all("--columns"))
        for (const std::string_view name : text::split(given, ','))
            if (!text::isBlank(name))
                columns.push_back(table.column(text::trimmed(name)));
    if (!columns.empty())
        return columns;
    if (arguments.has("--csv")) {
        columns.resize(table.names().size());
        std::iota(columns.begin(), columns.end(), Column{0});
        return columns;
    }
    for (const std::string_view name : ownColumnsForEyes)
        columns.push_back(table.column(name));
    for (Column column = table.column("commit") + 1; column < table.names().size(); ++column)
        columns.push_back(column);
    return columns;
}

/// RFC 4180's quotes, where they are needed.
std::string csvField(std::string text)
{
    if (text.find_first_of(",\"\r\n") == std::string::npos)
        return text;
    return "\"" + text::replacingAll(text, "\"", "\"\"") + "\"";
}

/// A result may hold what a terminal would obey; programs get it as it is.
std::string csv(const RunTable& table, const std::vector<Column>& columns, bool isForTerminal)
{
    std::string text;
    const auto addLine = [&](const auto& fieldOf) {
        for (std::size_t place = 0; place < columns.size(); ++place) {
            const std::string field = fieldOf(columns[place]);
            text.append(place == 0 ? "" : ",").append(csvField(isForTerminal ? text::oneLine(field) : field));
        }
        text += "\n";
    };
    addLine([&](Column column) { return table.names()[column]; });
    for (const RunTable::Row& row : table.rows())
        addLine([&](Column column) { return exactText(table.cell(row, column)); });
    return text;
}

TextTable::Cell forEyes(const RunTable& table, const RunTable::Row& row, Column column)
{
    const std::string_view name = table.names()[column];
    if (name == "status")
        return {statusText(*row.run), statusStyle(row.run->status)};
    if (name == "began")
        return {Times::ago(row.run->createdAt)};
    if (name == "ended")
        return {row.run->endedAt ? Times::ago(*row.run->endedAt) : ""};
    const RunTable::Cell cell = table.cell(row, column);
    const double* number = std::get_if<double>(&cell);
    if (!number)
        return {exactText(cell)};
    if (name == "seconds")
        return {Times::length(*number)};
    return {
        table.isDifference(column) ? shownDifference(*number) : shownNumber(*number),
        table.isDifference(column) ? Style::dim : Style::plain};
}

/// Takes the columns out in which all of several runs have the same, and returns the line that says so.
std::string hideConstant(
    const RunTable& table, std::vector<Column>& columns, const std::optional<std::string>& sortedBy)
{
    if (table.rows().size() < 2)
        return "";
    std::vector<std::string> same;
    std::vector<std::string> empty;
    std::erase_if(columns, [&](Column column) {
        const std::string& name = table.names()[column];
        // That two runs began in the same millisecond is a coincidence and tells nothing of the rest.
        if (name == "node" || name == "began" || name == sortedBy || !table.isConstant(column))
            return false;
        const std::string value = forEyes(table, table.rows().front(), column).text;
        (value.empty() ? empty : same).push_back(value.empty() ? name : name + " " + value);
        return true;
    });
    if (same.empty() && empty.empty())
        return "";
    const std::string line = fmt::format(
        "{} hidden:{}{}{}. --all-columns shows them.",
        counted(static_cast<std::int64_t>(same.size() + empty.size()), "column", "columns"),
        same.empty() ? "" : " the same in all of these runs (" + text::joined(same, ", ") + ")",
        same.empty() || empty.empty() ? "" : ",", empty.empty() ? "" : " empty (" + text::joined(empty, ", ") + ")");
    return text::oneLine(line);
}

std::string forEyes(
    const Context& context, const RunTable& table, const std::vector<Column>& columns, bool wereChosen,
    const std::optional<std::string>& sortedBy)
{
    std::vector<TextTable::Column> headings;
    for (const Column column : columns) {
        const bool isText = std::ranges::any_of(table.rows(), [&](const RunTable::Row& row) {
            return std::holds_alternative<std::string>(table.cell(row, column));
        });
        const bool isOwn = column <= table.column("commit");
        const auto isDate = [&](Column each) { return each == table.column("began") || each == table.column("ended"); };
        headings.push_back({
            .heading = table.names()[column],
            .toTheRight = !isText,
            .mayBeCut = table.names()[column] == "node" || table.names()[column] == "title" || (!isOwn && isText),
            .lessAskedFor = wereChosen                                     ? 0U
                            : table.isDifference(column) || isDate(column) ? 2U
                            : isOwn                                        ? 0U
                                                                           : 1U,
            .stays = table.names()[column] == "run" || table.names()[column] == sortedBy,
        });
    }
    TextTable shown(std::move(headings));
    for (const RunTable::Row& row : table.rows()) {
        std::vector<TextTable::Cell> cells;
        for (const Column column : columns)
            cells.push_back(forEyes(table, row, column));
        shown.add(std::move(cells));
    }
    std::vector<std::string> leftOut;
    std::string text = shown.text(context.out(), &leftOut);
    if (!leftOut.empty())
        context.note(fmt::format(
            "The terminal is too narrow for {}: {}. Choose with --columns, or write all with --csv.",
            counted(static_cast<std::int64_t>(leftOut.size()), "column", "columns"),
            text::oneLine(text::joined(leftOut, ", "))));
    return text;
}

JSONValue json(const RunTable& table)
{
    JSONValue::Array rows;
    for (const RunTable::Row& row : table.rows()) {
        JSONValue document = TreeJSON::of(*row.run, *row.node);
        document.object()->emplace(
            "differences",
            TreeJSON::differences(
                table.valuesOf(*row.run), table.valuesOf(row.node->parent), table.valuesOf(row.node->baseline)));
        rows.push_back(std::move(document));
    }
    return rows;
}

void list(Context& context, const Arguments& arguments)
{
    if (context.json() && arguments.has("--csv"))
        throw UsageError("--csv and --json are two forms of the same. Choose one.");
    const std::optional<std::int64_t> last = arguments.integer("--last", 1);
    const ExperimentTree tree = context.lab().tree();
    RunTable table(tree);
    const bool isEmpty = table.rows().empty();
    if (isEmpty && !context.json() && !arguments.has("--csv"))
        return context.note("No run yet. Start one: veltry run NODE.");
    for (const std::string& condition : arguments.all("--where"))
        table.keepWhere(condition);
    if (last)
        table.keepLast(static_cast<std::size_t>(*last));
    if (const std::optional<std::string> key = arguments.text("--sort"))
        table.sort(table.column(*key), arguments.has("--reverse"));
    else if (arguments.has("--reverse"))
        table.sort(table.column("run"), true);
    if (context.json())
        return context.printJSON(json(table));
    std::vector<Column> columns = wantedColumns(table, arguments);
    if (arguments.has("--csv"))
        return context.print(csv(table, columns, context.out().isTerminal()));
    if (table.rows().empty())
        return context.note("No run meets the conditions.");
    const std::optional<std::string> sortedBy = arguments.text("--sort");
    const bool wereChosen = arguments.has("--columns");
    std::string hidden;
    if (!wereChosen && !arguments.has("--all-columns"))
        hidden = hideConstant(table, columns, sortedBy);
    writePaged(
        context.out(), forEyes(context, table, columns, wereChosen, sortedBy), arguments.has(noPagerOption.names));
    if (!hidden.empty())
        context.note(hidden);
}

constexpr std::array options = {
    Option{"--sort", "KEY", "Order the runs by this column"},
    Option{"--reverse", "", "The greatest, or the last, first"},
    Option{
        "--where", "CONDITION",
        "Only the runs for which it holds: \"val_loss < 0.5\", with = != < <= > >= or ~; given again, all hold",
        Option::Count::many},
    Option{"-n,--last", "N", "Only the last N runs of those"},
    Option{"--columns", "KEY,KEY", "These columns, in this order", Option::Count::many},
    Option{"--all-columns", "", "Also those in which all of the runs have the same"},
    noPagerOption,
    Option{"--csv", "", "Write comma-separated values with all digits and, unless --columns chooses, all columns"},
};

constexpr std::array table = {
    Command{
        .name = "list",
        .summary = "List every run with its result and the differences to the parent and to the baseline",
        .example =
            "veltry list --where \"status = succeeded\" --sort val_loss --columns run,node,val_loss,val_loss:parent",
        .hasJSON = true,
        .options = options,
        .run = &list},
};

} // namespace

Family listCommands()
{
    return table;
}

} // namespace veltry::Commands
