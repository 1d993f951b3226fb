#include "Host/Views/RunTable.h"

#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Host/CommandLine/Nearest.h"
#include "Host/Refusal.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <compare>
#include <functional>
#include <span>
#include <unordered_map>
#include <unordered_set>

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
    // No result holds "inf" or "nan" but as a text.
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(number))
        return std::nullopt;
    return number;
}

/// What may follow a number, in the column's own unit.
struct Unit {
    std::string_view name;
    double size;
};

constexpr std::array timeUnits = {
    Unit{"ms", 0.001},   Unit{"s", 1},       Unit{"sec", 1},      Unit{"second", 1},   Unit{"seconds", 1},
    Unit{"min", 60},     Unit{"minute", 60}, Unit{"minutes", 60}, Unit{"h", 3600},     Unit{"hour", 3600},
    Unit{"hours", 3600}, Unit{"d", 86400},   Unit{"day", 86400},  Unit{"days", 86400},
};
constexpr std::array sizeUnits = {
    Unit{"b", 1},         Unit{"kb", 1e3},         Unit{"mb", 1e6},
    Unit{"gb", 1e9},      Unit{"tb", 1e12},        Unit{"kib", 1024},
    Unit{"mib", 1048576}, Unit{"gib", 1073741824}, Unit{"tib", 1099511627776},
};

/// Those in which the column's name says that it counts: "seconds", "train_seconds", "eval.bytes:parent".
std::span<const Unit> unitsOf(std::string_view column)
{
    column = column.substr(0, column.find(':'));
    const std::string_view last = column.substr(column.find_last_of("._") + 1);
    if (last == "seconds")
        return timeUnits;
    return last == "bytes" ? std::span<const Unit>(sizeUnits) : std::span<const Unit>();
}

/// "0.5", or with units "5 min", "2h 5min".
std::optional<double> measured(std::string_view text, std::span<const Unit> units)
{
    if (const std::optional<double> number = parsedNumber(text); number || units.empty())
        return number;
    double sum = 0;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_not_of("0123456789.+-"), text.size());
        const std::optional<double> number = parsedNumber(text.substr(0, end));
        text = text::trimmed(text.substr(end));
        const std::size_t nameEnd = std::min(text.find_first_of(" 0123456789.+-"), text.size());
        const auto unit = std::ranges::find(units, text::lowercased(text.substr(0, nameEnd)), &Unit::name);
        if (!number || unit == units.end())
            return std::nullopt;
        sum += *number * unit->size;
        text = text::trimmed(text.substr(nameEnd));
    }
    return sum;
}

/// What to write in place of a value that is no number, at the end of a sentence.
std::string numberMeant(std::string_view value, std::string_view column)
{
    if (!unitsOf(column).empty())
        return unitsOf(column).data() == timeUnits.data() ? " Write seconds, or with a unit: 90, 5 min, 2 h."
                                                          : " Write bytes, or with a unit: 5000, 3.4 MB, 2 GiB.";
    if (const std::string point = text::replacingAll(value, ",", "."); point != value && parsedNumber(point))
        return fmt::format(" Decimals stand after a point: {}.", point);
    if (value.ends_with('%'))
        if (const auto number = parsedNumber(text::trimmed(value.substr(0, value.size() - 1))))
            return fmt::format(
                " A column has no unit: write {}, or {} if it holds shares of 1.", exactNumber(*number),
                shownNumber(*number / 100));
    const std::size_t end = value.find_first_not_of("0123456789.+-");
    if (end != 0 && end != std::string_view::npos && parsedNumber(value.substr(0, end)))
        return fmt::format(" {} has no unit: write the number alone.", column);
    return "";
}

/// "KEY OP VALUE".
struct Condition {
    struct Operator {
        std::string_view text;
        bool (*holds)(std::partial_ordering order);
    };

    static constexpr std::array operators = {
        Operator{"!=", [](std::partial_ordering order) { return order != std::partial_ordering::equivalent; }},
        Operator{"<=", [](std::partial_ordering order) { return std::is_lteq(order); }},
        Operator{">=", [](std::partial_ordering order) { return std::is_gteq(order); }},
        Operator{"<", [](std::partial_ordering order) { return std::is_lt(order); }},
        Operator{">", [](std::partial_ordering order) { return std::is_gt(order); }},
        Operator{"=", [](std::partial_ordering order) { return std::is_eq(order); }},
        Operator{"~", nullptr},
    };
    static constexpr std::string_view signs = "!<>=~";

    explicit Condition(std::string_view text)
    {
        const std::size_t place = std::min(text.find_first_of(signs), text.size());
        const std::size_t end = std::min(text.find_first_not_of(signs, place), text.size());
        const std::string_view sign = text.substr(place, end - place);
        key = text::trimmed(text.substr(0, place));
        value = text::trimmed(text.substr(end));
        comparison = std::ranges::find(operators, sign, &Operator::text);
        if (sign.empty() || key.empty())
            throw UsageError(fmt::format(
                "\"{}\" is no condition. Write a column, one of = != < <= > >= ~, and a value: \"val_loss < 0.5\".",
                text));
        if (comparison == operators.end())
            throw UsageError(fmt::format("\"{}\" is no comparison in \"{}\".{}", sign, text, signMeant(sign)));
        if (value.empty())
            throw UsageError(fmt::format("\"{}\" has no value after {}.", text, sign));
    }

    static std::string signMeant(std::string_view sign)
    {
        constexpr std::array<std::array<std::string_view, 2>, 6> meant = {
            {{"=>", ">="}, {"=<", "<="}, {"==", "="}, {"<>", "!="}, {"=!", "!="}, {"=~", "~"}}};
        for (const auto& [wrong, right] : meant)
            if (sign == wrong)
                return fmt::format(" Did you mean {}?", right);
        return " There are = != < <= > >= and ~.";
    }

    [[nodiscard]] bool isOrder() const { return comparison->text.find_first_of("<>") != std::string_view::npos; }

    [[nodiscard]] bool holds(const Cell& cell) const
    {
        if (std::holds_alternative<std::monostate>(cell))
            return false;
        if (!comparison->holds)
            return text::lowercased(exactText(cell)).contains(text::lowercased(value));
        if (const double* own = std::get_if<double>(&cell); own && number)
            return comparison->holds(*own <=> *number);
        // A text is neither more nor less than a number.
        if (number || std::holds_alternative<double>(cell))
            return comparison->holds(
                exactText(cell) == value ? std::partial_ordering::equivalent : std::partial_ordering::unordered);
        return comparison->holds(exactText(cell) <=> value);
    }

    std::string key;
    const Operator* comparison;
    std::string value;
    std::optional<double> number; ///< where the column has numbers and this is one
};

/// Whether another condition on a column of `names` follows in the value: "0.5 and run > 3".
bool holdsAnother(std::string_view value, const std::vector<std::string>& names)
{
    const auto follows = [&](std::string_view rest) {
        const std::size_t sign = rest.find_first_of(Condition::signs);
        return sign != std::string_view::npos &&
               std::ranges::find(names, text::trimmed(rest.substr(0, sign))) != names.end();
    };
    for (const std::string_view between : {" and ", " or ", "&", "|", ",", ";", " "})
        for (std::size_t at = value.find(between); at != std::string_view::npos; at = value.find(between, at + 1))
            if (follows(value.substr(at + between.size())))
                return true;
    return false;
}

/// "2026", "2026-03-01", "2026-03-01T14:05": where a date in ISO 8601 can begin.
bool beginsDate(std::string_view text)
{
    return text.size() >= 4 && text.substr(0, 4).find_first_not_of("0123456789") == std::string_view::npos &&
           text.find_first_not_of("0123456789-:.TZ ") == std::string_view::npos;
}

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
    std::unordered_set<std::string> taken(names_.begin(), names_.end());
    for (const auto& [key, isNumber] : hasNumbers)
        if (isNumber) {
            taken.insert(std::string(key) + ":parent");
            taken.insert(std::string(key) + ":baseline");
        }
    for (const std::string_view key : keys) {
        std::string name(key);
        while (taken.contains(name))
            name.insert(0, "result.");
        taken.insert(name);
        define(name, {.kind = Kind::value, .own = 0, .key = std::string(key)});
        if (!hasNumbers.at(key))
            continue;
        define(name + ":parent", {.kind = Kind::toParent, .own = 0, .key = std::string(key)});
        define(name + ":baseline", {.kind = Kind::toBaseline, .own = 0, .key = std::string(key)});
    }
    for (Column column = 0; column < names_.size(); ++column) {
        bool hasTexts = false;
        bool isNumber = names_[column] == "seconds" || names_[column] == "exit" || isDifference(column);
        for (const Row& row : rows_) {
            const Cell each = cell(row, column);
            isNumber |= std::holds_alternative<double>(each);
            hasTexts |= std::holds_alternative<std::string>(each);
        }
        numbers_.push_back(!isNumber ? Numbers::none : hasTexts ? Numbers::some : Numbers::only);
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
    Condition wanted(condition);
    if (holdsAnother(wanted.value, names_))
        throw UsageError(fmt::format("\"{}\" holds two conditions. Give each its own --where.", condition));
    if (parsedNumber(wanted.key) && std::ranges::find(names_, wanted.key) == names_.end())
        throw UsageError(fmt::format(
            "\"{}\" begins with a number. Write the column first: \"val_loss < 0.5\"; two conditions are two --where.",
            condition));
    const Column asked = column(wanted.key);
    if (const Numbers kind = numbers_.at(asked); kind != Numbers::none && wanted.comparison->holds) {
        wanted.number = measured(wanted.value, unitsOf(wanted.key));
        // Where texts stand among the numbers, "= diverged" asks for one of them.
        if (!wanted.number && (kind == Numbers::only || wanted.isOrder()))
            throw UsageError(fmt::format(
                "\"{}\" in \"{}\" is no number.{}", wanted.value, condition, numberMeant(wanted.value, wanted.key)));
    }
    const bool isDate = definitions_.at(asked).kind == Kind::own && (wanted.key == "began" || wanted.key == "ended");
    if (isDate && wanted.isOrder()) {
        if (!beginsDate(wanted.value))
            throw UsageError(fmt::format(
                "\"{}\" in \"{}\" is no date. Write 2026-03-01 or 2026-03-01T14:05, in UTC.", wanted.value, condition));
        std::ranges::replace(wanted.value, ' ', 'T');
    }
    std::erase_if(rows_, [&](const Row& row) { return !wanted.holds(cell(row, asked)); });
}

void RunTable::keepLast(std::size_t count)
{
    if (rows_.size() > count)
        rows_.erase(rows_.begin(), rows_.end() - static_cast<std::ptrdiff_t>(count));
}

bool RunTable::isConstant(Column column) const
{
    return std::ranges::all_of(rows_, [&](const Row& row) { return cell(row, column) == cell(rows_.front(), column); });
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
