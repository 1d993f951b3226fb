#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Words/DiffText.h"

#include <fmt/format.h>

#include <array>

namespace veltry::Commands {

namespace {

void diff(Context& context, const Arguments& arguments)
{
    const Experiment node = context.nodeOrHere(arguments.text("NODE"));
    const Changes changes = context.workingLab().changes(node);
    if (context.json()) {
        JSONValue document = toJSON(changes);
        if (arguments.has("--stat"))
            for (JSONValue& file : *document.object()->at("files").array())
                file.object()->erase("hunks");
        return context.printJSON(document);
    }
    if (changes.files.empty())
        return context.note(fmt::format("{} changes nothing against {}.", node.title, changes.against));
    context.print(DiffText::summary(changes, context.out()));
    context.print(
        arguments.has("--stat") ? DiffText::stat(changes, context.out()) : DiffText::lines(changes, context.out()));
}

constexpr std::array diffOptions = {
    Option{
        "NODE", "",
        "The node, by the end of its branch, its title or id; by \"#3\" that of a run; in a worktree its own",
        Option::Count::optional, Option::Completion::node},
    Option{"--stat", "", "Only name the files and count their lines"},
};

constexpr std::array table = {
    Command{
        .name = "diff",
        .summary = "Show what a node changed against the node that it grew from",
        .example = "veltry diff slower-warm-up --stat",
        .hasJSON = true,
        .options = diffOptions,
        .run = &diff},
};

} // namespace

Family diffCommand()
{
    return table;
}

} // namespace veltry::Commands
