#include "Base/Numbers.h"
#include "Experiments/RunProcesses.h"
#include "Experiments/RunWatch.h"
#include "Host/Commands/Commands.h"
#include "Host/Commands/SharedOptions.h"
#include "Host/Context.h"
#include "Host/Terminal/Notices.h"
#include "Host/Terminal/Progress.h"
#include "Host/Views/LiveRun.h"
#include "Host/Views/RecordJSON.h"
#include "Host/Words/RunWords.h"

#include <fmt/format.h>

#include <array>
#include <chrono>
#include <thread>

namespace veltry::Commands {

namespace {

using Clock = std::chrono::steady_clock;
using Count = Option::Count;
using Completion = Option::Completion;

constexpr std::chrono::milliseconds betweenLooks(100);

void tell(const Context& context, const Run& run)
{
    context.json() ? context.printJSON(RecordJSON::of(run))
                   : context.print(RunWords::state(run) + "\n" + RunWords::result(run));
}

/// So that the exit status tells of a run that didn't succeed, and the message what to do about it.
void refuseUnlessSucceeded(const Run& run)
{
    if (run.status != Run::Status::succeeded)
        throw Refusal(fmt::format(
            "Run #{} {}. veltry log {} shows what it printed.", run.number,
            run.status == Run::Status::failed ? "failed" : "was cancelled", run.number));
}

/// A length of time in seconds.
std::optional<double> secondsOf(const Arguments& arguments, std::string_view option)
{
    const std::optional<double> seconds = arguments.number(option);
    if (seconds && !(*seconds >= 0 && *seconds < 1e9))
        throw UsageError(fmt::format("{} takes seconds, 0 or more; it is {}.", option, *seconds));
    return seconds;
}

Clock::time_point deadlineOf(const Arguments& arguments)
{
    const std::optional<double> seconds = secondsOf(arguments, "--timeout");
    return seconds ? Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*seconds))
                   : Clock::time_point::max();
}

/// Looks until the run has ended. `eachLook` is called in between, and may throw.
template <typename Work>
Run ended(Context& context, const Run& run, Work eachLook)
{
    LiveRun live(context, run);
    const Progress progress(context.notes(), fmt::format("Waiting for run #{}", run.number));
    while (!live.look().isFinished()) {
        eachLook(live.run());
        std::this_thread::sleep_for(betweenLooks);
    }
    return live.run();
}

void start(Context& context, const Arguments& arguments)
{
    const Experiment node = context.nodeOrHere(arguments.text("NODE"));
    Lab lab = context.workingLab();
    ProcessID supervisor = 0; // it outlives us, but while we wait we are its parent
    lab.adopt = [&](ProcessID started) { supervisor = started; };
    const Run run = [&] {
        const Progress progress(context.notes(), "Making the run's copy of the code");
        return lab.launch(node.id, Context::settings().maxRuns);
    }();
    const bool waits = arguments.has("--wait");
    if (!waits)
        return context.json() ? context.printJSON(RecordJSON::of(run))
                              : context.print(fmt::format(
                                    "Run #{} of {} started, on commit {}. veltry log {} -f follows it.\n", run.number,
                                    node.slug, RunWords::commit(run), run.number));
    context.note(fmt::format("Run #{} of {} started, on commit {}.", run.number, node.slug, RunWords::commit(run)));
    const Run last = ended(context, run, [&](const Run&) {
        if (supervisor > 0 && ChildProcess::reapIfEnded(supervisor))
            supervisor = 0;
    });
    tell(context, last);
    refuseUnlessSucceeded(last);
}

/// Calls a person who looks elsewhere while the command waits.
void notify(const Context& context, const Run& run)
{
    if (context.notes().isTerminal())
        Notices(context.notes())
            .tell(Notices::Subject::run, Context::settings(), fmt::format("Run #{}", run.number), RunWords::state(run));
}

void waitForOne(Context& context, const Run& run, Clock::time_point deadline)
{
    const Run last = ended(context, run, [&](const Run& now) {
        if (Clock::now() >= deadline)
            throw Refusal(RunWords::state(now) + " The time to wait for it is over.");
    });
    notify(context, last);
    tell(context, last);
    refuseUnlessSucceeded(last);
}

void waitForAll(Context& context, bool forAnyOne, Clock::time_point deadline)
{
    const Lab& lab = context.lab();
    RunWatch watch(lab);
    if (watch.waiting() == 0)
        return context.json() ? context.printJSON(JSONValue::Array()) : context.note("No run is in flight.");
    JSONValue::Array records;
    std::string unsuccessful;
    bool isLate = false;
    for (bool isEnough = false; !isEnough;) {
        std::vector<Run> finished;
        {
            const Progress progress(context.notes(), fmt::format("Waiting for runs, {} in flight", watch.waiting()));
            while ((finished = watch.finishedSince()).empty() && Clock::now() < deadline)
                std::this_thread::sleep_for(betweenLooks);
        }
        for (const Run& run : finished) {
            notify(context, run);
            context.json() ? records.push_back(RecordJSON::of(run))
                           : context.print(RunWords::state(run) + "\n" + RunWords::result(run));
            if (run.status != Run::Status::succeeded)
                unsuccessful += fmt::format("{}#{}", unsuccessful.empty() ? "" : ", ", run.number);
        }
        isLate = finished.empty();
        isEnough = isLate || watch.waiting() == 0 || forAnyOne;
    }
    if (context.json())
        context.printJSON(std::move(records));
    if (isLate)
        throw Refusal(fmt::format(
            "{} still in flight. The time to wait is over.",
            counted(static_cast<std::int64_t>(watch.waiting()), "run is", "runs are")));
    if (!unsuccessful.empty())
        throw Refusal(fmt::format("These runs did not succeed: {}.", unsuccessful));
}

void wait(Context& context, const Arguments& arguments)
{
    const Clock::time_point deadline = deadlineOf(arguments);
    if (const std::optional<std::string> given = arguments.text("RUN"))
        return waitForOne(context, context.run(*given), deadline);
    waitForAll(context, arguments.has("--any"), deadline);
}

/// Asks it to stop and waits until it has; with a grace, also until none of its processes is left.
void stopAndWait(Context& context, const Run& given, std::optional<double> grace)
{
    const Lab& lab = context.lab();
    RunProcesses processes(given);
    Run run = lab.cancel(given.id);
    bool wasAsked = run.pid.has_value(); // a queued run has no process yet that could be told
    const Clock::time_point begin = Clock::now();
    LiveRun live(context, run);
    std::int64_t killed = 0;
    const auto isOver = [&] {
        run = live.look();
        return run.isFinished() && (!grace || processes.look(run).empty());
    };
    {
        const Progress progress(context.notes(), fmt::format("Waiting for run #{} to stop", run.number));
        while (!isOver()) {
            if (!wasAsked && run.pid && !run.isFinished()) {
                static_cast<void>(lab.cancel(run.id));
                wasAsked = true;
            }
            if (grace && std::chrono::duration<double>(Clock::now() - begin).count() >= *grace)
                killed += static_cast<std::int64_t>(processes.kill(run));
            std::this_thread::sleep_for(betweenLooks);
        }
    }
    if (killed > 0)
        context.note(counted(killed, "process was ended by force.", "processes were ended by force."));
    tell(context, run);
}

void cancel(Context& context, const Arguments& arguments)
{
    const std::optional<double> grace = secondsOf(arguments, "--kill-after");
    const Run run = context.run(arguments.required("RUN"));
    if (arguments.has("--wait") || grace)
        return stopAndWait(context, run, grace);
    const Run now = context.lab().cancel(run.id);
    if (context.json())
        return context.printJSON(RecordJSON::of(now));
    if (now.isFinished())
        return context.note(RunWords::state(now) + " There was nothing to stop.");
    context.note(fmt::format("Asked run #{} to stop.", now.number));
}

constexpr std::array startOptions = {
    Option{"NODE", "", "The node to run; in a node's worktree that one by default", Count::optional, Completion::node},
    Option{"--wait", "", "Wait until it has ended; the exit status is 1 if it did not succeed"},
};
constexpr std::array cancelOptions = {
    runOption,
    Option{"--wait", "", "Wait until it has ended"},
    Option{
        "--kill-after", "SECONDS",
        "Wait, and after this time end by force whatever is left of it, also daemons that it started"},
};
constexpr std::array waitOptions = {
    Option{"RUN", "", "The run to wait for; by default all runs in flight", Count::optional, Completion::run},
    Option{"--any", "", "Wait only until the first of them has ended"},
    Option{"--timeout", "SECONDS", "Give up after this time, with exit status 1"},
};

constexpr std::array table = {
    Command{
        .name = "run",
        .summary = "Run a node: commit what is pending in its worktree and start its command",
        .example = "veltry run lr-3e-5",
        .hasJSON = true,
        .options = startOptions,
        .run = &start},
    Command{
        .name = "cancel",
        .summary = "Ask a run to stop",
        .example = "veltry cancel 7 --kill-after 10",
        .hasJSON = true,
        .options = cancelOptions,
        .run = &cancel},
    Command{
        .name = "wait",
        .summary = "Wait for runs to end; the exit status is 1 if one did not succeed",
        .example = "veltry wait 7 --timeout 3600",
        .hasJSON = true,
        .options = waitOptions,
        .run = &wait},
};

} // namespace

Family runCommands()
{
    return table;
}

} // namespace veltry::Commands
