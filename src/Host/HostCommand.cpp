#include "Host/HostCommand.h"

#include "Base/Error.h"
#include "Base/Text.h"
#include "Experiments/LabError.h"
#include "Host/CommandLine/CommandTable.h"
#include "Host/CommandLine/Nearest.h"
#include "Host/Context.h"
#include "Host/Terminal/Interruption.h"
#include "Platform/ProcessEnd.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <array>
#include <map>

namespace veltry::HostCommand {

namespace {

constexpr int failure = 1;
constexpr int usageError = 2;

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
    if (!isMany)
        declared->expected(1)->allow_extra_args(false); // else the first argument takes the second one's value as well
    if (!option.isArgument()) // of one that may stand once the last counts; one that may stand often has one value each
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

/// The command line's grammar, made from the table.
class Grammar {
public:
    Grammar()
    {
        app_.set_version_flag("--version", "veltry " VELTRY_VERSION);
        app_.require_subcommand(1);
        for (const Command& command : CommandTable::commands())
            add(command);
    }

    CLI::App& app() { return app_; }

    /// What the command line has and no command takes.
    [[nodiscard]] UsageError tooMuch() const
    {
        const std::string name = commandName();
        const std::vector<std::string> left = app_.remaining(true);
        const Command* const command = CommandTable::find(name);
        if (!command || left.empty() || !left.front().starts_with('-'))
            return UsageError(fmt::format(
                "{} takes no {}. veltry {} --help tells what it takes.", name, text::joined(left, " "), name));
        std::vector<std::string> known;
        for (const Option& option : command->options)
            known.emplace_back(option.name());
        for (const Option& option : CommandTable::commonOptions(*command))
            known.emplace_back(option.name());
        std::erase_if(known, [](const std::string& each) { return !each.starts_with('-'); });
        return UsageError(fmt::format(
            "{} has no option {}.{} veltry {} --help lists them.", name, left.front(), didYouMean(left.front(), known),
            name));
    }

    /// The command that was parsed, and what it was given.
    std::pair<const Command*, Arguments> parsed()
    {
        const std::string name = commandName();
        Arguments arguments;
        for (auto& [option, values] : parsers_.at(name).values)
            if (!values.empty())
                arguments.add(option, std::move(values));
        return {CommandTable::find(name), std::move(arguments)};
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
        CLI::App* parent = &app_;
        std::string word(command.name);
        if (const std::size_t blank = word.find(' '); blank != std::string::npos) {
            parent = group(word.substr(0, blank));
            word = word.substr(blank + 1);
        }
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

/// The second words of commands that begin with this one.
std::vector<std::string> secondWords(const std::string& first)
{
    std::vector<std::string> words;
    for (const Command& command : CommandTable::commands())
        if (command.name.starts_with(first + ' '))
            words.emplace_back(command.name.substr(first.size() + 1));
    return words;
}

/// `papers` is a command and `project` only the beginning of some; neither takes just any second word.
void checkSecondWord(const std::string& first, const std::string& given)
{
    const std::vector<std::string> known = secondWords(first);
    const Command* const alone = CommandTable::find(first);
    const bool isOption = given.starts_with('-') || (alone && given.empty());
    if (known.empty() || isOption || std::ranges::find(known, given) != known.end() ||
        (alone && std::ranges::any_of(alone->options, &Option::isArgument)))
        return;
    if (given.empty())
        throw UsageError(fmt::format("{} what? There are {}.", first, text::joined(known, ", ")));
    throw UsageError(fmt::format(
        "There is no command {} {}.{} There are {}.", first, given, didYouMean(given, known),
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
        throw UsageError(
            fmt::format("The command comes before its options, {} too. veltry --help lists the commands.", given));
    std::vector<std::string> known;
    for (const Command& command : CommandTable::commands())
        known.emplace_back(command.name.substr(0, command.name.find(' ')));
    if (std::ranges::find(known, given) == known.end())
        throw UsageError(
            fmt::format("There is no command {}.{} veltry --help lists them.", given, didYouMean(given, known)));
    checkSecondWord(given, arguments.size() > 2 ? arguments[2] : "");
}

/// The lab's sentences name the tools by which an agent would go on; a person goes on by commands.
std::string forPerson(std::string sentence)
{
    static constexpr std::array<std::array<std::string_view, 2>, 7> phrases = {{
        {"Call experiment_tree for the ids", "veltry tree lists them"},
        {"with wait_for_runs", "with veltry wait"},
        {"with cancel_run", "with veltry cancel"},
        {"with create_experiment", "with veltry create"},
        {"call run_experiment again", "call veltry run again"},
        {"Pass run_command", "Pass --command"},
        {"Leave run_command out", "Leave --command out"},
    }};
    for (const auto& [tool, command] : phrases)
        sentence = text::replacingAll(sentence, tool, command);
    return sentence;
}

/// In one line, as every error is told.
int told(const Terminal& notes, const std::string& what, int status)
{
    try {
        notes.write(fmt::format("veltry: {}\n", text::oneLine(text::trimmed(what))));
    } catch (...) { // nobody is left to tell
    }
    return status;
}

int run(const std::vector<std::string>& arguments, const Terminal& out, const Terminal& notes)
{
    checkCommand(arguments);
    Grammar grammar;
    try {
        std::vector<std::string> words(arguments.rbegin(), arguments.rend()); // CLI11 takes them from the back
        if (!words.empty())
            words.pop_back();
        grammar.app().parse(words);
    } catch (const CLI::Success& asked) { // --help, --version
        std::ostringstream text;
        grammar.app().exit(asked, text, text);
        out.write(text.str());
        return 0;
    } catch (const CLI::ExtrasError&) {
        throw grammar.tooMuch();
    } catch (const CLI::ParseError& error) {
        throw UsageError(fmt::format("{}. Try veltry {} --help.", text::trimmed(error.what()), arguments[1]));
    }
    const auto [command, given] = grammar.parsed();
    Context context(
        {.database = given.text("--db"), .project = given.text("--project"), .json = given.has("--json")}, out, notes);
    try {
        command->run(context, given);
    } catch (const DatabaseError& error) {
        throw context.refusal(error);
    }
    return 0;
}

} // namespace

int main(const std::vector<std::string>& arguments)
{
    ProcessEnd::ignoreBrokenPipes(); // `veltry … | head` ends with a failed write
    Interruption::install();
    const Terminal notes = Terminal::standardError();
    try {
        return run(arguments, Terminal::standardOutput(), notes);
    } catch (const Terminal::Closed&) {
        return 0;
    } catch (const ProcessEnd::Requested& by) {
        ProcessEnd::leaveBy(by.signal);
    } catch (const UsageError& error) {
        return told(notes, error.description(), usageError);
    } catch (const LabError& error) {
        return told(notes, forPerson(error.message), failure);
    } catch (const std::exception& error) {
        return told(notes, describe(error), failure);
    }
}

} // namespace veltry::HostCommand
