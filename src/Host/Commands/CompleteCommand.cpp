#include "Base/Text.h"
#include "Host/CommandLine/CompletionKinds.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Platform/Async/Awaited.h"
#include "Projects/Templates.h"

#include <fmt/format.h>

#include <array>
#include <ranges>
#include <string>
#include <vector>

namespace veltry::Commands {

namespace {

using Completion = Option::Completion;

struct Value {
    std::string text;
    std::string about;
};

using Values = std::vector<Value>;

Values projects(Context& context)
{
    Values values;
    for (const Project& project : context.store()->projects())
        values.push_back({project.name, project.folders.empty() ? "" : project.folders.front().string()});
    return values;
}

/// Archived ones, which are seldom meant, last.
Values nodes(Context& context)
{
    const std::vector<Experiment> all = context.store()->experiments(context.project().id);
    Values values;
    for (const bool archived : {false, true})
        for (const Experiment& node : all)
            if (node.archived == archived)
                values.push_back({node.slug, node.title});
    return values;
}

/// The newest first: who names a run most often means one of the last.
Values runs(Context& context)
{
    const UUID& project = context.project().id;
    const ExperimentTree tree(context.store()->experiments(project), context.store()->runs(project));
    Values values;
    for (const Run& run : tree.runs() | std::views::reverse)
        if (const ExperimentTree::Node* node = tree.find(run.experimentID))
            values.push_back(
                {std::to_string(run.number), fmt::format("{}, {}", node->record.title, toWord(run.status))});
    return values;
}

Values rounds(Context& context)
{
    Values values;
    for (const AgentQuestions& round : context.store()->openRounds(context.project().id))
        values.push_back({round.id.text(), round.questions.empty() ? "" : round.questions.front().question});
    return values;
}

Values conversations(Context& context)
{
    Values values;
    for (const Conversation& conversation : context.store()->conversations(context.project().id))
        values.push_back({conversation.id.text(), conversation.title});
    return values;
}

Values settings(Context& /*context*/)
{
    Values values;
    for (const VeltrySettings::Key& key : VeltrySettings::keys())
        values.push_back({key.text(), ""});
    return values;
}

/// Those of an archive on this machine: nobody downloads one for a key.
Values starters(Context& /*context*/)
{
    Values values;
    const Templates::Archive archive = Templates::archive();
    if (std::holds_alternative<std::filesystem::path>(archive))
        for (std::string& name : awaited(Templates::names(archive)))
            values.push_back({std::move(name), ""});
    return values;
}

struct Source {
    Completion kind;
    Values (*values)(Context& context);
};

constexpr std::array sources = {
    Source{Completion::project, &projects},
    Source{Completion::node, &nodes},
    Source{Completion::run, &runs},
    Source{Completion::round, &rounds},
    Source{Completion::conversation, &conversations},
    Source{Completion::setting, &settings},
    Source{Completion::starter, &starters},
};
static_assert(sources.size() == CompletionKinds::table.size());

/// Whoever presses a key in the middle of a line wants no message: whatever fails gives no values.
void complete(Context& context, const Arguments& arguments)
try {
    const std::string what = arguments.text("WHAT").value_or("");
    const std::string prefix = arguments.text("PREFIX").value_or("");
    for (const Source& source : sources) {
        if (CompletionKinds::word(source.kind) != what)
            continue;
        std::string lines;
        for (const Value& value : source.values(context))
            if (value.text.starts_with(prefix))
                lines += fmt::format("{}\t{}\n", text::oneLine(value.text), text::oneLine(value.about));
        context.print(lines);
    }
} catch (const std::exception&) { // no project here, no store yet, a store that can't be read
}

constexpr std::array options = {
    Option{"WHAT", "", "The kind of value"},
    Option{"PREFIX", "", "How it begins"},
};

constexpr std::array table = {
    Command{
        .name = "complete",
        .summary = "Write the values that a shell may offer, each with a tab and what it is",
        .example = "veltry complete node base",
        .hidden = true,
        .options = options,
        .run = &complete},
};

} // namespace

Family completeCommand()
{
    return table;
}

} // namespace veltry::Commands
