#include "Base/Text.h"
#include "Experiments/Git.h"
#include "Experiments/Lab.h"
#include "Host/CommandLine/Nearest.h"
#include "Host/Commands/Commands.h"
#include "Host/Commands/SharedOptions.h"
#include "Host/Context.h"
#include "Host/Registration/Init.h"
#include "Host/Terminal/Progress.h"
#include "Platform/Async/Awaited.h"
#include "Platform/Files.h"
#include "Platform/Leftover.h"
#include "Projects/FolderListing.h"
#include "Projects/NewProjectFolder.h"
#include "Projects/Templates.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string>

namespace veltry::Commands {

namespace {

using Count = Option::Count;
using Completion = Option::Completion;
using Scope = Command::Scope;

constexpr const char* plainTemplate = "empty";

/// Where the project's folder goes. Not into a worktree, whose files belong to an experiment.
std::filesystem::path parentFolder(const Arguments& arguments)
{
    const std::optional<std::string> given = arguments.text("--in");
    std::filesystem::path parent =
        given ? std::filesystem::weakly_canonical(std::filesystem::absolute(*given)) : NewProjectFolder::defaultRoot();
    if (Files::exists(parent) && !Files::isFolder(parent))
        throw Refusal(fmt::format("{} is not a folder. Name the folder in which to make the project's.", *given));
    if (fmt::format("{}/", parent.string()).contains(fmt::format("/{}/", Lab::worktrees)))
        throw Refusal(fmt::format("{} belongs to an experiment. Name a folder outside its project.", parent.string()));
    return parent;
}

Refusal noTemplate(const std::string& starter, const std::vector<std::string>& known)
{
    return Refusal(fmt::format(
        "There is no template {}.{} These are there: {}.", starter, didYouMean(starter, known),
        text::joined(known, ", ")));
}

/// The archive that holds the template, downloaded where it must be: before there is a folder, since that may take
/// long.
Templates::LocalArchive archiveWith(const Context& context, const std::string& starter)
{
    Templates::Archive archive = Templates::archive();
    if (!Templates::isName(starter) && std::holds_alternative<Templates::WebAddress>(archive))
        throw Refusal(
            fmt::format("There is no template {}. A template's name has small letters, digits and hyphens.", starter));
    const Progress progress(context.notes(), "Fetching the template");
    Templates::LocalArchive local = awaited(Templates::local(std::move(archive)));
    const std::vector<std::string> known = awaited(Templates::names(local.path()));
    if (!std::ranges::binary_search(known, starter))
        throw noTemplate(starter, known);
    return local;
}

/// Makes the folder and fills it. Left empty it goes away again; what tar wrote before it failed stays.
std::filesystem::path filledFolder(
    const Context& context, const std::string& title, const std::filesystem::path& parent, const std::string& starter)
{
    const Templates::LocalArchive archive = archiveWith(context, starter);
    Leftover folder(NewProjectFolder::make(title, parent), Leftover::What::ifEmpty);
    std::filesystem::path path = folder.path();
    try {
        awaited(Templates::fetch(starter, path, archive.path()));
    } catch (const Templates::Missing&) { // it is there, but holds nothing
    } catch (...) {
        if (!std::filesystem::is_empty(path))
            context.note(fmt::format("{} stays, with what was unpacked.", path.string()));
        throw;
    }
    folder.keep();
    return path;
}

void makeFirstCommit(const std::filesystem::path& folder, const std::string& starter)
{
    try {
        Git(folder).initialize(fmt::format("Begin with the template {}", starter));
    } catch (const Git::Failure& failure) { // a commit may have to be signed, say
        throw Refusal(fmt::format(
            "git could not make the first commit: {}. {} stays as it is; commit there, then register it: veltry init.",
            failure.output, folder.string()));
    }
}

/// The store is opened first, so that no folder is made for a project that can't be registered.
void makeProject(Context& context, const Arguments& arguments)
{
    const std::string given = arguments.required("TITLE");
    const std::string title(text::trimmed(given));
    if (title.empty())
        throw UsageError("The title is blank.");
    const std::string starter = arguments.text("--template").value_or(plainTemplate);
    const std::filesystem::path parent = parentFolder(arguments);
    static_cast<void>(context.storeMadeIfMissing());

    const std::filesystem::path folder = filledFolder(context, title, parent, starter);
    makeFirstCommit(folder, starter);
    context.note(fmt::format("Made {} from the template {}, with a first commit.", folder.string(), starter));
    Init::run(context, {.folder = folder, .name = title, .client = arguments.text("--client").value_or("common")});
}

JSONValue recordOf(const FolderEntry& entry)
{
    return JSONValue::object({{"url", text::repaired(entry.path.string())}, {"isDirectory", entry.isDirectory}});
}

std::string lineOf(const FolderEntry& entry, const Terminal& terminal)
{
    const std::string name = text::oneLine(entry.name());
    return entry.isDirectory ? terminal.styled(Style::blue, name + '/') + '\n' : name + '\n';
}

/// Without PATH it lists the project's own folders; most projects have one.
void listFiles(Context& context, const Arguments& arguments)
{
    std::vector<std::filesystem::path> folders;
    if (const std::optional<std::string> given = arguments.text("PATH"))
        folders = {std::filesystem::absolute(*given).lexically_normal()};
    else
        folders = context.project().folders;

    JSONValue::Array records;
    std::string lines;
    for (const std::filesystem::path& folder : folders) {
        if (folders.size() > 1)
            lines += fmt::format(
                "{}{}:\n", lines.empty() ? "" : "\n",
                context.out().styled(Style::bold, text::oneLine(folder.string())));
        for (const FolderEntry& entry : FolderListing::entries(folder)) {
            records.push_back(recordOf(entry));
            lines += lineOf(entry, context.out());
        }
    }
    if (context.json())
        return context.printJSON(JSONValue(std::move(records)));
    context.print(lines);
}

constexpr std::array newOptions = {
    Option{"TITLE", "", "What the project is called; its folder is named after it", Count::required},
    Option{
        "--template", "NAME", "What the folder starts with; \"empty\" by default", Count::optional,
        Completion::starter},
    Option{
        "--in", "FOLDER", "Where the project's folder is made; HarrowickVeltry in your home by default",
        Count::optional, Completion::folder},
    clientOption,
};
constexpr std::array filesOptions = {
    Option{"PATH", "", "The folder to list; by default the project's own", Count::optional, Completion::folder},
};

constexpr std::array table = {
    Command{
        .name = "new",
        .summary = "Make a project: a folder from a template, with a first commit, and registered as init does",
        .example = "veltry new \"Digits\" --template python-baseline --in ~/code",
        .scope = Scope::store,
        .options = newOptions,
        .run = &makeProject},
    Command{
        .name = "files",
        .summary = "List the contents of a folder as people look for them: folders first, numbers in their order",
        .example = "veltry files src",
        .hasJSON = true,
        .options = filesOptions,
        .run = &listFiles},
};

} // namespace

Family folderCommands()
{
    return table;
}

} // namespace veltry::Commands
