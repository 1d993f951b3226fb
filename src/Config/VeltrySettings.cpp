#include "Config/VeltrySettings.h"

#include "Base/Text.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Platform/StandardFolders.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>

namespace veltry {

namespace {

using Key = VeltrySettings::Key;
using Value = VeltrySettings::Value;

constexpr double runsLimit = 10000; ///< `max_runs` must stay below it

constexpr std::string_view fileHeader =
    "# Harrowick Veltry's settings. Veltry reads this file whenever it changes, and\n"
    "# writes the line for a setting you change in the app. Your comments stay.\n";

/// Why a value is passed over.
struct Problem {
    /// What the value must be, to be read after the key: "must be true or false".
    std::string rule;
    /// A text that stands there and isn't one of those that may.
    std::optional<std::string> found{};

    [[nodiscard]] std::string text() const { return found ? fmt::format("{}; it is \"{}\"", rule, *found) : rule; }
};

using Checked = std::optional<Problem>;

/// A setting, its place and its explanation in the file.
struct Field {
    Key key;
    std::string_view comment;
    Checked (*read)(VeltrySettings& settings, const TOML& value);
    Value (*value)(const VeltrySettings& settings);
};

template <auto member>
constexpr Field booleanField(Key key, std::string_view comment)
{
    return {
        key, comment,
        [](VeltrySettings& settings, const TOML& value) -> Checked {
            if (!value.boolean())
                return Problem{"must be true or false"};
            settings.*member = *value.boolean();
            return std::nullopt;
        },
        [](const VeltrySettings& settings) -> Value { return settings.*member; }};
}

template <auto member>
constexpr Field nameField(Key key, std::string_view comment)
{
    return {
        key, comment,
        [](VeltrySettings& settings, const TOML& value) -> Checked {
            if (!value.string() || value.string()->empty())
                return Problem{"must be a name in quotes"};
            settings.*member = *value.string();
            return std::nullopt;
        },
        [](const VeltrySettings& settings) -> Value { return settings.*member; }};
}

template <auto member>
constexpr Field countField(Key key, std::string_view comment)
{
    return {
        key, comment,
        [](VeltrySettings& settings, const TOML& value) -> Checked {
            const double* number = value.number();
            if (!number || *number != std::trunc(*number) || *number < 0 || *number >= runsLimit)
                return Problem{"must be a whole number, 0 or more"};
            settings.*member = static_cast<std::int64_t>(*number);
            return std::nullopt;
        },
        [](const VeltrySettings& settings) -> Value { return settings.*member; }};
}

/// `"a", "b" or "c"`.
template <typename Enumeration>
std::string listedWords()
{
    std::string list;
    for (const auto& row : wordsOf<Enumeration>) {
        const bool isLast = &row == &wordsOf<Enumeration>.back();
        if (!list.empty())
            list += isLast ? " or " : ", ";
        list += fmt::format("\"{}\"", row.word);
    }
    return list;
}

template <auto member>
constexpr Field choiceField(Key key, std::string_view comment)
{
    using Choice = std::remove_cvref_t<decltype(std::declval<VeltrySettings>().*member)>;
    return {
        key, comment,
        [](VeltrySettings& settings, const TOML& value) -> Checked {
            if (!value.string())
                return Problem{"must be " + listedWords<Choice>()};
            const std::optional<Choice> choice = fromWord<Choice>(*value.string());
            if (!choice)
                return Problem{.rule = "must be " + listedWords<Choice>(), .found = *value.string()};
            settings.*member = *choice;
            return std::nullopt;
        },
        [](const VeltrySettings& settings) -> Value { return std::string(toWord(settings.*member)); }};
}

using Settings = VeltrySettings;

/// In the order of the file.
constexpr Field fields[] = {
    choiceField<&Settings::send>(
        Key::send, "The keys that send a prompt: \"enter\" (⇧↩ adds a new line) or \"command-enter\"."),
    booleanField<&Settings::notifyTurns>(
        Key::notifyTurns, "A notification when an agent finishes a turn while Veltry is in the background."),
    booleanField<&Settings::notifyRuns>(Key::notifyRuns, "A notification when a run finishes or fails."),
    nameField<&Settings::sound>(
        Key::sound, "Played when an agent finishes a turn: a system sound's name, one Veltry ships, or \"none\"."),
    booleanField<&Settings::stayAwake>(
        Key::stayAwake, "Keep the Mac awake while a turn or a run is going. Off below 10% battery."),
    choiceField<&Settings::theme>(Key::theme, "\"system\", \"light\" or \"dark\"."),
    choiceField<&Settings::transcriptSize>(
        Key::transcriptSize, "Text in a conversation: \"small\", \"default\" or \"large\"."),
    nameField<&Settings::codeFont>(
        Key::codeFont, "The font for code, logs and diffs: a monospaced family's name, or \"system\"."),
    nameField<&Settings::defaultAgent>(Key::defaultAgent, "The agent a new conversation is had with."),
    booleanField<&Settings::startInAuto>(
        Key::startInAuto, "Start each session in the agent's Auto mode, where it offers one."),
    booleanField<&Settings::passAPIKeys>(
        Key::passAPIKeys, "Give agents the *_API_KEY variables from your login shell."),
    countField<&Settings::maxRuns>(
        Key::maxRuns, "How many runs may go at once on this Mac, across every project. 0 is no limit."),
    choiceField<&Settings::tree>(
        Key::tree,
        "How the experiment tree is drawn: \"graph\", the line that went furthest straight down, or \"indented\", a "
        "step right for every generation."),
    booleanField<&Settings::logAgentTraffic>(
        Key::logAgentTraffic, "Write every message to and from an agent to the system log."),
};

std::string written(const Value& value)
{
    if (const bool* flag = std::get_if<bool>(&value))
        return *flag ? "true" : "false";
    if (const std::int64_t* number = std::get_if<std::int64_t>(&value))
        return fmt::format("{}", *number);
    // Backslashes first, or those of the quotes would be doubled.
    const std::string escaped = text::replacingAll(std::get<std::string>(value), "\\", "\\\\");
    return '"' + text::replacingAll(escaped, "\"", "\\\"") + '"';
}

std::string assignment(Key key, const Value& value)
{
    return fmt::format("{} = {}", key.name, written(value));
}

void readTable(const std::string& name, const TOML::Table& members, VeltrySettings::Reading& reading)
{
    for (const auto& [key, value] : members) { // sorted, and so are the warnings
        const auto* field =
            std::ranges::find_if(fields, [&](const Field& f) { return f.key.table == name && f.key.name == key; });
        if (field == std::end(fields))
            reading.warnings.push_back(fmt::format("{}.{} is not a setting", name, key));
        else if (const Checked problem = field->read(reading.settings, value))
            reading.warnings.push_back(fmt::format("{}.{} {}", name, key, problem->text()));
    }
}

std::string_view trimmedBlanks(std::string_view text)
{
    const std::size_t start = text.find_first_not_of(" \t");
    if (start == std::string_view::npos)
        return {};
    return text.substr(start, text.find_last_not_of(" \t") - start + 1);
}

/// The name in a header or before "=", in quotes or not.
std::string_view bareName(std::string_view text)
{
    const std::string_view name = trimmedBlanks(text);
    const bool isQuoted =
        name.size() >= 2 && name.front() == name.back() && (name.front() == '"' || name.front() == '\'');
    return isQuoted ? name.substr(1, name.size() - 2) : name;
}

/// The name of a `[name]` header; nothing for `[[name]]` and for one that isn't closed.
std::optional<std::string_view> tableName(std::string_view header)
{
    const std::size_t closing = header.find(']');
    if (header.starts_with("[[") || closing == std::string_view::npos)
        return std::nullopt;
    return bareName(header.substr(1, closing - 1));
}

/// The comment after a value, from its "#" on; empty if there is none. A "#" inside quotes begins no comment.
std::string_view commentAfter(std::string_view value)
{
    char quote = 0;
    for (std::size_t index = 0; index < value.size(); ++index) {
        const char c = value[index];
        if (quote == '"' && c == '\\')
            ++index;
        else if (quote != 0)
            quote = c == quote ? '\0' : quote;
        else if (c == '"' || c == '\'')
            quote = c;
        else if (c == '#')
            return value.substr(index);
    }
    return {};
}

/// Keeps what stands before the value, indentation and all, and the comment after it.
std::string changedLine(std::string_view line, const Value& value)
{
    const std::size_t afterEquals = line.find('=') + 1;
    const std::string_view comment = commentAfter(line.substr(afterEquals));
    std::string changed = fmt::format("{} {}", line.substr(0, afterEquals), written(value));
    if (!comment.empty())
        changed.append(" ").append(comment);
    return changed;
}

/// Where a setting stands in a file, or would.
struct Place {
    std::optional<std::size_t> line;  ///< the line that holds it
    std::optional<std::size_t> after; ///< the line that a new one would follow; nothing if the table is missing
};

Place find(Key key, const std::vector<std::string_view>& lines)
{
    std::optional<std::string_view> table;
    std::optional<std::size_t> header;
    std::optional<std::size_t> lastKey;
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const std::string_view line = trimmedBlanks(lines[index]);
        if (line.starts_with('[')) {
            table = tableName(line);
            if (table == key.table)
                header = index;
            continue;
        }
        const std::size_t equals = line.find('=');
        if (table != key.table || line.starts_with('#') || equals == std::string_view::npos)
            continue;
        if (bareName(line.substr(0, equals)) == key.name)
            return {.line = index, .after = {}};
        lastKey = index;
    }
    return {.line = {}, .after = lastKey ? lastKey : header};
}

/// The line that keeps the setting from being written, as an index. In the table: where its place is inside a value of
/// several lines. Else one that uses the table's name otherwise.
std::optional<std::size_t> obstacle(Key key, const std::vector<std::string_view>& lines)
{
    const Place place = find(key, lines);
    if (place.line || place.after)
        return place.line ? place.line : place.after;
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const std::string_view line = trimmedBlanks(lines[index]);
        const std::string_view name = line.starts_with("[[") ? bareName(line.substr(2, line.find(']') - 2))
                                                             : bareName(line.substr(0, line.find('=')));
        if (name == key.table)
            return index;
    }
    return std::nullopt;
}

const Field& field(Key key)
{
    return *std::ranges::find(fields, key, &Field::key); // every key has one
}

std::string withNewTable(std::string_view text, Key key, const Value& value)
{
    const bool endsInside = !text.empty() && !text.ends_with('\n');
    return fmt::format("{}{}\n[{}]\n{}\n", text, endsInside ? "\n" : "", key.table, assignment(key, value));
}

} // namespace

std::string VeltrySettings::Key::text() const
{
    return fmt::format("{}.{}", table, name);
}

std::filesystem::path VeltrySettings::defaultPath()
{
    const std::string given = ProcessFacts::variable("VELTRY_SETTINGS_PATH").value_or("");
    return given.empty() ? StandardFolders::applicationSupport() / "Harrowick Veltry" / "settings.toml"
                         : std::filesystem::path(given);
}

VeltrySettings::Reading VeltrySettings::read(std::string_view text)
{
    Reading reading;
    for (const auto& [name, value] : TOML::parse(text)) {
        if (!std::ranges::any_of(fields, [&](const Field& field) { return field.key.table == name; }))
            reading.warnings.push_back(name + " is not a setting");
        else if (const TOML::Table* members = value.table())
            readTable(name, *members, reading);
        else
            reading.warnings.push_back(name + " must be a [table]");
    }
    return reading;
}

VeltrySettings VeltrySettings::load(const std::filesystem::path& file)
{
    const std::optional<std::string> contents = Files::readIfPossible(file);
    // As a file with a slip in it: the usual values count.
    if (!contents || !text::isValidUTF8(*contents))
        return {};
    try {
        return read(*contents).settings;
    } catch (const TOML::Failure&) {
        return {}; // a slip in a preference must not keep a run from starting; read() is for who wants to show it
    }
}

std::string VeltrySettings::templateText(const VeltrySettings& settings)
{
    std::string text(fileHeader);
    std::string_view table;
    for (const Field& field : fields) {
        if (field.key.table != table)
            text += fmt::format("\n[{}]\n", field.key.table);
        table = field.key.table;
        text += fmt::format("# {}\n{}\n", field.comment, assignment(field.key, field.value(settings)));
    }
    return text;
}

std::vector<Key> VeltrySettings::keys()
{
    std::vector<Key> keys;
    for (const Field& each : fields)
        keys.push_back(each.key);
    return keys;
}

std::string_view VeltrySettings::explanation(Key key)
{
    return field(key).comment;
}

Value VeltrySettings::value(Key key) const
{
    return field(key).value(*this);
}

std::expected<Value, std::string> VeltrySettings::valueFromWord(Key key, std::string_view word)
{
    const Field& its = field(key);
    VeltrySettings settings;
    const Value usual = its.value(settings);
    TOML given{std::string(word)};
    if (std::holds_alternative<bool>(usual) && (word == "true" || word == "false"))
        given = TOML(word == "true");
    if (const std::optional<std::int64_t> number = text::integer(word);
        number && std::holds_alternative<std::int64_t>(usual))
        given = TOML(*number);
    // The warning of a file doesn't tell the limit, since other programs show it in the same words.
    if (Checked problem = its.read(settings, given))
        return std::unexpected(
            std::holds_alternative<std::int64_t>(usual)
                ? fmt::format("must be a whole number from 0 to {}", static_cast<std::int64_t>(runsLimit) - 1)
                : std::move(problem->rule));
    return its.value(settings);
}

std::string VeltrySettings::Refused::description() const
{
    return fmt::format("Line {} of the file stands in the way: {}", line, text);
}

std::string VeltrySettings::settingInReadable(Key key, const Value& value, std::string_view text)
{
    const VeltrySettings before = read(text).settings;
    std::string changed = setting(key, value, text);
    try {
        // The line is found without a parser, so the new text is read once more: it must hold the new value, and every
        // other one as before.
        const VeltrySettings after = read(changed).settings;
        if (after.value(key) == value && std::ranges::all_of(fields, [&](const Field& each) {
                return each.key == key || each.value(after) == each.value(before);
            }))
            return changed;
    } catch (const TOML::Failure&) { // told below, by the line that the person has, not by one of the new text
    }
    const std::vector<std::string_view> lines = text::split(text, '\n');
    const std::size_t line = obstacle(key, lines).value_or(lines.size() - 1);
    throw Refused(line + 1, std::string(trimmedBlanks(lines[line])));
}

std::string VeltrySettings::setting(Key key, const Value& value, std::string_view text)
{
    const std::vector<std::string_view> lines = text::split(text, '\n');
    const Place place = find(key, lines);
    if (!place.line && !place.after)
        return withNewTable(text, key, value);

    std::vector<std::string> changed(lines.begin(), lines.end());
    if (place.line)
        changed[*place.line] = changedLine(lines[*place.line], value);
    else
        changed.insert(changed.begin() + static_cast<std::ptrdiff_t>(*place.after) + 1, assignment(key, value));
    return text::joined(changed, "\n");
}

} // namespace veltry

std::size_t std::hash<veltry::VeltrySettings::Key>::operator()(const veltry::VeltrySettings::Key& key) const noexcept
{
    const std::hash<std::string_view> ofText;
    return ofText(key.table) * 31 + ofText(key.name);
}
