#include "Experiments/Telemetry/TelemetryLayout.h"

#include "Base/Text.h"
#include "Config/TOML.h"
#include "Experiments/Telemetry/TelemetryPath.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <initializer_list>
#include <ranges>

namespace veltry {

namespace {

using Layout = TelemetryLayout;
using Names = std::initializer_list<std::string_view>;

const TOML* member(const TOML::Table& table, std::string_view key)
{
    const auto found = table.find(key);
    return found == table.end() ? nullptr : &found->second;
}

void checkKeys(const TOML::Table& table, std::string_view label, Names known)
{
    for (const auto& [key, value] : table) // sorted, so that the order in the file doesn't matter
        if (std::ranges::find(known, key) == known.end())
            throw Layout::Invalid(
                fmt::format("{} has \"{}\", which is not one of {}", label, key, fmt::join(known, ", ")));
}

std::string readKey(const TOML& value, std::string_view label)
{
    const std::string* key = value.string();
    if (!key)
        throw Layout::Invalid(fmt::format("{} must be a key, like \"loss\"", label));
    if (!isTelemetryPath(*key))
        throw Layout::Invalid(
            fmt::format("{}: \"{}\" is not a key; use dots between names, like eval.loss", label, *key));
    return *key;
}

std::optional<std::string> readOptionalKey(const TOML* value, std::string_view label)
{
    return value ? std::optional(readKey(*value, label)) : std::nullopt;
}

std::string readRequiredKey(const TOML* value, std::string_view label)
{
    if (!value)
        throw Layout::Invalid(fmt::format("{} is required", label));
    return readKey(*value, label);
}

/// The keys of a panel, each once.
std::vector<std::string> readKeys(const TOML* value, std::string_view label)
{
    if (!value)
        throw Layout::Invalid(fmt::format("{} needs y, the key or keys to draw", label));
    if (!value->string() && !value->array())
        throw Layout::Invalid(fmt::format("{}: y must be a key or a list of keys", label));
    const TOML::Array elements = value->array() ? *value->array() : TOML::Array{*value};
    if (elements.empty())
        throw Layout::Invalid(fmt::format("{}: y names no keys", label));
    if (elements.size() > Layout::maximumKeysOfPanel)
        throw Layout::Invalid(fmt::format(
            "{}: y has {} keys; a panel draws at most {}", label, elements.size(), Layout::maximumKeysOfPanel));
    std::vector<std::string> keys;
    for (const TOML& element : elements)
        if (std::string key = readKey(element, fmt::format("{}: y", label)); std::ranges::find(keys, key) == keys.end())
            keys.push_back(std::move(key));
    return keys;
}

std::string readTitle(const TOML* value, std::string_view label, std::string standard)
{
    if (!value)
        return standard;
    if (!value->string())
        throw Layout::Invalid(fmt::format("{}: title must be a string", label));
    return std::string(text::firstCharacters(*value->string(), Layout::titleCharacters));
}

/// The value that a word stands for; the first one where there is no word.
template <typename Choice>
Choice readChoice(const TOML::Table& table, std::string_view key, std::string_view label)
{
    const TOML* value = member(table, key);
    if (!value)
        return wordsOf<Choice>.front().value;
    const std::optional<Choice> choice = value->string() ? fromWord<Choice>(*value->string()) : std::nullopt;
    if (!choice)
        throw Layout::Invalid(fmt::format(
            "{}: {} must be one of {}", label, key,
            fmt::join(wordsOf<Choice> | std::views::transform(&Word<Choice>::word), ", ")));
    return *choice;
}

std::optional<double> readNumber(const TOML::Table& table, std::string_view key, std::string_view label)
{
    const TOML* value = member(table, key);
    if (!value)
        return std::nullopt;
    if (!value->number())
        throw Layout::Invalid(fmt::format("{}: {} must be a number", label, key));
    return *value->number();
}

bool readWide(const TOML* value, std::string_view label)
{
    if (!value)
        return false;
    if (!value->boolean())
        throw Layout::Invalid(fmt::format("{}: wide must be true or false", label));
    return *value->boolean();
}

// The order of the statements decides which of several mistakes is told.
Layout::Panel readPanel(const TOML::Table& table, std::string_view label)
{
    checkKeys(table, label, {"title", "x", "y", "scale", "min", "max", "rule", "wide"});
    Layout::Panel panel;
    panel.y = readKeys(member(table, "y"), label);
    panel.x = readOptionalKey(member(table, "x"), fmt::format("{}: x", label));
    panel.title = readTitle(member(table, "title"), label, text::joined(panel.y, ", "));
    panel.scale = readChoice<Layout::Scale>(table, "scale", label);
    panel.min = readNumber(table, "min", label);
    panel.max = readNumber(table, "max", label);
    panel.rule = readNumber(table, "rule", label);
    panel.wide = readWide(member(table, "wide"), label);
    if (panel.min && panel.max && *panel.min >= *panel.max)
        throw Layout::Invalid(fmt::format("{}: min must be below max", label));
    // A logarithmic axis has no place for zero.
    if (panel.scale == Layout::Scale::log && panel.min && *panel.min <= 0)
        throw Layout::Invalid(fmt::format("{}: min must be above zero on a log scale", label));
    return panel;
}

Layout::Stat readStat(const TOML::Table& table, std::string_view label)
{
    checkKeys(table, label, {"title", "y", "reduce"});
    Layout::Stat stat;
    stat.y = readRequiredKey(member(table, "y"), fmt::format("{}: y", label));
    stat.title = readTitle(member(table, "title"), label, stat.y);
    stat.reduce = readChoice<Layout::Reduce>(table, "reduce", label);
    return stat;
}

template <typename Row>
std::vector<Row> readList(
    const TOML::Table& root, std::string_view name, std::size_t maximum,
    Row (*readRow)(const TOML::Table& table, std::string_view label))
{
    const TOML* value = member(root, name);
    if (!value)
        return {};
    const TOML::Tables* tables = value->tables();
    if (!tables)
        throw Layout::Invalid(fmt::format("has {0} as a value; write each one as a [[{0}]] table", name));
    if (tables->size() > maximum)
        throw Layout::Invalid(fmt::format("has {} [[{}]] tables; the maximum is {}", tables->size(), name, maximum));
    std::vector<Row> rows;
    for (const TOML::Table& table : *tables)
        rows.push_back(readRow(table, fmt::format("[[{}]] {}", name, rows.size() + 1)));
    return rows;
}

TOML::Table readRoot(std::string_view text)
{
    try {
        return TOML::parse(text);
    } catch (const TOML::Failure& failure) {
        throw Layout::Invalid("is not TOML: " + failure.message);
    }
}

} // namespace

std::optional<TelemetryLayout> TelemetryLayout::read(const std::filesystem::path& folder)
{
    const std::optional<std::string> contents = Files::readStart(folder / fileName, maximumBytes + 1);
    if (!contents)
        return std::nullopt;                 // most projects have none
    return parse(text::repaired(*contents)); // repairing never makes a text shorter
}

TelemetryLayout TelemetryLayout::parse(std::string_view text)
{
    if (text.size() > maximumBytes)
        throw Invalid("must be under 16 KiB");
    const TOML::Table root = readRoot(text);
    checkKeys(root, "the file", {"x", "panel", "stat"});
    TelemetryLayout layout;
    layout.x = readOptionalKey(member(root, "x"), "x");
    layout.panels = readList(root, "panel", maximumPanels, readPanel);
    layout.stats = readList(root, "stat", maximumStats, readStat);
    return layout;
}

TelemetryLayout TelemetryLayout::standard(std::span<const std::string> keys)
{
    constexpr std::string_view step = "step";
    TelemetryLayout layout;
    for (const std::string& key : keys) {
        if (key == step)
            layout.x = key;
        else if (layout.panels.size() < maximumPanels)
            layout.panels.push_back({.title = key, .x = {}, .y = {key}, .min = {}, .max = {}, .rule = {}});
    }
    return layout;
}

} // namespace veltry
