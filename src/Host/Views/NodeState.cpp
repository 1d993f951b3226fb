#include "Host/Views/NodeState.h"

#include "Base/Words.h"
#include "Host/Words/RunWords.h"

#include <fmt/format.h>

#include <algorithm>

namespace veltry {

namespace {

struct StateRow {
    NodeState value;
    std::string_view word;
    Style style;
};

} // namespace

template <>
constexpr auto wordsOf<NodeState> = std::to_array<StateRow>({
    {NodeState::fresh, "new", Style::dim},
    {NodeState::queued, "queued", Style::cyan},
    {NodeState::running, "running", Style::cyan},
    {NodeState::frozen, "frozen", Style::green},
    {NodeState::failed, "failed", Style::red},
    {NodeState::cancelled, "cancelled", Style::yellow},
    {NodeState::unanswered, "no result", Style::yellow},
});

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
    return toWord(state);
}

Style stateStyle(NodeState state)
{
    return rowOf(state).style;
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
    if (const std::string_view lost = RunWords::withoutEnd(run); !lost.empty())
        return fmt::format("{} ({})", status, lost);
    return std::string(status);
}

} // namespace veltry
