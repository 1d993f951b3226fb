#pragma once

#include "Experiments/ResultValues.h"
#include "Projects/Experiment.h"
#include "Projects/Paper.h"
#include "Projects/Run.h"

#include <cassert>
#include <cstddef>
#include <span>
#include <unordered_map>
#include <vector>

namespace veltry {

/// A project's nodes, runs and citations as one look at the store saw them, joined. Whatever shows, writes or checks a
/// tree takes this, so that who is whose child and what freezes a node is worked out in one place. Lab::tree() and
/// Lab::treeAround() take the look.
///
/// It never changes. It may be moved, and pointers into it stay good; it isn't copied. Parents always come to an end:
/// the oldest node of a ring, which only another program can have made, counts as one whose parent is gone.
class ExperimentTree {
public:
    /// What a node's values are measured by: those of its parent and of its baseline. Empty where there is none, or
    /// none with a result.
    struct References {
        ResultValues parent;
        ResultValues baseline;
    };

    struct Node {
        Experiment record;
        const Node* parent = nullptr;           ///< null for a baseline, and where the parent is gone
        const Node* baseline = nullptr;         ///< the one above all; null where there is no parent
        std::vector<const Node*> children;      ///< the oldest first
        std::vector<const Run*> runs;           ///< by number
        std::vector<const Citation*> citations; ///< the oldest first
        /// The run that speaks for the node: the last that has a result, however it ended. Null while there is none.
        const Run* answer = nullptr;
        /// False for the other nodes in a look around some: whether they have runs nobody asked.
        bool runsAreKnown = true;

        /// A result fixes the node's code for good.
        [[nodiscard]] bool isFrozen() const
        {
            assert(runsAreKnown);
            return answer != nullptr;
        }

        /// The values of its answer, none without one. Each call reads the result's text anew.
        [[nodiscard]] ResultValues values() const;
        [[nodiscard]] References references() const;
    };

    /// Records in the store's order: nodes and citations by age, runs by number. A run or a citation of another node is
    /// nobody's.
    explicit ExperimentTree(
        std::vector<Experiment> nodes, std::vector<Run> runs = {}, std::vector<Citation> citations = {});
    ExperimentTree(ExperimentTree&&) = default;
    ExperimentTree& operator=(ExperimentTree&&) = default;
    ExperimentTree(const ExperimentTree&) = delete;
    ExperimentTree& operator=(const ExperimentTree&) = delete;
    ~ExperimentTree() = default;

    /// The same nodes, with the runs of `asked` alone. For a tree without runs.
    [[nodiscard]] ExperimentTree withRunsOf(
        std::span<const Node* const> asked, std::vector<Run> runs, std::vector<Citation> citations) &&;

    /// The oldest first.
    [[nodiscard]] const std::vector<Node>& nodes() const { return nodes_; }
    /// All that were read, by number.
    [[nodiscard]] const std::vector<Run>& runs() const { return runs_; }
    /// Null if there is none with that id.
    [[nodiscard]] const Node* find(const UUID& id) const;
    /// The same for a run that was read. Goes through all of them.
    [[nodiscard]] const Run* findRun(const UUID& id) const;

    struct Place {
        const Node* node;
        std::size_t depth; ///< 0 for a root
    };

    enum class Archived { hidden, shown };
    /// All that is to be seen, each node before its children. One whose parent isn't seen, for it is gone or hidden,
    /// is a root.
    [[nodiscard]] std::vector<Place> depthFirst(Archived archived) const;

private:
    void joinParents();
    void settleBelow(Node& root);
    void cutRingAbove(const Node& node);
    void joinRuns();
    Node* nodeWith(const UUID& id);
    Node& own(const Node* node) { return nodes_[static_cast<std::size_t>(node - nodes_.data())]; }

    std::vector<Node> nodes_; // never grows once they point at each other
    std::vector<Run> runs_;
    std::vector<Citation> citations_;
    std::unordered_map<UUID, Node*> byID_;
};

} // namespace veltry
