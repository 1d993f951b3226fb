#include "History.h"

#include "Platform/Files.h"
#include "Programs.h"
#include "Projects/Database.h"

#include <fmt/format.h>

namespace veltry::bench {

namespace {

constexpr std::string_view insertExperiment = R"(INSERT INTO experiment
  (id, project_id, parent_id, slug, branch, title, notes, run_command, created_at)
VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?))";
constexpr std::string_view insertRun = R"(INSERT INTO run
  (id, experiment_id, project_id, number, status, commit_sha, command, directory, pid, exit_code, result, created_at,
   ended_at)
VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?))";

Experiment node(const Project& project, const std::vector<UUID>& earlier)
{
    const std::size_t number = earlier.size();
    const std::string slug = fmt::format("learning-rate-{}e-5-longer-warm-up", number);
    return {
        .id = UUID::random(),
        .projectID = project.id,
        .parentID = number == 0 ? std::nullopt : std::optional(earlier[(number - 1) / 3]),
        .slug = slug,
        .branch = "veltry/" + slug,
        .title = fmt::format("Learning rate {}e-5, longer warm-up", number),
        .notes = "The loss still falls at the end, so take bigger steps.\nSecond line.",
        .runCommand = "python3 train.py --config configs/small.toml",
        .archived = false,
        .conversationID = std::nullopt,
        .createdAt = Date::now()};
}

} // namespace

History::History(const std::filesystem::path& folder, std::string_view name, Size size)
    : lab_(makeLab(folder, folder / "project", {}, name)), lastNumber_(size.runs + inFlight)
{
    fill(size);
    for (const Run& run : store().unfinishedRuns()) {
        Files::createFolders(run.directory);
        supervisors_.push_back(FileLock::take(run.directory / "supervisor.lock"));
    }
}

void History::fill(Size size)
{
    std::vector<UUID> nodes;
    Database database(store().path());
    database.write([&](Connection& connection) {
        while (static_cast<std::int64_t>(nodes.size()) < size.nodes) {
            lastNode_ = node(lab_.project, nodes);
            nodes.push_back(lastNode_.id);
            connection.execute(
                insertExperiment, lastNode_.id, lastNode_.projectID, lastNode_.parentID, lastNode_.slug,
                lastNode_.branch, lastNode_.title, lastNode_.notes, lastNode_.runCommand, lastNode_.createdAt);
        }
        for (std::int64_t number = 1; number <= lastNumber_; ++number) {
            const bool ended = number <= size.runs;
            const UUID& owner =
                ended ? nodes[static_cast<std::size_t>(number * size.nodes / (size.runs + 1))] : nodes.back();
            const UUID id = UUID::random();
            const std::string result = fmt::format(R"({{"val_loss": 1.{:06}, "tokens_per_second": 9120}})", number);
            const Date moment = Date::now();
            connection.execute(
                insertRun, id, owner, lab_.project.id, number, ended ? "succeeded" : "running",
                fmt::format("{:040x}", number), lastNode_.runCommand, lab_.runsFolder / id.text(), number,
                ended ? std::optional(0) : std::nullopt, ended ? std::optional(result) : std::nullopt, moment,
                ended ? std::optional(moment) : std::nullopt);
        }
    });
}

} // namespace veltry::bench
