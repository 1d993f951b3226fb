#include "Host/Context.h"

#include "Base/Text.h"
#include "Host/CommandLine/Nearest.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"

#include <fmt/format.h>

#include <algorithm>

namespace veltry {

namespace {

constexpr std::size_t shortestIDStart = 4;
constexpr std::size_t shownIDStart = 8; // characters, as the commands show it

/// Whether `given` is the id or a start of it, long enough to mean something.
bool names(std::string_view given, const UUID& id)
{
    return given.size() >= shortestIDStart && text::lowercased(id.text()).starts_with(text::lowercased(given));
}

/// Opening would make our tables in it, and change a damaged file. What else stands in the way the opening tells.
void refuseForeign(const std::filesystem::path& path)
{
    try {
        if (Files::exists(path) && ProjectStore::isForeign(path))
            throw Refusal(fmt::format(
                "{} is another program's database: it has tables, and none of Veltry's. Nothing was changed; name the "
                "store with --db or VELTRY_DATABASE_PATH.",
                path.string()));
    } catch (const DatabaseError& error) {
        if (error.isDamage())
            throw;
    }
}

std::shared_ptr<ProjectStore> opened(const std::filesystem::path& path)
{
    refuseForeign(path);
    try {
        return std::make_shared<ProjectStore>(path);
    } catch (const ProjectStoreError& error) {
        throw Refusal(fmt::format(
            "The store {} was made by a newer Veltry than this one, {}. Nothing was changed; use the newer program.",
            path.string(), VELTRY_VERSION));
    }
}

bool holds(const std::filesystem::path& folder, const std::filesystem::path& inner)
{
    return std::ranges::mismatch(folder, inner).in1 == folder.end();
}

const Project& projectNamed(const std::vector<Project>& projects, std::string_view given)
{
    std::vector<const Project*> found;
    std::vector<std::string> known;
    for (const Project& project : projects) {
        known.push_back(project.name);
        if (project.name == given || names(given, project.id))
            found.push_back(&project);
    }
    if (found.empty())
        throw Refusal(
            fmt::format("There is no project \"{}\".{} veltry projects lists them.", given, didYouMean(given, known)));
    if (found.size() > 1)
        throw Refusal(fmt::format(
            "{} projects match \"{}\". Name one by its id, which veltry projects shows.", found.size(), given));
    return *found.front();
}

/// The innermost, where one project's folder lies in another's.
const Project& projectAround(const std::vector<Project>& projects, const std::filesystem::path& directory)
{
    const Project* found = nullptr;
    std::size_t longest = 0;
    for (const Project& project : projects)
        for (const std::filesystem::path& folder : project.folders)
            if (const std::filesystem::path real = Context::realFolder(folder);
                real.native().size() >= longest && holds(real, directory)) {
                found = &project;
                longest = real.native().size();
            }
    if (found)
        return *found;
    std::string gone;
    for (const Project& project : projects)
        if (!project.folders.empty() && !Files::exists(project.folders.front()))
            gone += fmt::format(
                " The folder of {}, {}, is gone; if this is it: veltry project move . --project {}.", project.name,
                project.folders.front().string(), project.id.text().substr(0, shownIDStart));
    throw Refusal(fmt::format(
        "No project's folder contains {}.{} Change to one, name it with --project, or register this one: veltry init.",
        directory.string(), gone));
}

Refusal noRun(std::string_view given)
{
    return Refusal(fmt::format("There is no run \"{}\". veltry list shows the runs with their numbers.", given));
}

/// A name of several records is the name of none: whoever gets the oldest doesn't see that there were others.
template <typename Record>
void refuseSeveral(const std::vector<Record>& found, std::string_view given, std::string_view what)
{
    if (found.size() < 2)
        return;
    std::string ids;
    for (const Record& record : found)
        ids += (ids.empty() ? "" : ", ") + record.id.text();
    throw Refusal(fmt::format(
        "{} {} match \"{}\". Name one by its id or more of the start of it: {}.", found.size(), what, given, ids));
}

} // namespace

std::filesystem::path Context::realFolder(const std::filesystem::path& folder)
{
    std::error_code error;
    std::filesystem::path real = std::filesystem::canonical(folder, error);
    return error ? folder : real;
}

Refusal Context::refusal(const DatabaseError& error) const
{
    const std::string path = storePath().string();
    if (error.isDamage())
        return Refusal(fmt::format(
            "The store {} is damaged: {}. veltry doctor says more and offers to set it aside.", path, error.message));
    if (error.isBusy())
        return Refusal(fmt::format(
            "The store {} is busy: another program has been writing to it for ten seconds. Try again.", path));
    return Refusal(fmt::format(
        "The store {} can't be read or written: {}. Is the path right, and may you write there?", path, error.message));
}

void Context::printJSON(const JSONValue& document) const
{
    out_.write(document.prettyText() + "\n");
}

void Context::note(std::string_view line) const
{
    notes_.write(std::string(line) + "\n");
}

std::filesystem::path Context::storePath() const
{
    const std::filesystem::path path = common_.database.value_or(ProjectStore::defaultPath());
    if (path.empty())
        throw Refusal("VELTRY_DATABASE_PATH is empty. Unset it, or let it name the store's file.");
    return std::filesystem::absolute(path);
}

const std::shared_ptr<ProjectStore>& Context::store()
{
    if (!store_ && !Files::exists(storePath()))
        throw Refusal(fmt::format(
            "There is no store {} yet. veltry init, in the folder of your code, makes it, and so does veltry new "
            "TITLE.",
            storePath().string()));
    return storeMadeIfMissing();
}

const std::shared_ptr<ProjectStore>& Context::storeMadeIfMissing()
{
    if (!store_)
        store_ = opened(storePath());
    return store_;
}

const Project& Context::project()
{
    if (!project_) {
        const std::vector<Project> projects = store()->projects();
        project_ = common_.project ? projectNamed(projects, *common_.project)
                                   : projectAround(projects, std::filesystem::current_path());
    }
    return *project_;
}

const Lab& Context::lab()
{
    if (!lab_) {
        const Project& mine = project();
        if (mine.folders.empty())
            throw Refusal(
                fmt::format("The project {} has no folder. Add its repository: veltry project add-folder.", mine.name));
        lab_.emplace(store(), mine, Lab::defaultRuns(), tools());
    }
    return *lab_;
}

const Lab& Context::workingLab()
{
    const Project& mine = lab().project;
    if (!Files::isFolder(mine.folders.front()))
        throw Refusal(fmt::format(
            "The folder of the project {}, {}, is gone. {}", mine.name, mine.folders.front().string(), movedFolder));
    return *lab_;
}

Experiment Context::node(std::string_view given)
{
    if (given.starts_with('#'))
        return nodeOf(run(given));
    const std::optional<UUID> id = UUID::parse(given);
    const std::vector<Experiment> all = store()->experiments(project().id);
    std::vector<std::string> known;
    std::vector<const Experiment*> found;
    for (const Experiment& node : all) {
        known.push_back(node.slug);
        if (node.slug == given || node.branch == given || node.id == id)
            return node;
        if (text::lowercased(node.title) == text::lowercased(given) || names(given, node.id))
            found.push_back(&node);
    }
    if (found.size() == 1)
        return *found.front();
    if (found.size() > 1)
        throw Refusal(fmt::format(
            "{} nodes match \"{}\". Name one by the end of its branch: {}, {}.", found.size(), given, found[0]->slug,
            found[1]->slug));
    throw Refusal(fmt::format("There is no node \"{}\".{} veltry tree lists them.", given, didYouMean(given, known)));
}

Experiment Context::nodeOrHere(const std::optional<std::string>& given)
{
    if (given)
        return node(*given);
    const std::filesystem::path here = std::filesystem::current_path();
    for (Experiment& node : store()->experiments(project().id))
        if (holds(lab().worktree(node), here))
            return std::move(node);
    throw UsageError(
        fmt::format("Name a node: {} lies in no node's worktree. veltry tree lists the nodes.", here.string()));
}

Run Context::run(std::string_view given)
{
    std::optional<Run> found = findRun(given);
    if (!found)
        throw noRun(given);
    return std::move(*found);
}

Run Context::runOrLatest(const std::optional<std::string>& given)
{
    if (given && namesRun(*given))
        return run(*given);
    if (std::optional<Run> found = given ? findRun(*given) : std::nullopt) // by the start of its id
        return std::move(*found);
    const Experiment node = nodeOrHere(given);
    std::optional<Run> latest;
    for (Run& run : store()->runs(project().id))
        if (run.experimentID == node.id && (!latest || latest->number < run.number))
            latest = std::move(run);
    if (!latest)
        throw Refusal(fmt::format("{} has no run yet. Start one: veltry run {}.", node.title, node.slug));
    return std::move(*latest);
}

std::optional<Run> Context::findRun(std::string_view given)
{
    const std::string_view name = given.starts_with('#') ? given.substr(1) : given;
    std::optional<Run> found;
    if (const std::optional<std::int64_t> number = text::integer(name))
        found = store()->run(*number, project().id);
    if (const std::optional<UUID> id = UUID::parse(name); id && !found)
        found = store()->run(*id);
    if (found && found->projectID == project().id)
        return found;
    std::vector<Run> begun;
    if (name.size() >= shortestIDStart)
        for (Run& run : store()->runs(project().id))
            if (names(name, run.id))
                begun.push_back(std::move(run));
    refuseSeveral(begun, given, "runs");
    return begun.empty() ? std::nullopt : std::optional(std::move(begun.front()));
}

/// The start of an id may be digits alone as well, but whoever copies one copies more of them than a number has.
bool Context::namesRun(std::string_view given)
{
    if (given.starts_with('#') || (given.size() < shownIDStart && text::integer(given)))
        return true;
    const std::optional<UUID> id = UUID::parse(given);
    return id && !store()->experiment(*id);
}

Context::Look Context::look(const std::vector<std::string>& given)
{
    const Lab& lab = this->lab();
    std::vector<std::optional<Run>> runs;
    std::vector<UUID> nodes;
    for (const std::string& name : given) {
        const std::optional<Run>& named = runs.emplace_back(namesRun(name) ? std::optional(run(name)) : std::nullopt);
        nodes.push_back(named ? nodeOf(*named).id : node(name).id);
    }
    Look look{.tree = lab.treeAround(nodes), .named = {}};
    for (std::size_t index = 0; index < given.size(); ++index) {
        const Run* now = runs[index] ? look.tree.findRun(runs[index]->id) : nullptr;
        if (runs[index] && !now)
            throw noRun(given[index]); // it was removed meanwhile
        look.named.push_back({.node = look.tree.find(nodes[index]), .run = now});
    }
    return look;
}

Experiment Context::nodeOf(const Run& run)
{
    std::optional<Experiment> node = store()->experiment(run.experimentID);
    if (!node)
        throw Refusal(fmt::format("The node of run #{} is gone from the store, or its row can't be read.", run.number));
    return std::move(*node);
}

std::string Context::titleOf(const Run& run)
{
    const std::optional<Experiment> node = store()->experiment(run.experimentID);
    return node ? node->title : "";
}

Conversation Context::conversation(std::string_view given)
{
    std::vector<std::string> known;
    std::vector<Conversation> found;
    for (Conversation& conversation : store()->conversations(project().id)) {
        known.push_back(conversation.title);
        if (conversation.title == given || names(given, conversation.id))
            found.push_back(std::move(conversation));
    }
    refuseSeveral(found, given, "conversations");
    if (!found.empty())
        return std::move(found.front());
    throw Refusal(fmt::format(
        "There is no conversation \"{}\".{} veltry conversations lists them.", given, didYouMean(given, known)));
}

AgentQuestions Context::round(std::string_view given)
{
    if (const std::optional<UUID> id = UUID::parse(given))
        if (std::optional<AgentQuestions> round = store()->questions(*id)) {
            if (round->status != AgentQuestions::Status::open)
                throw Refusal(fmt::format("The round {} is closed: it was {}.", given, toWord(round->status)));
            return std::move(*round);
        }
    std::vector<AgentQuestions> open = store()->openRounds(project().id);
    if (const std::optional<std::int64_t> place = text::integer(given); place && *place >= 1)
        if (const auto index = static_cast<std::size_t>(*place - 1); index < open.size())
            return std::move(open[index]);
    const bool isNone = open.empty();
    std::erase_if(open, [&](const AgentQuestions& round) { return !names(given, round.id); });
    refuseSeveral(open, given, "rounds");
    if (!open.empty())
        return std::move(open.front());
    throw Refusal(
        isNone ? fmt::format("There is no round \"{}\": no agent of the project is asking anything.", given)
               : fmt::format("There is no round \"{}\". veltry questions lists the open ones.", given));
}

std::filesystem::path Context::settingsPath()
{
    return std::filesystem::absolute(VeltrySettings::defaultPath());
}

VeltrySettings Context::settings()
{
    return VeltrySettings::load(settingsPath());
}

std::filesystem::path Context::tools()
{
    return ProcessFacts::executable().parent_path() / "veltry-tools";
}

} // namespace veltry
