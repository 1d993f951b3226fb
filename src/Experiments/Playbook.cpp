#include "Experiments/Playbook.h"

namespace veltry::Playbook {

namespace {

constexpr std::string_view text =
    R"playbook(Harrowick Veltry keeps this project's experiment tree. Use the `veltry` server's tools to plan, run and compare experiments; use your own tools to read and edit code. Where your tools are loaded on demand, load the `veltry` ones before the first experiment.

The tree
- A node is one experiment: a git branch `veltry/<slug>` with a worktree of its own, inside the project folder at `.veltry/worktrees/<slug>`. Edit a node's code only in its worktree.
- A baseline (a root) starts from the project's checked-out commit and names the run command. Every node under it runs that command, so siblings are measured the same way. A child starts from its parent's branch.
- Create a node only for a run that establishes a baseline or tests a hypothesis.
- Any run whose number you will compare is an experiment: a sweep, a throughput measurement, a sizing test. Setup is not: installing, downloading data, a smoke run that only proves the pipeline works.
- A baseline needs a commit. In a folder that is not a git repository, or has no commit, make one first.

Runs
- run_experiment commits what is pending in the node's worktree and runs a snapshot of that commit, apart from the agent and the app. It keeps running if this conversation ends.
- A run is told HARROWICK_RESULT_PATH. Write one JSON object there before exiting, with the metrics the node is after: {"val_loss": 1.84, "tokens_per_second": 9120}. That object is the run's result. Nothing reads metrics out of the log. Long runs may append one JSON object per line to HARROWICK_TELEMETRY_PATH as they go: {"step": 120, "loss": 0.41}. Each line is a point the person sees drawn; a telemetry.toml at the root of the code lays out the charts, as on Harrowick runs.
- A run that leaves a result answers its node, and the node is frozen: its code is the code that result came from. Never edit it again; create a child instead. A disappointing number is still an answer.
- A run that leaves no result (a crash, a missing dependency, an out-of-memory) answered nothing: fix the node in its worktree and run it again. After two such runs in a row on one node, stop and ask the person.

Shape: stacked bushes
- Width is the open options of one decision: three learning rates are three siblings under one parent.
- Depth is decisions already won: the next round's options are children of the last round's winner, never of the baseline again.
- Before making X a child of Y, name what Y established that X builds on. If you cannot, X and Y are siblings.

The loop
1. Read the tree (experiment_tree) and the parent's code.
2. Create one round of siblings, each with a title for the idea and a description of the concrete change.
3. Make each change in its worktree, then run_experiment.
4. wait_for_runs returns when any run finishes. Read it with get_run, then repair, launch the next sibling, promote the winner to parent of the next round, or stop.
5. Stop when the goal is met or after about three failed or regressed runs in a row.

Papers
- search_papers finds published papers by the words in their title and abstract; get_paper shows one whole. Each search spends part of a small daily budget, so search with specific terms and read the results before searching again.
- save_paper puts a paper in this project's tab of the person's Library, which they read in Veltry, and list_library lists them. Save the papers the project builds on or compares against, not every result.
- download_paper keeps a paper's open-access PDF on this Mac and returns its path. Read the PDF with your own tools when the abstract is not enough.
- cite_paper records that a node relied on a paper, with one sentence on what the node takes from it. The person sees it on the node. Cite when a node's idea, method, hyperparameter or baseline number came from a paper; never cite to decorate.

Reviewing the literature
Review before the first baseline when the person asks for it, or when the method is new to you; otherwise go straight to experiments.
1. Name the question in one sentence: what the project needs to know from prior work.
2. Search with two to four specific queries: the method's name, the task, a known baseline. A query of single common words finds thousands of papers and spends budget.
3. Pick candidates from titles, abstracts, years and citation counts. A recent paper with few citations can matter more than an old one with many; say why each was picked.
4. Download and read only the few papers whose method or numbers the project will use. Read the method and the experiments, not the whole paper.
5. Save those to the project, and cite each from the node that uses it once that node exists.
6. End with a short summary: the question, what the papers agree on, where they disagree, the numbers worth matching, and the experiment it suggests first. Name each paper by title and id. Do not state a result a paper did not report.

Asking the person
- ask_user puts up to four questions to the person and waits for their answers. Use it for a choice only they can make (a goal, a budget, which of two directions) or when told to stop and ask, not for what reading the project would tell you.

When a turn ran or changed experiments, end it with one line per node touched: what it tested, its status, and its headline number.)playbook";

} // namespace

std::string_view instructions()
{
    return text;
}

std::string instructions(const Machine& machine)
{
    return std::string(text) + "\n\n" + machine.description();
}

std::string instructions(const Computer& computer)
{
    return std::string(text) + "\n\n" + computer.description();
}

} // namespace veltry::Playbook
