#include "Base/Text.h"
#include "Host/Pages/Pages.h"

#include <fmt/format.h>

namespace veltry::Pages {

namespace {

constexpr std::string_view body = R"bash(
# The words before the one that is completed, read as veltry reads them: fills command, waiting (an option whose value
# comes next), place (of the next argument) and about (which project and store are meant).
_veltry_read() {
    local word index
    for ((index = 1; index < COMP_CWORD; ++index)); do
        word=${COMP_WORDS[index]}
        if [[ $word == = ]]; then
            continue
        elif [[ $waiting ]]; then
            [[ $waiting == --db || $waiting == --project ]] && about+=("$waiting" "$(_veltry_plain "$word")")
            waiting=
        elif [[ $word == -* ]]; then
            [[ $(_veltry_offer "$command $word") ]] && waiting=$word
        elif [[ ! $command ]]; then
            command=$word
        elif ((place == 1)) && [[ " $(_veltry_words "$command") " == *" $word "* ]]; then
            command+=" $word"
        else
            ((++place))
        fi
    done
}

# A word without the quotes and backslashes that the shell would take away.
_veltry_plain() {
    printf '%s' "${1//[\"\'\\]/}"
}

# Offers what suits: "file", "folder", "choices A B", or what veltry itself knows. Names with blanks get quoted.
_veltry_fill() {
    local value line
    case $1 in
    file) compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    folder) compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
    choices\ *) mapfile -t COMPREPLY < <(compgen -W "${1#choices }" -- "$current") ;;
    none | '') ;;
    *)
        while IFS=$'\t' read -r value line; do
            COMPREPLY+=("$(printf '%q' "$value")")
        done < <("${program/#\~/$HOME}" complete "${about[@]}" -- "$1" "$(_veltry_plain "$current")" 2>/dev/null)
        ;;
    esac
}

_veltry() {
    local program=$1 current=${COMP_WORDS[COMP_CWORD]} command='' waiting='' place=1
    local -a about=()
    COMPREPLY=()
    _veltry_read
    [[ $current == = ]] && current=
    if [[ $waiting ]]; then
        _veltry_fill "$(_veltry_offer "$command $waiting")"
    elif [[ ! $command ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_veltry_words '') --help --version" -- "$current")
    elif [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_veltry_options "$command")" -- "$current")
    else
        _veltry_fill "$(_veltry_offer "$command $place")"
        ((place > 1)) || mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(
            compgen -W "$(_veltry_words "$command")" -- "$current")
    fi
}

complete -F _veltry veltry
)bash";

std::string joinedWords(const std::vector<Word>& words)
{
    std::string line;
    for (const Word& word : words)
        line += (line.empty() ? "" : " ") + word.word;
    return line;
}

/// A row of a `case` over the command and what follows it.
std::string row(const std::string& pattern, const std::string& answer)
{
    return fmt::format("    {}) echo '{}' ;;\n", pattern, answer);
}

std::string function(std::string_view comment, std::string_view name, const std::string& rows)
{
    return fmt::format("\n# {}\n{}() {{\n    case $1 in\n{}    esac\n}}\n", comment, name, rows);
}

std::string offers()
{
    std::string rows;
    for (const Command* command : shownCommands()) {
        for (const Option& option : optionsOf(*command)) {
            if (option.isFlag())
                continue;
            std::string pattern;
            for (const std::string& name : namesOf(option))
                pattern += fmt::format("{}'{} {}'", pattern.empty() ? "" : " | ", command->name, name);
            rows += row(pattern, offer(option));
        }
        std::size_t place = 0;
        for (const Option& argument : placesOf(*command)) {
            ++place; // the last may take all that follow
            rows +=
                row(mayRepeat(argument) ? fmt::format("'{} '[0-9]*", command->name)
                                        : fmt::format("'{} {}'", command->name, place),
                    offer(argument));
        }
    }
    return rows;
}

std::string options()
{
    std::string rows;
    for (const Command* command : shownCommands()) {
        std::string line;
        for (const Option& option : optionsOf(*command))
            line += (line.empty() ? "" : " ") + std::string(option.name());
        rows += row(fmt::format("'{}'", command->name), line);
    }
    return rows;
}

} // namespace

std::string bashCompletion()
{
    std::string words = row("''", joinedWords(firstWords()));
    for (const std::string& first : wordsWithSecond())
        words += row(fmt::format("'{}'", first), joinedWords(secondWords(first)));
    return "# Completion of veltry for bash. Made from the table of its commands.\n" +
           function("The commands, or the second words of one.", "_veltry_words", words) +
           function("The options of a command.", "_veltry_options", options()) +
           function(
               "What is offered after an option, or at a place: \"tree --best\", \"show 1\". Nothing after a flag.",
               "_veltry_offer", offers()) +
           std::string(body);
}

} // namespace veltry::Pages
