#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Experiments/Resources.h"
#include "Experiments/RunProcesses.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Terminal/Screen.h"
#include "Host/Terminal/Sparkline.h"
#include "Host/Terminal/TextTable.h"
#include "Host/Terminal/Times.h"
#include "Host/Words/RunWords.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <thread>

namespace veltry::Commands {

namespace {

using Count = Option::Count;
using Completion = Option::Completion;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds betweenReadings(1);
constexpr std::chrono::milliseconds firstPause(250); // between the two readings that tell the cores of a single look
constexpr std::size_t keptReadings = 300;

void keep(std::vector<double>& history, double value)
{
    if (history.size() == keptReadings)
        history.erase(history.begin());
    history.push_back(value);
}

/// What one run has used so far, as far as it was watched.
struct Usage {
    Usage(Run what, std::string name) : run(std::move(what)), title(std::move(name)) {}

    Run run;
    std::string title;
    std::optional<ResourceReading> reading; ///< nothing while it has no process
    std::optional<Resources::Moment> last;
    double cores = 0;
    std::vector<double> coresBefore; ///< the newest last, as is the next
    std::vector<double> memoryBefore;

    void read(ProcessTable::SharedPages shared)
    {
        reading = RunProcesses::mayReachGroup(run) ? Resources::read(*run.pid, shared) : std::nullopt;
        if (!reading) {
            last.reset();
            cores = 0;
            return;
        }
        const Resources::Moment now{.at = Clock::now(), .cpuSeconds = reading->cpuSeconds};
        if (last) {
            cores = Resources::cores(*last, now);
            keep(coresBefore, cores);
        }
        keep(memoryBefore, static_cast<double>(reading->memory));
        last = now;
    }
};

/// The runs in flight, or the one that was named.
class Watched {
public:
    Watched(Context& context, std::optional<UUID> only, ProcessTable::SharedPages shared)
        : context_(&context), only_(only), shared_(shared)
    {
    }

    void read()
    {
        std::vector<Run> runs = context_->store()->runsInFlight(context_->project().id).runs;
        context_->lab().reconcile(runs);
        std::erase_if(runs, [&](const Run& run) { return run.isFinished() || (only_ && run.id != *only_); });
        std::vector<Usage> usages;
        for (Run& run : runs) {
            const auto known = std::ranges::find(usages_, run.id, [](const Usage& usage) { return usage.run.id; });
            Usage usage = known == usages_.end() ? Usage(run, context_->titleOf(run)) : std::move(*known);
            usage.run = std::move(run);
            usage.read(shared_);
            usages.push_back(std::move(usage));
        }
        usages_ = std::move(usages);
        gpu_ = Resources::gpuUtilization();
        if (gpu_)
            keep(gpuBefore_, *gpu_);
    }

    [[nodiscard]] const std::vector<Usage>& usages() const { return usages_; }
    [[nodiscard]] bool isExact() const { return shared_ == ProcessTable::SharedPages::divide; }
    [[nodiscard]] std::optional<double> gpu() const { return gpu_; }
    [[nodiscard]] const std::vector<double>& gpuBefore() const { return gpuBefore_; }

private:
    Context* context_;
    std::optional<UUID> only_;
    ProcessTable::SharedPages shared_;
    std::vector<Usage> usages_;
    std::optional<double> gpu_;
    std::vector<double> gpuBefore_;
};

std::string percent(double part)
{
    return fmt::format("{:.0f} %", part * 100);
}

JSONValue json(const Watched& watched)
{
    JSONValue::Array runs;
    for (const Usage& usage : watched.usages()) {
        JSONValue record = usage.reading ? toJSON(*usage.reading) : JSONValue::object({});
        JSONValue::Object& fields = *record.object();
        fields["number"] = usage.run.number;
        fields["id"] = usage.run.id.text();
        fields["title"] = usage.title;
        fields["status"] = toWord(usage.run.status);
        if (usage.reading)
            fields["cores"] = usage.cores;
        runs.push_back(std::move(record));
    }
    return runs;
}

/// What stands in place of a reading. The run of a command that has ended is in flight until its row says otherwise.
std::string_view withoutReading(const Run& run)
{
    if (run.status == Run::Status::queued)
        return "queued";
    return run.pid ? "no process is left" : "starting";
}

std::string tableOf(const Watched& watched, const Terminal& terminal)
{
    TextTable table(
        {{.heading = "run"},
         {.heading = "node", .mayBeCut = true},
         {.heading = "for", .toTheRight = true},
         {.heading = "processes", .toTheRight = true},
         {.heading = "cores", .toTheRight = true},
         {.heading = watched.isExact() ? "memory" : "memory at most", .toTheRight = true}});
    for (const Usage& usage : watched.usages()) {
        std::vector<TextTable::Cell> row = {
            {fmt::format("#{}", usage.run.number), Style::bold},
            {usage.title},
            {Times::length(RunWords::seconds(usage.run))}};
        if (usage.reading) {
            row.push_back({std::to_string(usage.reading->processes)});
            row.push_back({fmt::format("{:.2f}", usage.cores), Style::cyan});
            row.push_back({shownBytes(usage.reading->memory), Style::magenta});
        } else {
            row.push_back({std::string(withoutReading(usage.run)), Style::dim});
            row.insert(row.end(), 2, {});
        }
        table.add(std::move(row));
    }
    std::string text = table.text(terminal);
    if (!watched.isExact())
        text +=
            terminal.styled(Style::dim, "Pages that forked processes share count for each of them; not with --exact.") +
            "\n";
    if (watched.gpu())
        text += fmt::format("\nGPU {}, of the whole machine\n", percent(*watched.gpu()));
    return text;
}

/// A name and a line of bars after it, as wide as the terminal.
std::string history(
    std::string_view name, const std::vector<double>& values, double most, Style style, std::string_view largest,
    const Terminal& terminal)
{
    const std::size_t columns = terminal.size() ? terminal.size()->columns : 80;
    const std::string before = fmt::format("  {:<7}", name);
    const std::string after = fmt::format(" {}", largest);
    const std::size_t taken = before.size() + after.size();
    const std::size_t width = std::min<std::size_t>(keptReadings, columns > taken ? columns - taken : 0);
    return terminal.styled(Style::dim, before) + terminal.styled(style, sparkline(values, width, most, terminal)) +
           terminal.styled(Style::dim, after) + "\n";
}

double largestOf(const std::vector<double>& values)
{
    return values.empty() ? 0 : *std::ranges::max_element(values);
}

std::string screenOf(const Watched& watched, const Terminal& terminal)
{
    if (watched.usages().empty())
        return "No run is in flight. Ctrl-C ends this.\n";
    std::string text = tableOf(watched, terminal) + "\n";
    for (const Usage& usage : watched.usages()) {
        const std::string name = fmt::format("#{} {}", usage.run.number, text::oneLine(usage.title));
        text += fitted(name, terminal.size().value().columns, terminal) + "\n";
        const double cores = std::max(1.0, largestOf(usage.coresBefore));
        text += history("cores", usage.coresBefore, cores, Style::cyan, fmt::format("of {:.1f}", cores), terminal);
        const double memory = largestOf(usage.memoryBefore);
        text += history(
            "memory", usage.memoryBefore, memory, Style::magenta,
            fmt::format("of {}", shownBytes(static_cast<std::uint64_t>(memory))), terminal);
    }
    if (!watched.gpuBefore().empty())
        text += history("GPU", watched.gpuBefore(), 1, Style::green, "of 100 %", terminal);
    return text;
}

/// Until the named run has ended, or for ever.
void watch(Context& context, Watched& watched, bool isOne)
{
    Screen screen(context.out());
    for (auto pause = Clock::duration(betweenReadings);;) {
        screen.show(screenOf(watched, context.out()));
        std::this_thread::sleep_for(pause);
        const Clock::time_point before = Clock::now();
        watched.read();
        // Exact sums of much memory take long; the machine belongs to the runs.
        pause = std::max<Clock::duration>(betweenReadings, 20 * (Clock::now() - before)) - (Clock::now() - before);
        if (isOne && watched.usages().empty())
            return;
    }
}

void top(Context& context, const Arguments& arguments)
{
    std::optional<Run> only;
    if (const std::optional<std::string> given = arguments.text("RUN"))
        only = context.run(*given);
    Watched watched(
        context, only ? std::optional(only->id) : std::nullopt,
        arguments.has("--exact") ? ProcessTable::SharedPages::divide : ProcessTable::SharedPages::countForEach);
    watched.read();
    // How many cores they use shows in the difference of two readings.
    if (!watched.usages().empty()) {
        std::this_thread::sleep_for(firstPause);
        watched.read();
    }
    if (context.json())
        return context.printJSON(json(watched));
    if (watched.usages().empty()) {
        const std::string ended =
            only ? RunWords::state(context.store()->run(only->id).value_or(*only)) : "No run is in flight.";
        return context.note(ended);
    }
    if (!context.out().canRedraw())
        return context.print(tableOf(watched, context.out()));
    watch(context, watched, only.has_value());
    if (only)
        context.note(RunWords::state(context.store()->run(only->id).value_or(*only)));
}

constexpr std::array topOptions = {
    Option{"RUN", "", "One run; by default all that are in flight", Count::optional, Completion::run},
    Option{"--exact", "", "Divide the memory that processes share among them, which takes longer"},
};

constexpr std::array table = {
    Command{
        .name = "top",
        .summary = "Watch what the runs in flight use: processes, cores, memory, GPU",
        .example = "veltry top",
        .details =
            "Memory is what the processes of a run's group have in memory that no file holds, and what of theirs "
            "is swapped out. Pages that forked processes share count for each of them, so that the sum may be "
            "far above what the run takes; with --exact they are divided among those who share them. Processes "
            "of other users are left out.",
        .hasJSON = true,
        .options = topOptions,
        .run = &top},
};

} // namespace

Family topCommand()
{
    return table;
}

} // namespace veltry::Commands
