#include "Base/Text.h"
#include "Experiments/Telemetry/TelemetryCharts.h"
#include "Host/Charts/HTMLCharts.h"
#include "Host/Charts/SVGCharts.h"
#include "Host/Charts/TextCharts.h"
#include "Host/CommandLine/Nearest.h"
#include "Host/Commands/Commands.h"
#include "Host/Commands/SharedOptions.h"
#include "Host/Context.h"
#include "Host/Terminal/Screen.h"
#include "Host/Terminal/TextTable.h"
#include "Host/Terminal/Times.h"
#include "Host/Views/LiveRun.h"
#include "Host/Words/RunWords.h"
#include "Platform/Files.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <thread>

namespace veltry::Commands {

namespace {

using Count = Option::Count;
using Completion = Option::Completion;

constexpr std::size_t columnsOffTerminal = 100;
constexpr int reloadSeconds = 5; // how often the page of a run in flight loads itself again
constexpr std::chrono::milliseconds betweenLooks(500);

/// A run's telemetry with the layout of its code.
class RunCharts {
public:
    RunCharts(Context& context, const Run& run, TelemetryCharts::Selection selection)
        : context_(&context), source_(run.source()), file_(run.telemetryFile()), selection_(std::move(selection))
    {
        commit_ = run.commit;
    }

    /// Whether there was something new.
    bool read(bool finished)
    {
        const bool isFirst = std::exchange(isFirst_, false);
        if (!layout_ && !isInvalid_)
            readLayout(isFirst);
        const bool isNew = telemetry_.read(file_, finished) || isFirst;
        if (isNew)
            charts_ = TelemetryCharts(telemetry_, layout_, selection_);
        charts_.hasEnded = finished;
        return isNew;
    }

    [[nodiscard]] const TelemetryCharts& charts() const { return charts_; }
    [[nodiscard]] const std::vector<std::string>& keys() const { return telemetry_.keys(); }

private:
    /// From the run's snapshot or, where that was cleared away, from its commit.
    void readLayout(bool askGit)
    {
        try {
            layout_ = TelemetryLayout::read(source_);
            const std::vector<std::filesystem::path>& folders = context_->project().folders;
            if (layout_ || !askGit || folders.empty())
                return;
            if (const auto text = Git(folders.front()).fileOf(commit_, TelemetryLayout::fileName))
                layout_ = TelemetryLayout::parse(*text);
        } catch (const TelemetryLayout::Invalid& error) {
            isInvalid_ = true;
            context_->note(
                fmt::format("{} {}. The standard charts are shown.", TelemetryLayout::fileName, error.description()));
        }
    }

    Context* context_;
    std::filesystem::path source_;
    std::filesystem::path file_;
    std::string commit_;
    TelemetryCharts::Selection selection_;
    std::optional<TelemetryLayout> layout_;
    bool isInvalid_ = false;
    bool isFirst_ = true;
    Telemetry telemetry_;
    TelemetryCharts charts_;
};

/// Where the charts go: to the terminal, or to a file that is written anew each time.
class Target {
public:
    Target(Context& context, const Arguments& arguments) : context_(&context)
    {
        if (arguments.has("--svg") && arguments.has("--html"))
            throw UsageError("Name --svg or --html, not both.");
        isHTML_ = arguments.has("--html");
        if (const auto file = isHTML_ ? arguments.text("--html") : arguments.text("--svg"))
            file_ = std::filesystem::absolute(*file);
        if (file_ && context.json())
            throw UsageError("--json writes no file. Leave out --svg and --html.");
        if (file_ && Files::isFolder(*file_))
            throw UsageError(fmt::format("{} is a folder. Name a file in it.", file_->string()));
    }

    [[nodiscard]] bool isFile() const { return file_.has_value(); }
    [[nodiscard]] const std::filesystem::path& file() const { return *file_; }

    void write(const Run& run, const TelemetryCharts& charts) const
    {
        HTMLCharts::Heading heading{
            .title = fmt::format("Run #{}", run.number),
            .subtitle = context_->titleOf(run),
            .facts = {},
            .reloadSeconds = {}};
        heading.facts = {
            {"state", RunWords::state(run)},
            {"started", Times::local(run.createdAt)},
            {"command", run.command},
            {"commit", RunWords::commit(run)}};
        if (!run.isFinished())
            heading.reloadSeconds = reloadSeconds;
        write(heading, charts);
    }

    void write(const HTMLCharts::Heading& heading, const TelemetryCharts& charts) const
    {
        Files::writeAtomically(
            *file_, isHTML_ ? HTMLCharts::page(charts, heading)
                            : SVGCharts::document(charts, heading.title + " · " + heading.subtitle));
    }

private:
    Context* context_;
    bool isHTML_ = false;
    std::optional<std::filesystem::path> file_;
};

std::string drawn(const Context& context, const TelemetryCharts& charts, std::optional<std::size_t> rowsTaken)
{
    const std::optional<Terminal::Size> size = context.out().size();
    TextCharts::Room room{.columns = size ? size->columns : columnsOffTerminal, .rows = {}};
    if (size && rowsTaken)
        room.rows = size->rows - std::min(size->rows, *rowsTaken);
    return TextCharts::of(charts, context.out(), room);
}

void show(const Context& context, const Run& run, const TelemetryCharts& charts)
{
    if (context.json())
        return context.printJSON(toJSON(charts));
    if (charts.isEmpty())
        context.note(fmt::format(
            "Run #{} has written no telemetry{}. Code reports numbers by appending a line of JSON for each step to the "
            "file that HARROWICK_TELEMETRY_PATH names.",
            run.number, run.isFinished() ? "" : " yet"));
    context.print(drawn(context, charts, std::nullopt));
}

/// Draws again when something is new, until the run has ended; returns the run as it ended.
Run follow(Context& context, const Run& run, RunCharts& charts, const Target& target)
{
    LiveRun live(context, run);
    std::optional<Screen> screen;
    std::string shown;
    if (!target.isFile() && !context.json() && context.out().canRedraw())
        screen.emplace(context.out());
    for (bool isFirst = true;; isFirst = false) {
        const bool hasEnded = live.look().isFinished();
        const bool isNew = charts.read(hasEnded);
        if (hasEnded)
            return live.run();
        if (target.isFile() && isNew)
            target.write(live.run(), charts.charts());
        if (target.isFile() && isFirst)
            context.note(fmt::format("Writing {} until the run ends.", target.file().string()));
        if (screen) {
            const std::string state =
                fitted(RunWords::state(live.run()), context.out().size().value().columns, context.out());
            const std::string view =
                context.out().styled(Style::dim, state) + "\n\n" + drawn(context, charts.charts(), 2);
            if (view != shown)
                screen->show(shown = view);
        }
        std::this_thread::sleep_for(betweenLooks);
    }
}

TelemetryCharts::Selection selection(const Arguments& arguments)
{
    TelemetryCharts::Selection selection{.keys = arguments.all("--key"), .smoothing = arguments.number("--smooth")};
    if (const std::optional<double> weight = selection.smoothing; weight && !(*weight >= 0 && *weight < 1))
        throw UsageError(fmt::format("--smooth takes a weight of at least 0 and below 1, and {} is none.", *weight));
    return selection;
}

/// A key that was asked for and that no run reports is most often a slip. One that may still come isn't.
void refuseUnread(const std::vector<std::string>& asked, const std::vector<std::string>& read, bool hasEnded)
{
    for (const std::string& key : asked)
        if (hasEnded && std::ranges::count(read, key) == 0)
            throw Refusal(fmt::format(
                "No such key was reported: \"{}\".{}{}", key, didYouMean(key, read),
                read.empty() ? "" : fmt::format(" There are {}.", text::joined(read, ", "))));
}

/// Each run by its number and its node, the one by which the other commands name it and the other that says what it is.
std::string nameOf(Context& context, const Run& run)
{
    return fmt::format("#{} {}", run.number, context.titleOf(run));
}

/// Several runs, a line of each in every panel.
void chartsOfAll(Context& context, const Arguments& arguments, const std::vector<Run>& runs, const Target& target)
{
    std::vector<std::pair<std::string, TelemetryCharts>> all;
    std::vector<std::string> names;
    std::vector<std::string> keys;
    bool hasEnded = true;
    for (const Run& run : runs) {
        RunCharts one(context, run, selection(arguments));
        static_cast<void>(one.read(run.isFinished()));
        hasEnded = hasEnded && run.isFinished();
        keys.insert(keys.end(), one.keys().begin(), one.keys().end());
        names.push_back(nameOf(context, run));
        all.emplace_back(names.back(), one.charts());
    }
    std::ranges::sort(keys);
    keys.erase(std::ranges::unique(keys).begin(), keys.end());
    refuseUnread(arguments.all("--key"), keys, hasEnded);
    const TelemetryCharts charts = TelemetryCharts::together(all);
    if (target.isFile()) {
        HTMLCharts::Heading heading{
            .title = fmt::format("{} runs", runs.size()),
            .subtitle = text::joined(names, ", "),
            .facts = {},
            .reloadSeconds = {}};
        for (std::size_t index = 0; index < runs.size(); ++index)
            heading.facts.emplace_back(names[index], RunWords::state(runs[index]));
        target.write(heading, charts);
        return context.note(fmt::format("Wrote {}.", target.file().string()));
    }
    if (context.json())
        return context.printJSON(toJSON(charts));
    if (charts.isEmpty())
        context.note("None of these runs has written telemetry.");
    context.print(drawn(context, charts, std::nullopt));
}

std::vector<Run> runsOf(Context& context, const std::vector<std::string>& given)
{
    std::vector<Run> runs;
    if (given.empty())
        runs.push_back(context.runOrLatest(std::nullopt));
    for (const std::string& name : given) {
        Run run = context.runOrLatest(name);
        if (std::ranges::none_of(runs, [&](const Run& other) { return other.id == run.id; }))
            runs.push_back(std::move(run));
    }
    if (runs.size() > Chart::pens)
        throw UsageError(
            fmt::format("{} runs are more than can be told apart. Name at most {}.", runs.size(), Chart::pens));
    return runs;
}

void charts(Context& context, const Arguments& arguments)
{
    const std::vector<Run> runs = runsOf(context, arguments.all("RUN|NODE"));
    Run run = runs.front();
    const Target target(context, arguments);
    RunCharts runCharts(context, run, selection(arguments));
    const bool follows = arguments.has("--follow");
    if (follows && runs.size() > 1)
        throw UsageError("--follow takes one run.");
    if (runs.size() > 1)
        return chartsOfAll(context, arguments, runs, target);
    if (follows)
        run = follow(context, run, runCharts, target);
    else
        static_cast<void>(runCharts.read(run.isFinished()));
    refuseUnread(arguments.all("--key"), runCharts.keys(), run.isFinished());
    if (target.isFile()) {
        target.write(run, runCharts.charts());
        context.note(fmt::format("Wrote {}.", target.file().string()));
    } else {
        show(context, run, runCharts.charts());
    }
    if (follows)
        context.note(RunWords::state(run));
}

constexpr std::array chartOptions = {
    Option{
        "RUN|NODE", "", "Runs by number or id, or nodes for their latest runs; several share a chart for each key",
        Count::many, Completion::node},
    Option{"--key", "KEY", "Only this key; may be given several times", Count::many},
    Option{
        "--smooth", "WEIGHT",
        "Smooth by the exponential moving average, with this weight of the past: 0 to below 1, such as 0.6"},
    Option{"--svg", "FILE", "Write one drawing, as SVG", Count::optional, Completion::file},
    Option{"--html", "FILE", "Write a page that needs no other file", Count::optional, Completion::file},
    Option{"-f,--follow", "", "Draw again whenever the run reports something, until it ends"},
};

constexpr std::array table = {
    Command{
        .name = "charts",
        .summary = "Draw the numbers that runs report while they work",
        .example = "veltry charts 12 --follow\nveltry charts 12 --html run-12.html\nveltry charts baseline "
                   "slower-warm-up --key loss --smooth 0.6",
        .details = "In a node's worktree its latest run is drawn where nothing is named. With --smooth each point is "
                   "WEIGHT of the average before it and the rest of its own value, corrected for the start, as if "
                   "nothing had been before it. Drawings and pages keep the line as it was read, faint, behind the "
                   "smoothed one.",
        .hasJSON = true,
        .options = chartOptions,
        .run = &charts},
};

} // namespace

Family chartCommand()
{
    return table;
}

} // namespace veltry::Commands
