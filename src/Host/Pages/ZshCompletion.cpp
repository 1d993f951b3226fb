#include "Base/Text.h"
#include "Host/Pages/Pages.h"

#include <fmt/format.h>

namespace veltry::Pages {

namespace {

constexpr std::string_view beginning = R"zsh(#compdef veltry
# Completion of veltry for zsh. Made from the table of its commands.

# Offers what veltry itself knows: nodes, runs, projects. Which project and store are meant stands on the line.
_veltry_values() {
    local what=$1 line
    local -a about values
    [[ -n ${opt_args[--db]} ]] && about+=(--db ${(Q)opt_args[--db]})
    [[ -n ${opt_args[--project]} ]] && about+=(--project ${(Q)opt_args[--project]})
    for line in ${(f)"$(${~veltry_program} complete $about -- $what 2>/dev/null)"}; do
        values+=("${${line%%$'\t'*}//:/\\:}:${line#*$'\t'}")
    done
    _describe -V -t $what $what values
}

_veltry() {
    local veltry_program=$words[1] command curcontext=$curcontext state line
    local -a first second
    typeset -A opt_args
)zsh";

constexpr std::string_view dispatch = R"zsh(
    if ((CURRENT == 2)); then
        if [[ $PREFIX == -* ]]; then
            _arguments '(- *)'{-h,--help}'[Say what veltry does, and end]' '(- *)--version[Tell the version, and end]'
        else
            _describe -V -t commands command first
        fi
        return
    fi
    command=$words[2]
    shift words
    ((--CURRENT))
    _veltry_second $command
    if (($#second)); then
        if ((CURRENT == 2)) && [[ $PREFIX != -* ]]; then
            _describe -V -t commands command second
        elif ((CURRENT > 2 && ${second[(I)$words[2]:*]})); then
            command+=" $words[2]"
            shift words
            ((--CURRENT))
        fi
    fi
    case $command in
)zsh";

constexpr std::string_view ending = R"zsh(    esac
}

if [[ $funcstack[1] == _veltry ]]; then
    _veltry "$@"
else
    compdef _veltry veltry
fi
)zsh";

std::string quoted(std::string_view word)
{
    return "'" + text::replacingAll(word, "'", "'\\''") + "'";
}

/// Inside brackets, and between colons.
std::string escaped(std::string_view help)
{
    std::string result;
    for (const char character : help) {
        if (character == '[' || character == ']' || character == ':' || character == '\\')
            result += '\\';
        result += character;
    }
    return result;
}

std::string action(const Option& option)
{
    const std::string what = offer(option);
    if (what == "file")
        return "_files";
    if (what == "folder")
        return "_files -/";
    if (what == "none")
        return " ";
    if (what.starts_with("choices "))
        return "(" + what.substr(8) + ")";
    return " _veltry_values " + what; // with a blank in front it is called with these words alone
}

/// One argument of _arguments. The names of one option exclude one another, unless it may stand often.
std::string optionSpec(const Option& option)
{
    const std::vector<std::string> names = namesOf(option);
    std::string joined = text::joined(names, " ");
    std::string spelt;
    for (const std::string& name : names) {
        spelt += spelt.empty() ? "" : ",";
        spelt += option.isFlag() ? name : name + (name.starts_with("--") ? "=" : "+");
    }
    const bool isHelp = option.name() == "--help";
    const std::string value = option.isFlag() ? "" : fmt::format(":{}:{}", escaped(option.value), action(option));
    return fmt::format(
        "{}{}{}", mayRepeat(option) ? "'*'" : quoted("(" + (isHelp ? "- *" : joined) + ")"),
        names.size() > 1 ? "{" + spelt + "}" : spelt, quoted("[" + escaped(option.help) + "]" + value));
}

std::string place(const Option& argument, std::size_t number)
{
    const bool isOptional = argument.count == Option::Count::optional || argument.count == Option::Count::many;
    return quoted(fmt::format(
        "{}:{}{}:{}", mayRepeat(argument) ? "*" : std::to_string(number), isOptional ? ":" : "",
        escaped(argument.names), action(argument)));
}

std::string described(const std::vector<Word>& words)
{
    std::string lines;
    for (const Word& word : words)
        lines += "        " + quoted(escaped(word.word) + ":" + std::string(word.summary)) + "\n";
    return lines;
}

} // namespace

std::string zshCompletion()
{
    std::string script(beginning);
    script += "    first=(\n" + described(firstWords()) + "    )\n" + std::string(dispatch);
    for (const Command* command : shownCommands()) {
        script += fmt::format("    {})\n        _arguments -s", quoted(command->name));
        for (const Option& option : optionsOf(*command))
            script += " \\\n            " + optionSpec(option);
        std::size_t number = 0;
        for (const Option& argument : placesOf(*command))
            script += " \\\n            " + place(argument, ++number);
        script += "\n        ;;\n";
    }
    std::string seconds = "\n# The second words of commands that have two.\n_veltry_second() {\n    case $1 in\n";
    for (const std::string& first : wordsWithSecond())
        seconds += fmt::format(
            "    {})\n        second=(\n{}        )\n        ;;\n", quoted(first),
            text::replacingAll(described(secondWords(first)), "        '", "            '"));
    seconds += "    esac\n}\n";
    // In front of what begins at once when the file is read.
    const std::size_t at = script.find("\n_veltry() {");
    script.insert(at, seconds);
    return script + std::string(ending);
}

} // namespace veltry::Pages
