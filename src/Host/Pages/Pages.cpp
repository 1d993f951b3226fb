#include "Host/Pages/Pages.h"

#include "Base/Text.h"
#include "Host/CommandLine/CommandTable.h"
#include "Host/CommandLine/CompletionKinds.h"

#include <algorithm>

namespace veltry::Pages {

namespace {

constexpr Option helpOption = {"-h,--help", "", "Say what the command does, and end"};

} // namespace

std::vector<const Command*> shownCommands()
{
    std::vector<const Command*> shown;
    for (const Command& command : CommandTable::commands())
        if (!command.hidden)
            shown.push_back(&command);
    return shown;
}

std::vector<Word> firstWords()
{
    std::vector<Word> words;
    for (const Command* command : shownCommands()) {
        const std::string_view first = command->firstWord();
        if (std::ranges::find(words, first, &Word::word) != words.end())
            continue;
        std::string_view summary = command->summary;
        for (const CommandTable::Group& group : CommandTable::groups())
            // A first word may be a command and begin others; then the command's own summary stays.
            if (group.name == first && first != command->name)
                summary = group.summary;
        words.push_back({std::string(first), summary});
    }
    return words;
}

std::vector<Word> secondWords(std::string_view first)
{
    std::vector<Word> words;
    for (const Command* command : shownCommands())
        if (command->firstWord() == first && !command->secondWord().empty())
            words.push_back({std::string(command->secondWord()), command->summary});
    return words;
}

std::vector<std::string> wordsWithSecond()
{
    std::vector<std::string> words;
    for (const Word& word : firstWords())
        if (!secondWords(word.word).empty())
            words.push_back(word.word);
    return words;
}

std::vector<Option> optionsOf(const Command& command)
{
    std::vector<Option> options;
    for (const Option& option : command.options)
        if (!option.isArgument())
            options.push_back(option);
    for (const Option& option : CommandTable::commonOptions(command))
        options.push_back(option);
    options.push_back(helpOption);
    return options;
}

std::vector<Option> placesOf(const Command& command)
{
    std::vector<Option> places;
    std::ranges::copy_if(command.options, std::back_inserter(places), &Option::isArgument);
    return places;
}

std::vector<std::string> namesOf(const Option& option)
{
    std::vector<std::string> names;
    for (const std::string_view name : text::split(option.names, ','))
        names.emplace_back(name);
    return names;
}

bool mayRepeat(const Option& option)
{
    return option.count == Option::Count::many || option.count == Option::Count::oneOrMore;
}

std::string offer(const Option& option)
{
    if (!option.choices.empty())
        return "choices " + std::string(option.choices);
    if (option.completion == Option::Completion::file)
        return "file";
    if (option.completion == Option::Completion::folder)
        return "folder";
    const std::string_view word = CompletionKinds::word(option.completion);
    return word.empty() ? "none" : std::string(word);
}

} // namespace veltry::Pages
