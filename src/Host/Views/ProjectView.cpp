#include "Host/Views/ProjectView.h"

namespace veltry {

ProjectView::ProjectView(const Lab& lab)
{
    for (Experiment& record : lab.experiments()) {
        Node& node = nodes_.emplace_back();
        node.record = std::move(record);
        byID_.emplace(node.record.id, &node);
    }
    for (Run& run : lab.reconciledRuns())
        if (const auto node = byID_.find(run.experimentID); node != byID_.end())
            node->second->runs.push_back(std::move(run));
    for (Citation& citation : lab.store->citations(lab.project.id))
        if (const auto node = byID_.find(citation.experimentID); node != byID_.end())
            node->second->citations.push_back(std::move(citation));
    connect();
}

void ProjectView::connect()
{
    std::vector<Node*> open; // from each baseline down; a ring, which a foreign writer may have made, is never entered
    for (Node& node : nodes_) {
        if (const Run* answer = answerAmong(node.runs))
            node.result = resultValues(*answer);
        const auto parent = node.record.parentID ? byID_.find(*node.record.parentID) : byID_.end();
        if (parent == byID_.end()) {
            open.push_back(&node);
            continue;
        }
        node.parent = parent->second;
        parent->second->children.push_back(&node);
    }
    while (!open.empty()) {
        const Node* node = open.back();
        open.pop_back();
        for (const Node* child : node->children) {
            Node* below = byID_.at(child->record.id);
            below->baseline = node->baseline ? node->baseline : node;
            open.push_back(below);
        }
    }
}

} // namespace veltry
