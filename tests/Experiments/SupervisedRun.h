#pragma once

#include "Experiments/Supervisor.h"
#include "Platform/Files.h"
#include "Projects/ProjectStore.h"
#include "Support/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <memory>
#include <string_view>

namespace veltry::test {

/// A queued run of one command with a store and a run folder of its own, whose snapshot is empty.
class SupervisedRun {
public:
    explicit SupervisedRun(
        std::string_view command, std::filesystem::path runs = {}, std::filesystem::path database = {})
        : store_(std::make_unique<ProjectStore>(database.empty() ? folder_ / "veltry.sqlite" : database))
    {
        const Project project = store_->createProject("P", {folder_.path()});
        Experiment experiment;
        experiment.id = UUID::random();
        experiment.projectID = project.id;
        experiment.slug = "baseline";
        experiment.branch = "veltry/baseline";
        experiment.title = "Baseline";
        experiment.runCommand = command;
        experiment.createdAt = Date::now();
        store_->insertExperiment(experiment);
        id_ = UUID::random();
        const std::filesystem::path directory = (runs.empty() ? folder_.path() : runs) / id_.text();
        Files::createFolders(store_->insertRun(id_, experiment, "commit", directory).source());
    }

    void supervise() { Supervisor::supervise(id_, *store_); }

    [[nodiscard]] const UUID& id() const { return id_; }

    [[nodiscard]] ProjectStore& store() { return *store_; }

    /// The row as it stands now.
    [[nodiscard]] Run row() const { return store_->run(id_).value(); }

    /// Writes a file of the run folder.
    void write(std::string_view name, std::string_view contents) const
    {
        std::ofstream(row().directory / name, std::ios::binary) << contents;
    }

private:
    TemporaryFolder folder_;
    std::unique_ptr<ProjectStore> store_;
    UUID id_;
};

} // namespace veltry::test
