#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Host/CommandLine/Nearest.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Terminal/TextTable.h"
#include "Platform/Files.h"

#include <fmt/format.h>

#include <array>

namespace veltry::Commands {

namespace {

using Count = Option::Count;
using Completion = Option::Completion;
using Scope = Command::Scope;
using Key = VeltrySettings::Key;
using Value = VeltrySettings::Value;

/// The settings file, which may not be there.
struct SettingsFile {
    std::filesystem::path path = Context::settingsPath();
    std::optional<std::string> text;

    /// Throws Refusal for one that is there and can't be read, as against one that can't be understood.
    SettingsFile()
    {
        if (!Files::exists(path))
            return;
        text = Files::read(path);
        if (!text::isValidUTF8(*text))
            throw Refusal(
                fmt::format("{} isn't UTF-8 text, so every setting has its default. Save it as UTF-8.", path.string()));
    }

    /// Throws TOML::Failure.
    [[nodiscard]] VeltrySettings::Reading read() const
    {
        return text ? VeltrySettings::read(*text) : VeltrySettings::Reading();
    }
};

std::string unreadable(const SettingsFile& file, const TOML::Failure& failure)
{
    return fmt::format(
        "{} can't be read, so every setting has its default: {}. Mend that line.", file.path.string(),
        text::oneLine(failure.message));
}

/// Finds it by "table.name", or by the name alone.
Key keyNamed(const std::string& given)
{
    std::vector<std::string> known;
    for (const Key& key : VeltrySettings::keys()) {
        if (key.text() == given || key.name == given)
            return key;
        known.push_back(key.text());
        known.emplace_back(key.name);
    }
    throw Refusal(
        fmt::format("There is no setting {}.{} veltry settings lists them.", given, didYouMean(given, known)));
}

JSONValue jsonOf(const Value& value)
{
    return std::visit([](const auto& held) { return JSONValue(held); }, value);
}

/// As `settings set` takes it.
std::string wordOf(const Value& value)
{
    if (const std::string* text = std::get_if<std::string>(&value))
        return *text;
    return jsonOf(value).text();
}

/// The settings as they are in effect.
VeltrySettings current(const Context& context)
{
    const SettingsFile file;
    try {
        return file.read().settings;
    } catch (const TOML::Failure& failure) {
        context.note(unreadable(file, failure));
        return {};
    }
}

void list(Context& context, const Arguments& /*arguments*/)
{
    const VeltrySettings settings = current(context);
    const VeltrySettings usual;
    if (context.json()) {
        JSONValue::Object all;
        for (const Key& key : VeltrySettings::keys())
            all.emplace(key.text(), jsonOf(settings.value(key)));
        return context.printJSON(JSONValue(std::move(all)));
    }
    TextTable table({{.heading = "setting"}, {.heading = "value"}, {.heading = "what it is", .mayBeCut = true}});
    for (const Key& key : VeltrySettings::keys()) {
        const Value value = settings.value(key);
        table.add({
            {key.text()},
            {wordOf(value), value == usual.value(key) ? Style::plain : Style::bold},
            {std::string(VeltrySettings::explanation(key)), Style::dim},
        });
    }
    context.print(table.text(context.out()));
}

void get(Context& context, const Arguments& arguments)
{
    const Key key = keyNamed(arguments.required("KEY"));
    const Value value = current(context).value(key);
    if (context.json())
        return context.printJSON(jsonOf(value));
    context.print(text::oneLine(wordOf(value)) + "\n");
}

std::string changed(const Context& context, const SettingsFile& file, Key key, const Value& value)
{
    const std::string text = file.text.value_or(VeltrySettings::templateText({}));
    try {
        return VeltrySettings::settingInReadable(key, value, text);
    } catch (const VeltrySettings::Refused& refused) {
        throw Refusal(fmt::format(
            "{} can't be set in {} while line {} reads \"{}\": the file could not be read any more. Mend that line.",
            key.text(), file.path.string(), refused.line, text::oneLine(refused.text)));
    } catch (const TOML::Failure& failure) { // it can't get worse
        context.note(unreadable(file, failure));
        return VeltrySettings::setting(key, value, text);
    }
}

bool isReadable(std::string_view text)
{
    try {
        static_cast<void>(VeltrySettings::read(text));
        return true;
    } catch (const TOML::Failure&) {
        return false;
    }
}

void set(Context& context, const Arguments& arguments)
{
    const Key key = keyNamed(arguments.required("KEY"));
    const std::string word = arguments.required("VALUE");
    const std::expected<Value, std::string> value = VeltrySettings::valueFromWord(key, word);
    if (!value)
        throw UsageError(fmt::format("{} {}, not {}.", key.text(), value.error(), text::quoted(word)));
    if (text::oneLine(word) != word)
        throw UsageError(fmt::format("{} must be on one line, without control characters.", key.text()));
    const SettingsFile file;
    const std::string text = changed(context, file, key, *value);
    Files::createPrivateFolders(file.path.parent_path());
    Files::writeAtomically(file.path, text);
    context.note(
        isReadable(text) ? fmt::format("{} is {} now, in {}.", key.text(), word, file.path.string())
                         : fmt::format(
                               "{} = {} is written there, but every setting has its default until that line is mended.",
                               key.text(), word));
}

void path(Context& context, const Arguments& /*arguments*/)
{
    if (context.json())
        return context.printJSON(Context::settingsPath().string());
    context.print(Context::settingsPath().string() + "\n");
}

void check(Context& context, const Arguments& /*arguments*/)
{
    const SettingsFile file;
    std::vector<std::string> warnings;
    try {
        warnings = file.read().warnings;
    } catch (const TOML::Failure& failure) {
        throw Refusal(unreadable(file, failure));
    }
    if (context.json()) {
        context.printJSON(JSONValue(JSONValue::Array(warnings.begin(), warnings.end())));
    } else {
        for (const std::string& warning : warnings)
            context.print(text::oneLine(warning) + "\n");
    }
    if (!warnings.empty())
        throw Refusal(fmt::format(
            "{} passed over in {}.", counted(std::ssize(warnings), "thing is", "things are"), file.path.string()));
    context.note(
        file.text ? fmt::format("Nothing is wrong with {}.", file.path.string())
                  : fmt::format("There is no {}: every setting has its default.", file.path.string()));
}

constexpr Option keyOption = {
    "KEY", "", "The setting, like experiments.max_runs or max_runs", Count::required, Completion::setting};
constexpr std::array getOptions = {keyOption};
constexpr std::array setOptions = {
    keyOption,
    Option{"VALUE", "", "true or false, a number, or a word; without TOML's quotes", Count::required},
};

constexpr std::array table = {
    Command{
        .name = "settings",
        .summary = "List the settings with the values in effect",
        .example = "veltry settings",
        .scope = Scope::nothing,
        .hasJSON = true,
        .options = {},
        .run = &list},
    Command{
        .name = "settings get",
        .summary = "Print the value of a setting",
        .example = "veltry settings get max_runs",
        .scope = Scope::nothing,
        .hasJSON = true,
        .options = getOptions,
        .run = &get},
    Command{
        .name = "settings set",
        .summary = "Change a setting in its line of the file, which otherwise stays as it is, comments too",
        .example = "veltry settings set experiments.max_runs 4",
        .scope = Scope::nothing,
        .options = setOptions,
        .run = &set},
    Command{
        .name = "settings path",
        .summary = "Print where the settings' file lies",
        .example = "$EDITOR \"$(veltry settings path)\"",
        .scope = Scope::nothing,
        .hasJSON = true,
        .options = {},
        .run = &path},
    Command{
        .name = "settings check",
        .summary = "Print what in the settings' file is passed over, and why; exit status 1 if there is anything",
        .example = "veltry settings check",
        .scope = Scope::nothing,
        .hasJSON = true,
        .options = {},
        .run = &check},
};

} // namespace

Family settingsCommands()
{
    return table;
}

} // namespace veltry::Commands
