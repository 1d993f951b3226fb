#pragma once

#include "Projects/Experiment.h"
#include "Projects/Run.h"

#include <optional>
#include <string>

namespace veltry::test {

/// A node that no store holds, called the same everywhere.
inline Experiment node(const std::string& slug, const std::optional<UUID>& parent = {}, bool archived = false)
{
    return {
        .id = UUID::random(),
        .projectID = {},
        .parentID = parent,
        .slug = slug,
        .branch = "veltry/" + slug,
        .title = slug,
        .runCommand = "train",
        .archived = archived};
}

inline Run runOf(
    const Experiment& experiment, std::int64_t number, Run::Status status,
    const std::optional<std::string>& result = {})
{
    Run run;
    run.id = UUID::random();
    run.experimentID = experiment.id;
    run.number = number;
    run.status = status;
    run.result = result;
    return run;
}

} // namespace veltry::test
