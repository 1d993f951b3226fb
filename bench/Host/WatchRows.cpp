#include "Base/Date.h"
#include "Experiments/RunLog/RunLog.h"
#include "History.h"
#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Platform/SystemError.h"
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
    Watcher(const Workplace& place, const History& history, std::vector<std::string> arguments)
        : process_(start(place, history, std::move(arguments)))
    {
    }
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
    static pid_t start(const Workplace& place, const History& history, std::vector<std::string> arguments)
    {
        ChildProcess::Environment environment = ProcessFacts::environment();
        environment["XDG_DATA_HOME"] = (place.folder / "data").string();
        arguments.insert(arguments.end(), {"--db", history.store().path().string(), "--project", "Bench"});
        return ChildProcess::start(
            {.executable = place.tools.parent_path() / "veltry",
             .arguments = std::move(arguments),
             .environment = std::move(environment),
             .directory = place.folder,
             .input = {},
             .output = {},
             .error = {},
             .group = ChildProcess::Group::own});
    }

    pid_t process_;
};

/// What a watching command takes of a core in a second in which nothing happens, while a run is in flight.
Measured idle(const Workplace& place, std::vector<std::string> arguments)
{
    const History history(place.folder, "store", {.nodes = 1'000, .runs = 10'000});
    Files::createFolders(place.folder / "project");
    const Run run = history.store().runsInFlight(history.project()).runs.front();
    Files::writeAtomically(run.log(), "step 1 loss 1.0123\n");
    RunLog::stampWhole(run.log(), Date::now(), 0.01);
    Files::writeAtomically(run.telemetryFile(), "{\"step\": 1, \"loss\": 1.0123}\n");
    for (std::string& argument : arguments)
        if (argument == "RUN")
            argument = std::to_string(run.number);

    constexpr double seconds = 3;
    const Watcher watcher(place, history, std::move(arguments));
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
