#include "Experiments/ExperimentTree.h"

#include <algorithm>
#include <ranges>
#include <unordered_set>

namespace veltry {

ResultValues ExperimentTree::Node::values() const
{
    return answer ? resultValues(*answer) : ResultValues();
}

ExperimentTree::References ExperimentTree::Node::references() const
{
    return {
        .parent = parent ? parent->values() : ResultValues(),
        .baseline = baseline ? baseline->values() : ResultValues()};
}

ExperimentTree::ExperimentTree(std::vector<Experiment> nodes, std::vector<Run> runs, std::vector<Citation> citations)
    : runs_(std::move(runs)), citations_(std::move(citations))
{
    // Parents, children and the map point at the nodes, which must not move from now on.
    nodes_.reserve(nodes.size());
    byID_.reserve(nodes.size());
    for (Experiment& record : nodes) {
        Node& node = nodes_.emplace_back();
        node.record = std::move(record);
        byID_.emplace(node.record.id, &node);
    }
    joinParents();
    joinRuns();
}

ExperimentTree ExperimentTree::withRunsOf(
    std::span<const Node* const> asked, std::vector<Run> runs, std::vector<Citation> citations) &&
{
    ExperimentTree tree = std::move(*this);
    for (Node& node : tree.nodes_)
        node.runsAreKnown = std::ranges::find(asked, &node) != asked.end();
    tree.runs_ = std::move(runs);
    tree.citations_ = std::move(citations);
    tree.joinRuns();
    return tree;
}

void ExperimentTree::joinParents()
{
    for (Node& node : nodes_)
        if (Node* parent = node.record.parentID ? nodeWith(*node.record.parentID) : nullptr) {
            node.parent = parent;
            parent->children.push_back(&node);
        }
    for (Node& node : nodes_)
        if (!node.parent)
            settleBelow(node);
    // Whoever has a parent and no baseline now was not met on the way down from a root: it lies in a ring, or below
    // one.
    for (Node& node : nodes_)
        if (node.parent && !node.baseline)
            cutRingAbove(node);
}

/// Tells all below a root what stands above all of them. Over a stack of its own, since a chain may be long.
void ExperimentTree::settleBelow(Node& root)
{
    std::vector<const Node*> open{&root};
    while (!open.empty()) {
        const Node* node = open.back();
        open.pop_back();
        for (const Node* child : node->children) {
            own(child).baseline = &root;
            open.push_back(child);
        }
    }
}

void ExperimentTree::cutRingAbove(const Node& node)
{
    std::unordered_set<const Node*> seen;
    const Node* inRing = &node;
    while (seen.insert(inRing).second)
        inRing = inRing->parent;
    const Node* oldest = inRing;
    for (const Node* next = inRing->parent; next != inRing; next = next->parent)
        // They lie by age, so the lowest address is the oldest one.
        oldest = std::min(oldest, next);
    Node& root = own(oldest);
    std::erase(own(root.parent).children, oldest);
    root.parent = nullptr;
    settleBelow(root);
}

void ExperimentTree::joinRuns()
{
    for (const Run& run : runs_)
        if (Node* node = nodeWith(run.experimentID)) {
            node->runs.push_back(&run);
            if (run.answered())
                // Runs come by number, so the last one stays.
                node->answer = &run;
        }
    for (const Citation& citation : citations_)
        if (Node* node = nodeWith(citation.experimentID))
            node->citations.push_back(&citation);
}

ExperimentTree::Node* ExperimentTree::nodeWith(const UUID& id)
{
    const auto found = byID_.find(id);
    return found == byID_.end() ? nullptr : found->second;
}

const ExperimentTree::Node* ExperimentTree::find(const UUID& id) const
{
    const auto found = byID_.find(id);
    return found == byID_.end() ? nullptr : found->second;
}

const Run* ExperimentTree::findRun(const UUID& id) const
{
    const auto found = std::ranges::find(runs_, id, &Run::id);
    return found == runs_.end() ? nullptr : &*found;
}

std::vector<ExperimentTree::Place> ExperimentTree::depthFirst(Archived archived) const
{
    const auto isSeen = [&](const Node& node) { return archived == Archived::shown || !node.record.archived; };
    std::vector<Place> places;
    std::vector<Place> open; // the next one last
    for (const Node& node : nodes_ | std::views::reverse)
        // A node whose parent is hidden stands at the top.
        if (isSeen(node) && !(node.parent && isSeen(*node.parent)))
            open.push_back({&node, 0});
    while (!open.empty()) {
        const Place place = open.back();
        open.pop_back();
        places.push_back(place);
        for (const Node* child : place.node->children | std::views::reverse)
            if (isSeen(*child))
                open.push_back({child, place.depth + 1});
    }
    return places;
}

} // namespace veltry
