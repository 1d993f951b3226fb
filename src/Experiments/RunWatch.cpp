#include "Experiments/RunWatch.h"

namespace veltry {

RunWatch::RunWatch(const Lab& lab) : lab_(&lab)
{
    ProjectStore::RunLook look = lab.store->runsInFlight(lab.project.id);
    // First, or a run whose supervisor was killed would be waited for without an end.
    lab.reconcile(look.runs);
    for (const Run& run : look.runs)
        if (!run.isFinished())
            waiting_.insert(run.id);
    keepInFlight(look);
}

std::vector<Run> RunWatch::finishedSince()
{
    ProjectStore::RunLook look = lab_->store->lookAgain(lab_->project.id, inFlight_, lastRowID_);
    lab_->reconcile(look.runs);
    std::vector<Run> finished;
    for (const Run& run : look.runs)
        // A run is told once; one that started later was never waited for.
        if (run.isFinished() && waiting_.erase(run.id) > 0)
            finished.push_back(run);
    keepInFlight(look);
    return finished;
}

void RunWatch::keepInFlight(const ProjectStore::RunLook& look)
{
    // What is waited for stays, even if its row couldn't be read this time.
    inFlight_.assign(waiting_.begin(), waiting_.end());
    for (const Run& run : look.runs)
        if (!run.isFinished() && !waiting_.contains(run.id))
            inFlight_.push_back(run.id);
    lastRowID_ = look.lastRowID;
}

} // namespace veltry
