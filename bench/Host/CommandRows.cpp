#include "Experiments/RunLog.h"
#include "History.h"
#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Rows.h"

#include <fmt/format.h>

#include <stdexcept>

namespace veltry::bench {

namespace {

constexpr int rounds = 15;
constexpr History::Size usual{.nodes = 1'000, .runs = 10'000};

void nothing(const History& /*history*/) {}

/// The command from its start to its end, as text into a pipe, against an aim.
Measured command(
    const Workplace& place, std::vector<std::string> arguments, double aim, void (*prepare)(const History&) = nothing)
{
    const History history(place.folder, "store", usual);
    prepare(history);
    Files::createFolders(place.folder / "project");
    ChildProcess::Environment environment = ProcessFacts::environment();
    environment["XDG_DATA_HOME"] = (place.folder / "data").string();
    arguments.insert(arguments.end(), {"--db", history.store().path().string(), "--project", "Bench"});
    const ChildProcess::Command start{
        .executable = place.tools.parent_path() / "veltry",
        .arguments = arguments,
        .environment = std::move(environment),
        .directory = place.folder,
        .input = {},
        .output = {},
        .error = {},
        .group = ChildProcess::Group::ours};
    const auto ours = [&] {
        return secondsOf([&] {
            if (const ChildProcess::Output output = ChildProcess::run(start); output.exitNumber != 0)
                throw std::runtime_error(output.error);
        });
    };
    return interleaved(rounds, ours, [aim] { return aim; }, least);
}

} // namespace

Measured treeCommand(const Workplace& place)
{
    return command(place, {"tree", "--best", "min"}, 0.150);
}

Measured listCommand(const Workplace& place)
{
    return command(place, {"list"}, 0.150);
}

Measured showCommand(const Workplace& place)
{
    return command(place, {"show", "learning-rate-500e-5-longer-warm-up"}, 0.050);
}

Measured showRunCommand(const Workplace& place)
{
    return command(place, {"show", "9000"}, 0.050);
}

Measured logCommand(const Workplace& place)
{
    return command(place, {"log", "9000", "-n", "100"}, 0.050, [](const History& history) {
        const Run run = history.store().run(9000, history.project()).value();
        Files::createFolders(run.directory);
        std::string lines;
        for (int line = 0; line < 100'000; ++line)
            lines += fmt::format("step {} loss 1.0123 at the length that such lines usually have\n", line);
        Files::writeAtomically(run.log(), lines);
        RunLog::stampWhole(run.log(), Date::now(), 0.01);
    });
}

} // namespace veltry::bench
