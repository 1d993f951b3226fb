#include "Host/Views/RunTable.h"

#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Host/CommandLine/Nearest.h"
#include "Host/Refusal.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <compare>
#include <functional>
#include <unordered_map>

namespace veltry {

namespace {

using Cell = RunTable::Cell;
using Row = RunTable::Row;

Cell seconds(const Row& row)
{
    if (!row.run->endedAt)
        return std::monostate();
    return row.run->endedAt->secondsSince2001 - row.run->createdAt.secondsSince2001;
}

struct OwnColumn {
    std::string_view name;
    Cell (*cell)(const Row& row);
};

constexpr std::array ownColumns = {
    OwnColumn{"run", [](const Row& row) { return Cell(static_cast<double>(row.run->number)); }},
    OwnColumn{"node", [](const Row& row) { return Cell(row.node->record.slug); }},
    OwnColumn{"title", [](const Row& row) { return Cell(row.node->record.title); }},
    OwnColumn{"status", [](const Row& row) { return Cell(std::string(toWord(row.run->status))); }},
    OwnColumn{"exit", [](const Row& row) { return row.run->exitCode ? Cell(double(*row.run->exitCode)) : Cell(); }},
    OwnColumn{"began", [](const Row& row) { return Cell(row.run->createdAt.iso8601()); }},
    OwnColumn{"ended", [](const Row& row) { return row.run->endedAt ? Cell(row.run->endedAt->iso8601()) : Cell(); }},
    OwnColumn{"seconds", &seconds},
    OwnColumn{"commit", [](const Row& row) { return Cell(row.run->commit); }},
};

std::optional<double> parsedNumber(std::string_view text)
{
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

/// "KEY OP VALUE".
struct Condition {
    struct Operator {
        std::string_view text;
        bool (*holds)(std::partial_ordering order);
    };

    // A longer one before its own beginning.
    static constexpr std::array operators = {
        Operator{"!=", [](std::partial_ordering order) { return order != std::partial_ordering::equivalent; }},
        Operator{"<=", [](std::partial_ordering order) { return std::is_lteq(order); }},
        Operator{">=", [](std::partial_ordering order) { return std::is_gteq(order); }},
        Operator{"<", [](std::partial_ordering order) { return std::is_lt(order); }},
        Operator{">", [](std::partial_ordering order) { return std::is_gt(order); }},
        Operator{"=", [](std::partial_ordering order) { return std::is_eq(order); }},
        Operator{"~", nullptr},
    };

    explicit Condition(std::string_view text)
    {
        const std::size_t place = text.find_first_of("!<>=~");
        const auto found = std::ranges::find_if(operators, [&](const Operator& candidate) {
            return place != std::string_view::npos && text.substr(place).starts_with(candidate.text);
        });
        if (found == operators.end() || text::isBlank(text.substr(0, place)))
            throw UsageError(fmt::format(
                "\"{}\" is no condition. Write a column, one of = != < <= > >= ~, and a value: \"val_loss < 0.5\".",
                text));
        key = text::trimmed(text.substr(0, place));
        comparison = &*found;
        value = text::trimmed(text.substr(place + found->text.size()));
        number = parsedNumber(value);
    }

    [[nodiscard]] bool holds(const Cell& cell) const
    {
        if (std::holds_alternative<std::monostate>(cell))
            return false;
        if (!comparison->holds)
            return text::lowercased(exactText(cell)).contains(text::lowercased(value));
        if (const double* own = std::get_if<double>(&cell); own && number)
            return comparison->holds(*own <=> *number);
        return comparison->holds(exactText(cell) <=> value);
    }

    std::string key;
    const Operator* comparison;
    std::string value;
    std::optional<double> number;
};

} // namespace

RunTable::RunTable(const ExperimentTree& tree) : tree_(&tree)
{
    for (const Run& run : tree.runs()) {
        values_.push_back(resultValues(run));
        if (const ExperimentTree::Node* node = tree.find(run.experimentID))
            rows_.push_back({.run = &run, .node = node});
    }

    for (std::size_t own = 0; own < ownColumns.size(); ++own)
        define(std::string(ownColumns.at(own).name), {.kind = Kind::own, .own = own, .key = ""});
    std::vector<std::string_view> keys;
    std::unordered_map<std::string_view, bool> hasNumbers;
    for (const Row& row : rows_)
        for (const ResultValue& value : valuesOf(*row.run)) {
            const auto [place, isNew] = hasNumbers.emplace(value.key, false);
            if (isNew)
                keys.push_back(value.key);
            place->second |= value.number() != nullptr;
        }
    for (const std::string_view key : keys) {
        const bool isTaken = std::ranges::find(ownColumns, key, &OwnColumn::name) != ownColumns.end();
        const std::string name = isTaken ? fmt::format("result.{}", key) : std::string(key);
        define(name, {.kind = Kind::value, .own = 0, .key = std::string(key)});
        if (!hasNumbers.at(key))
            continue;
        define(name + ":parent", {.kind = Kind::toParent, .own = 0, .key = std::string(key)});
        define(name + ":baseline", {.kind = Kind::toBaseline, .own = 0, .key = std::string(key)});
    }
}

void RunTable::define(std::string name, Definition definition)
{
    names_.push_back(std::move(name));
    definitions_.push_back(std::move(definition));
}

RunTable::Column RunTable::column(std::string_view name) const
{
    const auto found = std::ranges::find(names_, name);
    if (found == names_.end())
        throw UsageError(fmt::format(
            "There is no column {}.{} veltry list --csv shows all of them in its first line.", name,
            didYouMean(name, names_)));
    return static_cast<Column>(found - names_.begin());
}

bool RunTable::isDifference(Column column) const
{
    const Kind kind = definitions_.at(column).kind;
    return kind == Kind::toParent || kind == Kind::toBaseline;
}

RunTable::Cell RunTable::cell(const Row& row, Column column) const
{
    const Definition& definition = definitions_.at(column);
    if (definition.kind == Kind::own)
        return ownColumns.at(definition.own).cell(row);
    const ResultValue* value = find(valuesOf(*row.run), definition.key);
    if (!value)
        return std::monostate();
    if (definition.kind == Kind::value)
        return value->number() ? Cell(*value->number()) : Cell(value->text());
    const ExperimentTree::Node* reference = definition.kind == Kind::toParent ? row.node->parent : row.node->baseline;
    const std::optional<double> above = difference(*value, valuesOf(reference));
    return above ? Cell(*above) : Cell();
}

const ResultValues& RunTable::valuesOf(const Run& run) const
{
    return values_[static_cast<std::size_t>(&run - tree_->runs().data())];
}

const ResultValues& RunTable::valuesOf(const ExperimentTree::Node* node) const
{
    static const ResultValues none;
    return node && node->answer ? valuesOf(*node->answer) : none;
}

void RunTable::keepWhere(std::string_view condition)
{
    const Condition wanted(condition);
    const Column asked = column(wanted.key);
    std::erase_if(rows_, [&](const Row& row) { return !wanted.holds(cell(row, asked)); });
}

void RunTable::sort(Column column, bool descending)
{
    struct Entry {
        bool isMissing;
        Cell key;
        std::size_t place; // among equal ones the order stays
        Row row;
    };
    std::vector<Entry> entries;
    for (const Row& row : rows_) {
        Cell key = cell(row, column);
        const bool isMissing = std::holds_alternative<std::monostate>(key);
        entries.push_back({isMissing, std::move(key), entries.size(), row});
    }
    std::ranges::sort(entries, [&](const Entry& left, const Entry& right) {
        if (left.isMissing || right.isMissing)
            return std::pair(left.isMissing, left.place) < std::pair(right.isMissing, right.place);
        const bool isEqual = !(left.key < right.key) && !(right.key < left.key);
        if (isEqual)
            return left.place < right.place;
        return descending ? right.key < left.key : left.key < right.key;
    });
    for (std::size_t place = 0; place < rows_.size(); ++place)
        rows_[place] = entries[place].row;
}

std::string exactText(const RunTable::Cell& cell)
{
    if (const double* number = std::get_if<double>(&cell))
        return exactNumber(*number);
    const std::string* text = std::get_if<std::string>(&cell);
    return text ? *text : "";
}

} // namespace veltry
