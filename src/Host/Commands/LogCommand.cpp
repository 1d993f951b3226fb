#include "Experiments/RunLog/Follower.h"
#include "Host/Commands/Commands.h"
#include "Host/Commands/SharedOptions.h"
#include "Host/Context.h"
#include "Host/Views/LiveRun.h"
#include "Host/Words/LogText.h"
#include "Host/Words/RunWords.h"
#include "Platform/FileWatch.h"
#include "Platform/Files.h"

#include <fmt/format.h>

#include <array>
#include <chrono>
#include <thread>
#include <utility>

namespace veltry::Commands {

namespace {

constexpr std::int64_t standardLines = 50;
constexpr std::int64_t mostForATail = 10'000; // what one read may hold; more goes through a follower
constexpr std::chrono::milliseconds patience(250);

/// Prints pieces of a log as they come: as text, or with --json as an array, or with --follow one object a line.
class Printer {
public:
    Printer(const Context& context, bool times, bool isLive) : context_(&context), times_(times), isLive_(isLive) {}

    void print(const std::vector<RunLog::Follower::Piece>& pieces)
    {
        std::string text;
        for (const RunLog::Follower::Piece& piece : pieces)
            text += context_->json() ? json(piece) : LogText::of(piece, times_, context_->out(), Date::now());
        context_->print(text);
    }

    void end()
    {
        if (context_->json() && !isLive_)
            context_->print(isFirst_ ? "[]\n" : "\n]\n");
    }

private:
    std::string json(const RunLog::Follower::Piece& piece)
    {
        const std::string object = LogText::of(piece).text();
        if (isLive_)
            return object + "\n";
        return (std::exchange(isFirst_, false) ? "[\n  " : ",\n  ") + object;
    }

    const Context* context_;
    bool times_;
    bool isLive_;
    bool isFirst_ = true;
};

/// A line that comes while we look has no stamp yet, and its time is now.
void stamp(std::vector<RunLog::Follower::Piece>& pieces)
{
    for (RunLog::Follower::Piece& piece : pieces)
        if (!piece.line.at)
            piece.line.at = Date::now();
}

void follow(Context& context, const Run& run, std::int64_t count, bool times)
{
    Printer printer(context, times, true);
    RunLog::Follower follower(run.log(), count);
    LiveRun live(context, run);
    std::optional<FileWatch> watch;
    for (bool caughtUp = false;;) {
        if (live.look().isFinished())
            follower.finish();
        // What writes faster than we print must not keep us from seeing that the run has ended.
        const auto nextLook = std::chrono::steady_clock::now() + patience;
        bool isAtEnd = false;
        while (!isAtEnd && (live.run().isFinished() || std::chrono::steady_clock::now() < nextLook)) {
            std::vector<RunLog::Follower::Piece> pieces = follower.next();
            isAtEnd = pieces.empty();
            if (caughtUp && !live.run().isFinished())
                stamp(pieces);
            printer.print(pieces);
        }
        if (live.run().isFinished())
            break;
        if (!isAtEnd)
            continue;
        caughtUp = true;
        if (!watch && Files::exists(run.log()))
            watch.emplace(run.log());
        else if (watch)
            static_cast<void>(watch->wait(patience));
        else
            std::this_thread::sleep_for(patience);
    }
    context.note(RunWords::state(live.run()));
}

/// The last lines in one read; nothing if they are too many or too long for that.
std::vector<RunLog::Follower::Piece> lastLines(const Run& run, std::int64_t count)
{
    std::vector<RunLog::Follower::Piece> pieces;
    for (RunLog::Line& line : RunLog::tail(run.log(), std::min(count, mostForATail)))
        pieces.push_back({.line = std::move(line)});
    const bool isAll = std::ssize(pieces) == count || (!pieces.empty() && pieces.front().line.number == 1);
    return isAll ? pieces : std::vector<RunLog::Follower::Piece>();
}

void log(Context& context, const Arguments& arguments)
{
    const Run run = context.runOrLatest(arguments.text("RUN|NODE"));
    const std::int64_t count = arguments.integer("--lines").value_or(standardLines);
    const bool times = !arguments.has("--no-times");
    if (arguments.has("--follow"))
        return follow(context, run, count, times);
    Printer printer(context, times, false);
    if (const auto pieces = lastLines(run, count); !pieces.empty()) {
        printer.print(pieces);
    } else {
        RunLog::Follower follower(run.log(), count);
        follower.finish();
        for (auto more = follower.next(); !more.empty(); more = follower.next())
            printer.print(more);
    }
    printer.end();
    if (!Files::exists(run.log()))
        context.note(RunWords::state(run) + (run.isFinished() ? " It has no log." : " It has no log yet."));
}

constexpr std::array logOptions = {
    runOrNodeOption,
    Option{"-n,--lines", "N", "How many of the last lines; 50 by default"},
    Option{"-f,--follow", "", "Keep printing what the run writes, until it ends"},
    Option{"--no-times", "", "Don't tell when each line was printed"},
};

constexpr std::array table = {
    Command{
        .name = "log",
        .summary = "Show what a run printed, and when",
        .example = "veltry log 12 -f\nveltry log slower-warm-up\nveltry log 12 -n 1000 --no-times | grep loss",
        .hasJSON = true,
        .options = logOptions,
        .run = &log},
};

} // namespace

Family logCommand()
{
    return table;
}

} // namespace veltry::Commands
