#include "History.h"
#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Rows.h"

#include <stdexcept>

namespace veltry::bench {

namespace {

constexpr int rounds = 15;
constexpr History::Size usual{.nodes = 1'000, .runs = 10'000};

/// The command from its start to its end, as text into a pipe, against an aim.
Measured command(const Workplace& place, std::vector<std::string> arguments, double aim)
{
    const History history(place.folder, "store", usual);
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

} // namespace veltry::bench
