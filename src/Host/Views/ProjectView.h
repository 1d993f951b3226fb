#pragma once

#include "Experiments/Lab.h"
#include "Host/Views/NodeView.h"
#include "Host/Views/ResultValues.h"

#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

namespace veltry {

/// A whole project as one look saw it: its nodes with their runs, in the tree's order. Runs whose supervisor is gone
/// are closed. Nothing in it changes.
class ProjectView {
public:
    struct Node {
        Experiment record;
        std::vector<Run> runs; ///< by number
        std::vector<Citation> citations;
        const Node* parent = nullptr;
        const Node* baseline = nullptr; ///< above all; null for a baseline
        std::vector<const Node*> children;
        ResultValues result; ///< of the run that speaks for the node
    };

    /// Throws what Lab::reconciledRuns() throws.
    explicit ProjectView(const Lab& lab);
    ProjectView(const ProjectView&) = delete;
    ProjectView& operator=(const ProjectView&) = delete;

    /// The oldest first.
    [[nodiscard]] const std::deque<Node>& nodes() const { return nodes_; }

private:
    void connect();

    std::deque<Node> nodes_;
    std::unordered_map<UUID, Node*> byID_;
};

} // namespace veltry
