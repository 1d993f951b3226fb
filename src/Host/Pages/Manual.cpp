#include "Base/Text.h"
#include "Host/CommandLine/CommandTable.h"
#include "Host/Pages/Pages.h"

#include <fmt/format.h>

#include <array>

namespace veltry::Pages {

namespace {

struct Entry {
    std::string_view name;
    std::string_view text;
};

constexpr std::array environment = {
    Entry{"VELTRY_DATABASE_PATH", "The store, where --db names none."},
    Entry{"VELTRY_SETTINGS_PATH", "The settings file."},
    Entry{"VELTRY_TEMPLATES_ARCHIVE", "The archive of the templates from which veltry new fills a folder."},
    Entry{"XDG_DATA_HOME", "Holds the application-support folder (Harrowick Veltry); ~/.local/share by default."},
    Entry{"NO_COLOR", "Where it is set and not empty, nothing is coloured."},
    Entry{
        "OPENALEX_API_KEY", "The key of the literature service. veltry init and veltry doctor put it into the block "
                            "for an MCP client, which passes only a handful of variables on by itself."},
    Entry{"OPENALEX_BASE_URL", "An address in place of the literature service's own."},
    Entry{"https_proxy, no_proxy", "The proxy for requests, and what goes past it."},
};

constexpr std::array files = {
    Entry{"~/.local/share/Harrowick Veltry/veltry.sqlite", "The store: projects, nodes, runs, conversations."},
    Entry{"~/.local/share/Harrowick Veltry/settings.toml", "The settings."},
    Entry{"~/.local/share/Harrowick Veltry/Runs/ID", "A run's folder: its snapshot, log, result and telemetry."},
    Entry{"~/.local/share/Harrowick Veltry/Papers", "Beside the store: the PDFs that were downloaded."},
    Entry{".veltry/worktrees", "In a project's folder: a worktree for each node, hidden from git status."},
};

constexpr std::array statuses = {
    Entry{"0", "Success."},
    Entry{"1", "It failed; standard error tells in one line what, and what to do."},
    Entry{"2", "The command line could not be understood."},
    Entry{"130", "It was interrupted."},
};

constexpr std::string_view start = R"(.SH NAME
veltry \- experiments that coding agents plan, run and compare, at the terminal
.SH SYNOPSIS
.B veltry
.I COMMAND
.RI [ ARGUMENT ...]
.SH DESCRIPTION
A project is a git repository, and its experiments form a tree: a node is one experiment, a branch with a worktree of
its own, and a run executes the project's command on a snapshot of a commit. Coding agents work on it through
.BR veltry\-tools (1).
With
.B veltry
a person registers projects, watches and compares what comes of them, and answers what agents ask.
.PP
A command works with the project whose folder holds the current directory. A node is named by the end of its branch,
its title or the start of its id, a run by its number or the start of its id.
.PP
What was asked for goes to standard output, what was done to standard error. Text is cut to the terminal's width and
coloured on a terminal alone.
.SH COMMANDS
)";

constexpr std::string_view ending = R"(.SH SEE ALSO
.BR veltry\-tools (1),
.BR git (1)
)";

/// Harmless to the formatter wherever it stands in a line.
std::string escaped(std::string_view text)
{
    std::string result;
    for (const char32_t scalar : text::scalars(text))
        // The formatter prints these as typographic characters otherwise, which nobody can copy into a shell.
        if (scalar == U'\\')
            result += "\\e";
        else if (scalar == U'-')
            result += "\\-";
        else if (scalar == U'\'')
            result += "\\(aq";
        else if (scalar == U'~')
            result += "\\(ti";
        else if (scalar == U'^')
            result += "\\(ha";
        else if (scalar == U'`')
            result += "\\(ga";
        else if (scalar < 128)
            result += static_cast<char>(scalar);
        else
            result += fmt::format("\\[u{:04X}]", static_cast<std::uint32_t>(scalar));
    // A line that begins with a full stop would be a request to the formatter.
    return result.starts_with('.') ? "\\&" + result : result;
}

std::string bold(std::string_view text)
{
    return "\\fB" + escaped(text) + "\\fR";
}

std::string italic(std::string_view text)
{
    return "\\fI" + escaped(text) + "\\fR";
}

/// A term and, indented below it, what is said of it.
std::string item(const std::string& term, const std::string& text)
{
    return ".TP\n" + term + "\n" + text + "\n";
}

template <typename Entries>
std::string section(std::string_view title, const Entries& entries)
{
    std::string text = fmt::format(".SH {}\n", title);
    for (const Entry& entry : entries)
        text += item(bold(entry.name), escaped(entry.text));
    return text;
}

std::string sentence(const Option& option)
{
    std::string text = escaped(option.help) + ".";
    if (!option.choices.empty())
        text += " One of " + escaped(text::replacingAll(option.choices, " ", ", ")) + ".";
    if (option.count == Option::Count::required && !option.isArgument())
        text += " Required.";
    if (mayRepeat(option) && !option.isArgument())
        text += " May be given several times.";
    return text;
}

std::string itemOf(const Option& option)
{
    std::string term;
    for (const std::string& name : namesOf(option))
        term += (term.empty() ? "" : ", ") + (option.isArgument() ? italic(name) : bold(name));
    if (!option.value.empty())
        term += " " + italic(option.value);
    return item(term, sentence(option));
}

std::string placeOf(const Option& argument)
{
    using Count = Option::Count;
    const std::string name = italic(argument.names) + (mayRepeat(argument) ? "..." : "");
    return argument.count == Count::optional || argument.count == Count::many ? "[" + name + "]" : name;
}

std::string sectionOf(const Command& command)
{
    std::string call = bold("veltry " + std::string(command.name));
    for (const Option& option : command.options)
        if (!option.isArgument() && option.count == Option::Count::required)
            call += " " + bold(option.name()) + " " + italic(option.value);
    call += " [" + italic("OPTION") + "...]";
    for (const Option& argument : placesOf(command))
        call += " " + placeOf(argument);
    std::string text = fmt::format(".SS {}\n{}\n.PP\n{}.\n", escaped(command.name), call, escaped(command.summary));
    if (!command.details.empty())
        text += fmt::format(".PP\n{}\n", escaped(command.details));
    for (const Option& option : command.options)
        text += itemOf(option);
    std::string common;
    for (const Option& option : CommandTable::commonOptions(command))
        common += (common.empty() ? "" : ", ") + bold(option.name());
    if (!common.empty())
        text += ".PP\nTakes " + common + " (see COMMON OPTIONS).\n";
    if (!command.example.empty()) {
        text += ".PP\n.RS\n.EX\n";
        for (const std::string_view line : text::split(command.example, '\n'))
            text += escaped(line) + "\n";
        text += ".EE\n.RE\n";
    }
    return text;
}

std::string commonSection()
{
    const Command all{
        .name = {},
        .summary = {},
        .example = {},
        .scope = Command::Scope::project,
        .hasJSON = true,
        .options = {},
        .run = nullptr};
    std::string text = ".SH COMMON OPTIONS\nEach command says which of these it takes.\n";
    for (const Option& option : optionsOf(all))
        text += itemOf(option);
    return text + itemOf({"--version", "", "Tell the version, and end; without a command"});
}

/// A cell of a Markdown table without its marks.
std::string plainCell(std::string_view cell)
{
    const std::string without = text::replacingAll(text::replacingAll(cell, "`", ""), "**", "");
    return std::string(text::trimmed(without));
}

/// The cells of "| a | b |"; nothing for any other line.
std::vector<std::string> cellsOf(std::string_view line)
{
    line = text::trimmed(line);
    std::vector<std::string> cells;
    if (line.size() < 2 || !line.starts_with('|') || !line.ends_with('|'))
        return cells;
    for (const std::string_view cell : text::split(line.substr(1, line.size() - 2), '|'))
        cells.push_back(plainCell(cell));
    return cells;
}

/// The page's first table: its first column names the setting, the headings of the others lead their cells.
std::string settingsSection(std::string_view page)
{
    std::string text = ".SH SETTINGS\n" + bold("veltry settings") +
                       " shows, changes and checks them. They stand in settings.toml, each in its table.\n";
    std::vector<std::string> headings;
    for (const std::string_view line : text::split(page, '\n')) {
        const std::vector<std::string> cells = cellsOf(line);
        if (cells.empty() && !headings.empty())
            break;
        if (cells.empty() || cells.front().find_first_not_of(":-") == std::string::npos)
            continue;
        if (headings.empty()) {
            headings = cells;
            continue;
        }
        std::string about;
        for (std::size_t index = 1; index < std::min(cells.size(), headings.size()); ++index)
            if (!cells[index].empty())
                about += (about.empty() ? "" : "\n.br\n") + escaped(headings[index] + ": " + cells[index]);
        text += item(bold(cells.front()), about);
    }
    return text;
}

} // namespace

std::string manual(std::string_view settingsPage)
{
    std::string page = ".\\\" Made from the table of commands.\n.TH VELTRY 1 \"\" \"veltry " VELTRY_VERSION
                       "\" \"Veltry\"\n" +
                       std::string(start);
    for (const Command* command : shownCommands())
        page += sectionOf(*command);
    return page + commonSection() + settingsSection(settingsPage) + section("ENVIRONMENT", environment) +
           section("FILES", files) + section("EXIT STATUS", statuses) + std::string(ending);
}

} // namespace veltry::Pages
