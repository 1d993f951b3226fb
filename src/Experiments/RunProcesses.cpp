#include "Experiments/RunProcesses.h"

#include "Experiments/Supervisor.h"
#include "Platform/ProcessFacts.h"
#include "Platform/ProcessTable.h"

#include <chrono>
#include <thread>

namespace veltry {

namespace {

constexpr double longestStart = 10; // seconds
// A process may start another between the look and its end, so looks are repeated, for a second in all.
constexpr int rounds = 50;
constexpr std::chrono::milliseconds betweenRounds(20);

} // namespace

RunProcesses::RunProcesses(const Run& run)
{
    static_cast<void>(look(run));
}

const std::set<ProcessID>& RunProcesses::look(const Run& run)
{
    processes_.clear();
    const auto add = [this](const std::vector<ProcessID>& found) {
        for (const ProcessID process : found)
            if (process != ProcessFacts::id() && ProcessTable::usage(process))
                processes_.insert(process);
    };
    if (group_ == 0 && !groupIsOver_ && !run.isFinished())
        group_ = mayReachGroup(run) ? *run.pid : 0;
    if (group_ > 0)
        add(ProcessTable::group(group_));
    if (group_ > 0 && processes_.empty()) {
        // From now on the system may give the group's number to others.
        group_ = 0;
        groupIsOver_ = true;
    }
    // What left the group still carries the run's variables.
    add(ProcessTable::carriers(Supervisor::resultVariable, run.resultFile().string()));
    return processes_;
}

bool RunProcesses::mayReachGroup(const Run& run)
{
    if (!run.pid || *run.pid <= 1)
        return false;
    if (Supervisor::isAlive(run))
        return true;
    // The supervisor makes its lock's file and starts the shell at once.
    const std::optional<double> lockMade = Supervisor::begunAt(run);
    const std::optional<double> leaderBegan = ProcessTable::began(*run.pid);
    return !lockMade || !leaderBegan || *leaderBegan <= *lockMade + longestStart;
}

std::size_t RunProcesses::kill(const Run& run)
{
    std::size_t killed = 0;
    for (int round = 0; round < rounds && !look(run).empty(); ++round) {
        for (const ProcessID process : std::set<ProcessID>(processes_))
            killed += ProcessTable::kill(process, [&](ProcessID found) { return isOfRun(run, found); }) ? 1 : 0;
        std::this_thread::sleep_for(betweenRounds);
    }
    return killed;
}

bool RunProcesses::isOfRun(const Run& run, ProcessID process) const
{
    return (group_ > 0 && ProcessTable::isInGroup(process, group_)) ||
           ProcessTable::carries(process, Supervisor::resultVariable, run.resultFile().string());
}

} // namespace veltry
