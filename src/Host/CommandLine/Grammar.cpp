#include "Host/CommandLine/Grammar.h"

#include "Base/Text.h"
#include "Host/CommandLine/CommandTable.h"
#include "Host/CommandLine/Nearest.h"
#include "Host/Refusal.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <sstream>
#include <utility>

namespace veltry::Grammar {

namespace {

/// The parser of one command, with where it puts what it reads.
struct Parser {
    CLI::App* app = nullptr;
    std::map<std::string, std::vector<std::string>, std::less<>> values;
};

void declare(Parser& parser, const Option& option)
{
    std::vector<std::string>& values = parser.values[std::string(option.name())];
    const std::string help(option.help);
    if (option.isFlag()) {
        parser.app->add_flag_callback(std::string(option.names), [&values] { values = {""}; }, help);
        return;
    }
    CLI::Option* declared = parser.app->add_option(std::string(option.names), values, help);
    declared->type_name(std::string(option.value));
    const bool isMany = option.count == Option::Count::many || option.count == Option::Count::oneOrMore;
    // Otherwise the first argument takes the second one's value as well.
    if (!isMany)
        declared->expected(1)->allow_extra_args(false);
    // Where an option is given twice, the last value counts; one that may be given often keeps them all.
    if (!option.isArgument())
        declared->expected(1)->allow_extra_args(false)->multi_option_policy(
            isMany ? CLI::MultiOptionPolicy::TakeAll : CLI::MultiOptionPolicy::TakeLast);
    if (option.count == Option::Count::required || option.count == Option::Count::oneOrMore)
        declared->required();
    if (!option.choices.empty()) {
        std::vector<std::string> choices;
        for (const std::string_view choice : text::split(option.choices, ' '))
            choices.emplace_back(choice);
        declared->check(CLI::IsMember(choices));
    }
}

/// Everything that can be typed, made from the table.
class Parsers {
public:
    Parsers()
    {
        app_.set_version_flag("--version", "veltry " VELTRY_VERSION);
        app_.require_subcommand(1);
        for (const Command& command : CommandTable::commands())
            add(command);
    }

    CLI::App& app() { return app_; }

    /// What the command line has and the command doesn't take.
    [[nodiscard]] UsageError tooMuch() const
    {
        const std::string name = commandName();
        const std::vector<std::string> left = app_.remaining(true);
        const Command* const command = CommandTable::find(name);
        if (!command || left.empty() || !left.front().starts_with('-'))
            return UsageError(fmt::format(
                "{} doesn't take {}. veltry {} --help tells what it takes.", name, text::joined(left, " "), name));
        std::vector<std::string> known;
        for (const Option& option : command->options)
            known.emplace_back(option.name());
        for (const Option& option : CommandTable::commonOptions(*command))
            known.emplace_back(option.name());
        // The table holds arguments as well, which are no options to suggest.
        std::erase_if(known, [](const std::string& each) { return !each.starts_with('-'); });
        return UsageError(fmt::format(
            "{} has no option {}.{} veltry {} --help lists them.", name, left.front(), didYouMean(left.front(), known),
            name));
    }

    /// The command that was parsed, and what it was given.
    Asked asked()
    {
        const std::string name = commandName();
        Arguments arguments;
        for (auto& [option, values] : parsers_.at(name).values)
            if (!values.empty())
                arguments.add(option, std::move(values));
        return {.command = CommandTable::find(name), .arguments = std::move(arguments)};
    }

private:
    [[nodiscard]] std::string commandName() const
    {
        const CLI::App* last = &app_;
        std::string name;
        while (!last->get_subcommands().empty()) {
            last = last->get_subcommands().front();
            name += (name.empty() ? "" : " ") + last->get_name();
        }
        return name;
    }

    void add(const Command& command)
    {
        const bool isAlone = command.secondWord().empty();
        CLI::App* const parent = isAlone ? &app_ : group(std::string(command.firstWord()));
        const std::string word(isAlone ? command.name : command.secondWord());
        Parser& parser = parsers_[std::string(command.name)];
        parser.app = parent->add_subcommand(word, std::string(command.summary));
        if (command.hidden)
            parser.app->group("");
        groups_.emplace(command.name, parser.app); // `papers` lists, `papers show` is another command
        for (const Option& option : command.options)
            declare(parser, option);
        for (const Option& option : CommandTable::commonOptions(command))
            declare(parser, option);
        if (!command.example.empty())
            parser.app->footer("Example:\n  " + text::replacingAll(command.example, "\n", "\n  "));
    }

    CLI::App* group(const std::string& name)
    {
        CLI::App*& there = groups_[name];
        if (!there) {
            const auto known = std::ranges::find(CommandTable::groups(), name, &CommandTable::Group::name);
            there = app_.add_subcommand(name, std::string(known->summary));
            there->require_subcommand(1);
        }
        return there;
    }

    CLI::App app_{"The host at the terminal for experiments that coding agents plan, run and compare.", "veltry"};
    std::map<std::string, Parser> parsers_;
    std::map<std::string, CLI::App*> groups_; // by their names
};

/// `papers` is a command and `project` only the beginning of some; neither takes just any second word.
void checkSecondWord(const std::string& first, const std::string& given)
{
    std::vector<std::string> known;
    for (const Command& command : CommandTable::commands())
        if (command.firstWord() == first && !command.secondWord().empty())
            known.emplace_back(command.secondWord());
    const Command* const alone = CommandTable::find(first);
    const bool isOption = given.starts_with('-') || (alone && given.empty());
    if (known.empty() || isOption || std::ranges::find(known, given) != known.end() ||
        (alone && std::ranges::any_of(alone->options, &Option::isArgument)))
        return;
    if (given.empty())
        throw UsageError(fmt::format("{} needs a second word, one of these: {}.", first, text::joined(known, ", ")));
    throw UsageError(fmt::format(
        "There is no command {} {}.{} After {} comes one of these: {}.", first, given, didYouMean(given, known), first,
        text::joined(known, ", ")));
}

/// What CLI11 would only call a missing command.
void checkCommand(const std::vector<std::string>& arguments)
{
    if (arguments.size() < 2)
        throw UsageError("Which command? veltry --help lists them.");
    const std::string& given = arguments[1];
    constexpr std::array own = {"-h", "--help", "--version"};
    if (std::ranges::find(own, given) != own.end())
        return;
    if (given.starts_with('-'))
        throw UsageError(fmt::format(
            "The command comes before its options, and so before {}. veltry --help lists the commands.", given));
    std::vector<std::string> known;
    for (const Command& command : CommandTable::commands())
        known.emplace_back(command.firstWord());
    if (std::ranges::find(known, given) == known.end())
        throw UsageError(
            fmt::format("There is no command {}.{} veltry --help lists them.", given, didYouMean(given, known)));
    checkSecondWord(given, arguments.size() > 2 ? arguments[2] : "");
}

} // namespace

Asked read(const std::vector<std::string>& arguments)
{
    checkCommand(arguments);
    Parsers parsers;
    try {
        std::vector<std::string> words(arguments.rbegin(), arguments.rend()); // CLI11 takes them from the back
        words.pop_back();
        parsers.app().parse(words);
    } catch (const CLI::Success& asked) { // --help, --version
        std::ostringstream text;
        parsers.app().exit(asked, text, text);
        return {.text = text.str()};
    } catch (const CLI::ExtrasError&) {
        throw parsers.tooMuch();
    } catch (const CLI::ParseError& error) {
        throw UsageError(fmt::format("{}. Try veltry {} --help.", text::trimmed(error.what()), arguments[1]));
    }
    return parsers.asked();
}

} // namespace veltry::Grammar
