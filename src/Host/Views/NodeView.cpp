#include "Host/Views/NodeView.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <set>
#include <unordered_map>

namespace veltry {

namespace {

struct StateRow {
    std::string_view text;
    Style style;
};

// In the order of NodeState.
constexpr std::array<StateRow, 7> states = {{
    {"new", Style::dim},
    {"queued", Style::cyan},
    {"running", Style::cyan},
    {"frozen", Style::green},
    {"failed", Style::red},
    {"cancelled", Style::yellow},
    {"no result", Style::yellow},
}};

ResultValues answerOf(const Lab& lab, const UUID& node)
{
    const std::vector<Run> runs = lab.store->runsOfExperiment(node);
    const Run* answer = answerAmong(runs);
    return answer ? resultValues(*answer) : ResultValues();
}

} // namespace

NodeState nodeState(const std::vector<Run>& runs)
{
    using enum Run::Status;
    if (runs.empty())
        return NodeState::fresh;
    if (const auto live = std::ranges::find_if(runs, [](const Run& run) { return !run.isFinished(); });
        live != runs.end())
        return live->status == queued ? NodeState::queued : NodeState::running;
    if (answerAmong(runs))
        return NodeState::frozen;
    const Run::Status last = runs.back().status;
    return last == failed ? NodeState::failed : last == cancelled ? NodeState::cancelled : NodeState::unanswered;
}

std::string_view stateText(NodeState state)
{
    return states.at(static_cast<std::size_t>(state)).text;
}

Style stateStyle(NodeState state)
{
    return states.at(static_cast<std::size_t>(state)).style;
}

Style statusStyle(Run::Status status)
{
    switch (status) {
    case Run::Status::queued:
    case Run::Status::running:
        return Style::cyan;
    case Run::Status::succeeded:
        return Style::green;
    case Run::Status::failed:
        return Style::red;
    case Run::Status::cancelled:
        return Style::yellow;
    }
    return Style::plain;
}

std::string statusText(const Run& run)
{
    const std::string_view status = toWord(run.status);
    if (!run.isFinished())
        return std::string(status) + (run.cancelRequested ? ", asked to stop" : "");
    if (run.exitCode && *run.exitCode != 0)
        return fmt::format("{} (exit {})", status, *run.exitCode);
    return std::string(status);
}

NodeView NodeView::of(const Lab& lab, const Experiment& node)
{
    NodeView view;
    view.node = node;
    view.runs = lab.store->runsOfExperiment(node.id);
    lab.reconcile(view.runs);
    if (const Run* answer = answerAmong(view.runs))
        view.result = resultValues(*answer);

    std::unordered_map<UUID, const Experiment*> byID;
    const std::vector<Experiment> all = lab.experiments();
    for (const Experiment& other : all) {
        byID.emplace(other.id, &other);
        if (other.parentID == node.id)
            view.children.push_back(other);
    }
    std::set<UUID> seen; // a foreign writer may have made a ring
    const Experiment* above = nullptr;
    for (std::optional<UUID> next = node.parentID; next && byID.contains(*next) && seen.insert(*next).second;
         next = above->parentID) {
        above = byID.at(*next);
        if (!view.parent)
            view.parent = *above;
    }
    if (!above)
        return view;
    view.baseline = *above;
    view.parentResult = answerOf(lab, view.parent->id);
    view.baselineResult = view.baseline->id == view.parent->id ? view.parentResult : answerOf(lab, view.baseline->id);
    return view;
}

JSONValue differencesJSON(const ResultValues& values, const ResultValues& reference)
{
    JSONValue::Object differences;
    for (const ResultValue& value : values)
        if (const double* other = findNumber(reference, value.key);
            other && value.number() && std::isfinite(*value.number() - *other))
            differences.emplace(value.key, *value.number() - *other);
    return differences;
}

} // namespace veltry
