#pragma once

#include "Experiments/ExperimentTree.h"
#include "Host/Terminal/TextTable.h"

#include <string>
#include <string_view>

namespace veltry {

/// How a node stands, from its runs.
enum class NodeState { fresh, queued, running, frozen, failed, cancelled, unanswered };

/// What happens now before what was: a run in flight, then a result, then how the last run ended without one.
[[nodiscard]] NodeState nodeState(const ExperimentTree::Node& node);
/// "new", "queued", "running", "frozen", "failed", "cancelled", "no result".
[[nodiscard]] std::string_view stateText(NodeState state);
[[nodiscard]] Style stateStyle(NodeState state);
[[nodiscard]] Style statusStyle(Run::Status status);
/// "succeeded", "failed (exit 3)", "running, asked to stop".
[[nodiscard]] std::string statusText(const Run& run);

} // namespace veltry
