#include "Base/Date.h"
#include "Experiments/RunLog/RunLog.h"
#include "History.h"
#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"
#include "Programs.h"
#include "Rows.h"

#include <fmt/format.h>

#include <cerrno>
#include <ctime>
#include <thread>

namespace veltry::bench {

namespace {

/// A `veltry` that goes on until this value ends.
class Watcher {
public:
    explicit Watcher(ChildProcess::Command command) : process_(start(std::move(command))) {}
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;
    ~Watcher()
    {
        ChildProcess::terminateGroup(process_);
        static_cast<void>(ChildProcess::wait(process_));
    }

    /// Of all its threads, in seconds since its start.
    [[nodiscard]] double processorTime() const
    {
        clockid_t clock{};
        timespec time{};
        if (const int error = ::clock_getcpuclockid(process_, &clock); error != 0)
            throw SystemError("could not find the clock of the process", error);
        if (::clock_gettime(clock, &time) != 0)
            throw SystemError("could not read the clock of the process", errno);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
    }

private:
    static pid_t start(ChildProcess::Command command)
    {
        command.group = ChildProcess::Group::own;
        return ChildProcess::start(command);
    }

    pid_t process_;
};

/// What a watching command takes of a core in a second in which nothing happens, while a run is in flight.
Measured idle(const Workplace& place, std::vector<std::string> arguments)
{
    const History history(place.folder, "store", History::middling);
    const Run run = history.store().runsInFlight(history.project()).runs.front();
    Files::writeAtomically(run.log(), "step 1 loss 1.0123\n");
    RunLog::stampWhole(run.log(), Date::now(), 0.01);
    Files::writeAtomically(run.telemetryFile(), "{\"step\": 1, \"loss\": 1.0123}\n");
    for (std::string& argument : arguments)
        if (argument == "RUN")
            argument = std::to_string(run.number);

    constexpr double seconds = 3;
    const Watcher watcher(veltryCommand(place, std::move(arguments), &history.lab()));
    std::this_thread::sleep_for(std::chrono::seconds(1)); // it has read and drawn by then
    const double before = watcher.processorTime();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    return {.ours = (watcher.processorTime() - before) / seconds, .limit = 0.010};
}

} // namespace

Measured treeWatchIdle(const Workplace& place)
{
    return idle(place, {"tree", "--watch"});
}

Measured questionsWatchIdle(const Workplace& place)
{
    return idle(place, {"questions", "--watch"});
}

Measured logFollowIdle(const Workplace& place)
{
    return idle(place, {"log", "RUN", "-f"});
}

Measured chartsFollowIdle(const Workplace& place)
{
    return idle(place, {"charts", "RUN", "--follow"});
}

} // namespace veltry::bench
