#pragma once

#include "Host/CommandLine/Command.h"

#include <string>
#include <string_view>
#include <vector>

/// What is made from the table of commands when the program is built: the manual page and the shells' completions. All
/// functions are pure and return the text of a whole file.
namespace veltry::Pages {

/// veltry(1), for man's macros. `settingsPage` is docs/settings.md, whose table becomes a section.
[[nodiscard]] std::string manual(std::string_view settingsPage);
[[nodiscard]] std::string bashCompletion();
[[nodiscard]] std::string zshCompletion();
[[nodiscard]] std::string fishCompletion();

/// The commands that a person is told of.
[[nodiscard]] std::vector<const Command*> shownCommands();

/// What can be typed at one place of the line: a command, or the first word of commands with two.
struct Word {
    std::string word;
    std::string_view summary;
};
/// The first words, each once; or the second ones after `first`.
[[nodiscard]] std::vector<Word> firstWords();
[[nodiscard]] std::vector<Word> secondWords(std::string_view first);
/// Those with which commands of two words begin.
[[nodiscard]] std::vector<std::string> wordsWithSecond();

/// The command's own options and the common ones, --help among them; and what goes by its place.
[[nodiscard]] std::vector<Option> optionsOf(const Command& command);
[[nodiscard]] std::vector<Option> placesOf(const Command& command);
/// "-n" and "--lines" of "-n,--lines".
[[nodiscard]] std::vector<std::string> namesOf(const Option& option);
[[nodiscard]] bool mayRepeat(const Option& option);

/// What a shell offers, in a word: "file", "folder", "choices min max", "none", or what `veltry complete` knows.
[[nodiscard]] std::string offer(const Option& option);

} // namespace veltry::Pages
