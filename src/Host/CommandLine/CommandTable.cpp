#include "Host/CommandLine/CommandTable.h"

#include "Host/Commands/Commands.h"

#include <algorithm>

namespace veltry::CommandTable {

namespace {

constexpr std::array groupTable = {
    Group{"project", "Change a registered project"},
};

constexpr Option databaseOption = {
    "--db", "FILE", "The store, in place of the default one", Option::Count::optional, Option::Completion::file};
constexpr Option projectOption = {
    "--project", "NAME-OR-ID", "The project; by default the one whose folder holds the current directory",
    Option::Count::optional, Option::Completion::project};
constexpr Option jsonOption = {"--json", "", "Write JSON, for programs"};

} // namespace

const std::vector<Command>& commands()
{
    // Made when it is first asked for: the families are in other sources, whose order of initialisation nobody knows.
    static const std::vector<Command> all = [] {
        std::vector<Command> rows;
        for (const std::span<const Command> family : Commands::families())
            rows.insert(rows.end(), family.begin(), family.end());
        return rows;
    }();
    return all;
}

const Command* find(std::string_view name)
{
    const auto found = std::ranges::find(commands(), name, &Command::name);
    return found == commands().end() ? nullptr : &*found;
}

std::span<const Group> groups()
{
    return groupTable;
}

std::vector<Option> commonOptions(const Command& command)
{
    std::vector<Option> options;
    if (command.hasJSON)
        options.push_back(jsonOption);
    if (command.scope == Command::Scope::project)
        options.push_back(projectOption);
    if (command.scope != Command::Scope::nothing)
        options.push_back(databaseOption);
    return options;
}

} // namespace veltry::CommandTable
