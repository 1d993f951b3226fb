#include "Experiments/Telemetry/TelemetryCharts.h"
#include "Host/Charts/HTMLCharts.h"
#include "Host/Charts/SVGCharts.h"
#include "Host/Charts/TextCharts.h"
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
    RunCharts(Context& context, const Run& run) : context_(&context), source_(run.source()), file_(run.telemetryFile())
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
            charts_ = TelemetryCharts(telemetry_, layout_);
        return isNew;
    }

    [[nodiscard]] const TelemetryCharts& charts() const { return charts_; }

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
        const std::string title = fmt::format("Run #{}", run.number);
        const std::string subtitle = context_->titleOf(run);
        if (!isHTML_) {
            Files::writeAtomically(*file_, SVGCharts::document(charts, title + " · " + subtitle));
            return;
        }
        HTMLCharts::Heading heading{.title = title, .subtitle = subtitle, .facts = {}, .reloadSeconds = {}};
        heading.facts = {
            {"state", RunWords::state(run)},
            {"started", Times::local(run.createdAt)},
            {"command", run.command},
            {"commit", RunWords::commit(run)}};
        if (!run.isFinished())
            heading.reloadSeconds = reloadSeconds;
        Files::writeAtomically(*file_, HTMLCharts::page(charts, heading));
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

void charts(Context& context, const Arguments& arguments)
{
    Run run = context.run(arguments.required("RUN"));
    const Target target(context, arguments);
    RunCharts runCharts(context, run);
    const bool follows = arguments.has("--follow");
    if (follows)
        run = follow(context, run, runCharts, target);
    else
        static_cast<void>(runCharts.read(run.isFinished()));
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
    runOption,
    Option{"--svg", "FILE", "Write one drawing, as SVG", Count::optional, Completion::file},
    Option{"--html", "FILE", "Write a page that needs no other file", Count::optional, Completion::file},
    Option{"-f,--follow", "", "Draw again whenever the run reports something, until it ends"},
};

constexpr std::array table = {
    Command{
        .name = "charts",
        .summary = "Draw the numbers that a run reports while it works",
        .example = "veltry charts 12 --follow\nveltry charts 12 --html run-12.html",
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
