#include "Host/Views/NodeState.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

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

} // namespace

NodeState nodeState(const ExperimentTree::Node& node)
{
    using enum Run::Status;
    if (node.runs.empty())
        return NodeState::fresh;
    if (const auto live = std::ranges::find_if(node.runs, [](const Run* run) { return !run->isFinished(); });
        live != node.runs.end())
        return (*live)->status == queued ? NodeState::queued : NodeState::running;
    if (node.isFrozen())
        return NodeState::frozen;
    const Run::Status last = node.runs.back()->status;
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

} // namespace veltry
