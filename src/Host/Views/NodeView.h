#pragma once

#include "Base/JSONValue.h"
#include "Experiments/Lab.h"
#include "Host/Terminal/TextTable.h"
#include "Host/Views/ResultValues.h"

#include <optional>
#include <string_view>
#include <vector>

namespace veltry {

/// How a node stands, from its runs.
enum class NodeState { fresh, queued, running, frozen, failed, cancelled, unanswered };

/// What happens now before what was: a run in flight, then a result, then how the last run ended without one. `runs`
/// are the node's own, by number.
[[nodiscard]] NodeState nodeState(const std::vector<Run>& runs);
/// "new", "queued", "running", "frozen", "failed", "cancelled", "no result".
[[nodiscard]] std::string_view stateText(NodeState state);
[[nodiscard]] Style stateStyle(NodeState state);
[[nodiscard]] Style statusStyle(Run::Status status);
/// "succeeded", "failed (exit 3)", "running, asked to stop".
[[nodiscard]] std::string statusText(const Run& run);

/// One node, with the results that its own is measured by.
struct NodeView {
    Experiment node;
    std::vector<Run> runs; ///< its own, by number; closed where their supervisor is gone
    std::optional<Experiment> parent;
    std::optional<Experiment> baseline; ///< above all; nothing for a baseline itself
    std::vector<Experiment> children;   ///< the oldest first
    ResultValues result;                ///< of the run that speaks for the node, as are the next two
    ResultValues parentResult;
    ResultValues baselineResult;

    /// Costs what the runs of these nodes cost, however many the project has.
    [[nodiscard]] static NodeView of(const Lab& lab, const Experiment& node);
};

/// The values' differences to the numbers of the same name in `reference`, by key.
[[nodiscard]] JSONValue differencesJSON(const ResultValues& values, const ResultValues& reference);

} // namespace veltry
