#pragma once

#include "Base/JSONValue.h"
#include "Experiments/ExperimentTree.h"

#include <filesystem>

/// Nodes and runs as --json shows them: the fields of their records (RecordJSON), and what the tree knows besides. Each
/// is an object, to which a command adds what it alone shows.
namespace veltry::TreeJSON {

/// The record with `state` and `frozen`.
[[nodiscard]] JSONValue of(const ExperimentTree::Node& node);
/// The same in a list of many: `runs` with number and status, `papers` by their ids.
[[nodiscard]] JSONValue brief(const ExperimentTree::Node& node);
/// The same alone: `runs` and `citations` in full, `children` by their ids, `worktree`, and the `differences` of its
/// values.
[[nodiscard]] JSONValue full(const ExperimentTree::Node& node, const std::filesystem::path& worktree);

/// The record with its node's `node` (its slug) and `title`.
[[nodiscard]] JSONValue of(const Run& run, const ExperimentTree::Node& node);

/// By key, for the numbers that both sides have.
[[nodiscard]] JSONValue differences(const ResultValues& values, const ResultValues& reference);
/// `parent` and `baseline` with the differences to each.
[[nodiscard]] JSONValue differences(
    const ResultValues& values, const ResultValues& parent, const ResultValues& baseline);

} // namespace veltry::TreeJSON
