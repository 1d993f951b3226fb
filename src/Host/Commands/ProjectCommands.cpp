#include "Base/Text.h"
#include "Host/ClientConfiguration.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Init.h"
#include "Host/RecordJSON.h"
#include "Host/Terminal/TextTable.h"
#include "Host/Terminal/Times.h"

#include <fmt/format.h>

#include <array>

namespace veltry::Commands {

namespace {

using Count = Option::Count;
using Completion = Option::Completion;
using Scope = Command::Scope;

void init(Context& context, const Arguments& arguments)
{
    Init::run(
        context, {.folder = arguments.text("FOLDER").value_or("."),
                  .name = arguments.text("--name"),
                  .client = arguments.text("--client").value_or("common")});
}

void projects(Context& context, const Arguments& /*arguments*/)
{
    const std::vector<Project> all = context.store()->projects();
    if (context.json()) {
        JSONValue::Array list;
        for (const Project& project : all)
            list.push_back(RecordJSON::of(project));
        return context.printJSON(JSONValue(std::move(list)));
    }
    TextTable table(
        {{.heading = "project"}, {.heading = "folder", .mayBeCut = true}, {.heading = "since"}, {.heading = "id"}});
    for (const Project& project : all)
        table.add({
            {project.name, Style::bold},
            {project.folders.empty() ? "" : project.folders.front().string()},
            {Times::ago(project.createdAt)},
            {project.id.text(), Style::dim},
        });
    if (table.isEmpty())
        return context.note("No project is registered yet. Go to the folder of your code and call veltry init.");
    context.print(table.text(context.out()));
}

void renameProject(Context& context, const Arguments& arguments)
{
    const Project project = context.project();
    const std::string given = arguments.required("NAME");
    const std::string_view name = text::trimmed(given);
    if (name.empty())
        throw UsageError("The new name is blank.");
    context.store()->renameProject(project.id, name);
    context.note(fmt::format("{} is now called {}.", project.name, name));
}

constexpr std::array initOptions = {
    Option{
        "FOLDER", "", "A folder of the repository; the project is the repository's top", Count::optional,
        Completion::folder},
    Option{"--name", "NAME", "The project's name; the folder's own by default"},
    Option{
        "--client", "CLIENT", "The client in whose form the block is written", Count::optional, Completion::none,
        ClientConfiguration::forms},
};
constexpr std::array renameOptions = {
    Option{"NAME", "", "The new name", Count::required},
};

constexpr std::array table = {
    Command{
        .name = "init",
        .summary = "Register a git repository as a project, and print what an MCP client needs to attach to it",
        .example = "veltry init ~/code/digits --name Digits",
        .scope = Scope::store,
        .options = initOptions,
        .run = &init},
    Command{
        .name = "projects",
        .summary = "List the projects",
        .example = "veltry projects",
        .scope = Scope::store,
        .hasJSON = true,
        .options = {},
        .run = &projects},
    Command{
        .name = "project rename",
        .summary = "Give a project another name",
        .example = "veltry project rename \"Digits, second try\"",
        .options = renameOptions,
        .run = &renameProject},
};

} // namespace

Family projectCommands()
{
    return table;
}

} // namespace veltry::Commands
