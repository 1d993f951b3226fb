#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
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

std::string csv(const RunTable& table, const std::vector<Column>& columns)
{
    std::string text;
    const auto addLine = [&](const auto& fieldOf) {
        for (std::size_t place = 0; place < columns.size(); ++place)
            text.append(place == 0 ? "" : ",").append(csvField(fieldOf(columns[place])));
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

std::string forEyes(const Context& context, const RunTable& table, const std::vector<Column>& columns, bool wereChosen)
{
    std::vector<TextTable::Column> headings;
    for (const Column column : columns) {
        const bool isText = std::ranges::any_of(table.rows(), [&](const RunTable::Row& row) {
            return std::holds_alternative<std::string>(table.cell(row, column));
        });
        const bool isOwn = column <= table.column("commit");
        headings.push_back({
            .heading = table.names()[column],
            .toTheRight = !isText,
            .mayBeCut = table.names()[column] == "node" || table.names()[column] == "title" || (!isOwn && isText),
            .mayBeLeftOut = !isOwn && !wereChosen,
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
            "The terminal is too narrow for {}. Choose with --columns, or write all with --csv.",
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
    const ExperimentTree tree = context.lab().tree();
    RunTable table(tree);
    const bool isEmpty = table.rows().empty();
    if (isEmpty && !context.json() && !arguments.has("--csv"))
        return context.note("No run yet. Start one: veltry run NODE.");
    for (const std::string& condition : arguments.all("--where"))
        table.keepWhere(condition);
    if (const std::optional<std::string> key = arguments.text("--sort"))
        table.sort(table.column(*key), arguments.has("--reverse"));
    else if (arguments.has("--reverse"))
        table.sort(table.column("run"), true);
    if (context.json())
        return context.printJSON(json(table));
    const std::vector<Column> columns = wantedColumns(table, arguments);
    if (arguments.has("--csv"))
        return context.print(csv(table, columns));
    if (table.rows().empty())
        return context.note("No run meets the conditions.");
    context.print(forEyes(context, table, columns, arguments.has("--columns")));
}

constexpr std::array options = {
    Option{"--sort", "KEY", "Order the runs by this column"},
    Option{"--reverse", "", "The greatest, or the last, first"},
    Option{
        "--where", "CONDITION", "Only the runs for which it holds: \"val_loss < 0.5\", with = != < <= > >= or ~",
        Option::Count::many},
    Option{"--columns", "KEY,KEY", "These columns, in this order", Option::Count::many},
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
