#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Terminal/Progress.h"
#include "Host/Terminal/Prompt.h"
#include "Host/Terminal/TextTable.h"
#include "Host/Views/DiskUse.h"
#include "Literature/PaperFiles.h"
#include "Platform/Files.h"

#include <fmt/format.h>

#include <array>
#include <optional>

namespace veltry::Commands {

namespace {

constexpr std::size_t namedFiles = 5; // of those that a run wrote itself

std::vector<Lab> labs(Context& context, bool all)
{
    if (!all)
        return {context.workingLab()};
    std::vector<Lab> result;
    for (const Project& project : context.store()->projects())
        if (!project.folders.empty())
            result.emplace_back(context.store(), project, Lab::defaultRuns(), Context::tools());
    return result;
}

void weigh(Context& context, const std::vector<Lab>& projects)
{
    std::optional<Progress> progress(std::in_place, context.notes(), "Adding up sizes");
    const std::uint64_t papers = DiskUse::weight(PaperFiles::beside(context.storePath()).folder);
    JSONValue::Array rows;
    TextTable table(
        {{.heading = "project", .mayBeCut = true},
         {.heading = "snapshots", .toTheRight = true},
         {.heading = "logs and results", .toTheRight = true},
         {.heading = "worktrees", .toTheRight = true}});
    for (const Lab& lab : projects) {
        const DiskUse::Project use = DiskUse::project(lab);
        rows.push_back(JSONValue::object(
            {{"project", lab.project.name},
             {"projectID", lab.project.id.text()},
             {"snapshots", use.snapshots},
             {"records", use.records},
             {"worktrees", use.worktrees}}));
        table.add(
            {{lab.project.name, Style::bold},
             {shownBytes(use.snapshots)},
             {shownBytes(use.records)},
             {shownBytes(use.worktrees)}});
    }
    progress.reset();
    if (context.json())
        return context.printJSON(JSONValue::object({{"projects", std::move(rows)}, {"papers", papers}}));
    context.print(table.text(context.out()));
    context.print(fmt::format("PDFs of papers, of all projects: {}\n", shownBytes(papers)));
}

std::uint64_t sum(const std::vector<DiskUse::Snapshot::File>& files)
{
    std::uint64_t bytes = 0;
    for (const DiskUse::Snapshot::File& file : files)
        bytes += file.bytes;
    return bytes;
}

/// A run whose snapshot could be compared with its commit, and what the comparison found.
struct Candidate {
    const Lab* lab;
    Run run;
    DiskUse::Snapshot snapshot;
};

std::vector<Candidate> candidates(const Context& context, const std::vector<Lab>& projects)
{
    std::optional<Progress> progress(std::in_place, context.notes(), "Comparing with the commits");
    std::vector<Candidate> found;
    std::vector<std::string> left;
    for (const Lab& lab : projects)
        for (Run& run : lab.store->runs(lab.project.id))
            try {
                DiskUse::Snapshot snapshot = DiskUse::snapshot(lab, run);
                if (!snapshot.committed.empty() || !snapshot.own.empty())
                    found.push_back({&lab, std::move(run), std::move(snapshot)});
            } catch (const Error& error) { // its commit is gone, or the whole repository
                left.push_back(fmt::format(
                    "Run {} of {} is left as it is: {}", run.number, lab.project.name,
                    text::oneLine(error.description())));
            }
    progress.reset();
    for (const std::string& line : left)
        context.note(line);
    return found;
}

void list(const Context& context, const std::vector<Candidate>& found)
{
    if (context.json()) {
        JSONValue::Array rows;
        for (const Candidate& one : found) {
            JSONValue::Array own;
            for (const DiskUse::Snapshot::File& file : one.snapshot.own)
                own.push_back(JSONValue::object({{"path", file.path.string()}, {"bytes", file.bytes}}));
            rows.push_back(JSONValue::object(
                {{"run", one.run.number},
                 {"projectID", one.run.projectID.text()},
                 {"committed", sum(one.snapshot.committed)},
                 {"own", std::move(own)}}));
        }
        return context.printJSON(rows);
    }
    for (const Candidate& one : found) {
        context.print(fmt::format(
            "#{}  {} in {} of the commit; {} of its own in {}\n", one.run.number,
            shownBytes(sum(one.snapshot.committed)), counted(std::ssize(one.snapshot.committed), "file", "files"),
            shownBytes(sum(one.snapshot.own)),
            counted(std::ssize(one.snapshot.own), "file that stays", "files that stay")));
        for (std::size_t index = 0; index < std::min(namedFiles, one.snapshot.own.size()); ++index)
            context.print(fmt::format(
                "    {:>10}  {}\n", shownBytes(one.snapshot.own[index].bytes),
                text::oneLine(one.snapshot.own[index].path.string())));
        if (one.snapshot.own.size() > namedFiles)
            context.print(fmt::format("    and {} more\n", one.snapshot.own.size() - namedFiles));
    }
}

void disk(Context& context, const Arguments& arguments)
{
    const std::vector<Lab> projects = labs(context, arguments.has("--all"));
    if (!arguments.has("--free"))
        return weigh(context, projects);
    const std::vector<Candidate> found = candidates(context, projects);
    list(context, found);
    std::uint64_t committed = 0;
    for (const Candidate& one : found)
        committed += sum(one.snapshot.committed);
    if (committed == 0)
        return context.note("There is nothing to free.");
    const std::string question =
        fmt::format("Remove {} of files that git has as well? Everything else stays.", shownBytes(committed));
    if (!arguments.has("--yes") && !Prompt::confirms(context.notes(), question))
        return context.note("Nothing was removed. --yes removes without asking.");
    std::uint64_t released = 0;
    for (const Candidate& one : found)
        released += DiskUse::release(*one.lab, one.run);
    context.note(fmt::format("Freed {}.", shownBytes(released)));
}

constexpr std::array options = {
    Option{"--free", "", "List the files of ended runs' snapshots that git has as well, and remove them after asking"},
    Option{"--yes", "", "With --free: remove without asking"},
    Option{"--all", "", "For all projects"},
};

constexpr std::array table = {
    Command{
        .name = "disk",
        .summary = "Show how much room snapshots, logs, worktrees and PDFs take, and free what git has as well",
        .example = "veltry disk --all\nveltry disk --free",
        .hasJSON = true,
        .options = options,
        .run = &disk},
};

} // namespace

Family diskCommand()
{
    return table;
}

} // namespace veltry::Commands
