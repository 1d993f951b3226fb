#include "Base/Text.h"
#include "Host/Pages/Pages.h"

#include <fmt/format.h>

namespace veltry::Pages {

namespace {

constexpr std::string_view body = R"fish(
# The line up to the cursor, read as veltry reads it: the command, or nothing, and the place of the next argument.
function __veltry_read
    set -l words (commandline -opc)
    set -l command
    set -l place 1
    set -l waiting
    for word in $words[2..-1]
        if set -q waiting[1]
            set -e waiting
        else if string match -q -- '-*' $word
            contains -- "$command $word" $__veltry_valued; and set waiting $word
        else if not set -q command[1]
            set command $word
        else if test $place = 1; and contains -- "$command $word" $__veltry_two
            set command "$command $word"
        else
            set place (math $place + 1)
        end
    end
    echo $command
    echo $place
end

# Whether that command stands on the line; with a place, whether an argument there comes next.
function __veltry_at
    set -l now (__veltry_read)
    test "$now[1]" = "$argv[1]"; or return 1
    set -q argv[2]; or return 0
    test "$argv[2]" = '*'; or test "$now[2]" = "$argv[2]"
end

# What veltry itself knows: nodes, runs, projects. Which project and store are meant stands on the line.
function __veltry_values
    set -l words (commandline -opc)
    set -l about
    for index in (seq 2 (count $words))
        switch $words[$index]
            case --db --project
                test $index -lt (count $words); and set -a about $words[$index] $words[(math $index + 1)]
            case '--db=*' '--project=*'
                set -a about $words[$index]
        end
    end
    set -l program (string replace -r '^~' $HOME -- $words[1])
    $program complete $about -- $argv[1] 2>/dev/null
end

complete -c veltry -f
complete -c veltry -n '__veltry_at ""' -s h -l help -d 'Say what veltry does, and end'
complete -c veltry -n '__veltry_at ""' -l version -d 'Tell the version, and end'
)fish";

std::string quoted(std::string_view word)
{
    return "'" + text::replacingAll(text::replacingAll(word, "\\", "\\\\"), "'", "\\'") + "'";
}

std::string action(const Option& option)
{
    const std::string what = offer(option);
    if (what == "file")
        return " -F";
    if (what == "folder")
        return " -x -a '(__fish_complete_directories (commandline -ct))'";
    if (what == "none")
        return " -x";
    if (what.starts_with("choices "))
        return " -x -a " + quoted(what.substr(8));
    return fmt::format(" -x -a '(__veltry_values {})'", what);
}

std::string lineOf(const Command& command, const Option& option)
{
    std::string line = fmt::format("complete -c veltry -n {}", quoted(fmt::format("__veltry_at '{}'", command.name)));
    for (const std::string& name : namesOf(option))
        line += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    if (!option.isFlag())
        line += " -r" + action(option);
    return line + " -d " + quoted(option.help) + "\n";
}

std::string lineOf(const Command& command, const Option& argument, std::size_t place)
{
    const std::string where = mayRepeat(argument) ? "'*'" : std::to_string(place);
    const std::string what = action(argument);
    // A place where nothing can be offered needs no line: files are off for the whole program.
    if (what == " -x")
        return "";
    return fmt::format(
        "complete -c veltry -n {}{} -d {}\n", quoted(fmt::format("__veltry_at '{}' {}", command.name, where)), what,
        quoted(argument.names));
}

std::string lineOf(std::string_view first, const Word& word)
{
    const std::string_view place = first.empty() ? "" : " 1";
    return fmt::format(
        "complete -c veltry -n {} -a {} -d {}\n", quoted(fmt::format("__veltry_at '{}'{}", first, place)), word.word,
        quoted(word.summary));
}

} // namespace

std::string fishCompletion()
{
    std::string valued;
    std::string two;
    std::string lines;
    for (const Word& word : firstWords())
        lines += lineOf("", word);
    for (const std::string& first : wordsWithSecond())
        for (const Word& word : secondWords(first)) {
            two += fmt::format(" '{} {}'", first, word.word);
            lines += lineOf(first, word);
        }
    for (const Command* command : shownCommands()) {
        for (const Option& option : optionsOf(*command)) {
            lines += lineOf(*command, option);
            for (const std::string& name : namesOf(option))
                if (!option.isFlag())
                    valued += fmt::format(" '{} {}'", command->name, name);
        }
        std::size_t place = 0;
        for (const Option& argument : placesOf(*command))
            lines += lineOf(*command, argument, ++place);
    }
    return "# Completion of veltry for fish. Made from the table of its commands.\n\n"
           "# Options that a value follows, and commands of two words.\nset -g __veltry_valued" +
           valued + "\nset -g __veltry_two" + two + "\n" + std::string(body) + lines;
}

} // namespace veltry::Pages
