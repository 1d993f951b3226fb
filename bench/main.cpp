#include "Base/Error.h"
#include "Base/Text.h"
#include "Platform/Files.h"
#include "Platform/MachineFacts.h"
#include "Platform/ProcessFacts.h"
#include "Rows.h"
#include "Table.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>

namespace veltry::bench {

namespace {

using enum Row::Unit;

constexpr double megabyte = 1048576.0;
constexpr double telemetryBytes = 200'000.0 * 8 * 12;

constexpr std::array rows = {
    Row{"start of mcp to the answer of initialize", "sqlite3 opening the store for a select", 3, seconds, serverStart},
    Row{"round trip of ping", "the same line through cat", 2, seconds, ping},
    Row{"experiment_tree of nothing, one of 5,000", "a bare loop giving the same lines", 6, seconds, emptyTreeCalls},
    Row{"ping, one of 5,000", "a bare loop giving the same lines", 1.5, seconds, pings},
    Row{"a call that is refused, one of 5,000", "a bare loop giving the same lines", 0, seconds, refusedCalls},
    Row{"run_experiment, call to answer", "its git and tar commands in a script", 1.2, seconds, runExperiment},
    Row{"supervisor's start to the command's first", "setsid nohup, the shell, -l -c", 1.5, seconds, supervisorStart},
    Row{"private memory of a waiting supervisor", "sleep", 3 * megabyte, bytes, supervisorMemory},
    Row{"further look of wait_for_runs, 100,000 runs", "10 runs", 2, seconds, furtherLook},
    Row{"experiment_tree, 10,000 nodes, 100,000 runs", "sqlite3 printing the rows", 3, seconds, experimentTree},
    Row{"tail of a log of 10 GB", "of 1 MB", 1.2, seconds, logTail},
    Row{"stamper on a growing log, processor time", "cat of the log, processor time", 2, seconds, stamper},
    Row{"telemetry, 200,000 lines of 8 numbers", "simdjson walking the same bytes", 3, seconds, telemetryWalk},
    Row{"telemetry, the same lines", "at 150 MB/s", 1, seconds, telemetryRate},
    Row{"telemetry, the same lines once more", "wc -l", 0, seconds, telemetryLinesCounted},
    Row{"telemetry, one new line behind 100,000", "behind 10", 1.2, seconds, telemetryNewLine},
    Row{"telemetry, memory of the same lines", "doubles and 32-bit numbers", telemetryBytes / 2, bytes,
        telemetryMemory},
    Row{"charts of 32 panels over 200,000 points", "50 ms", 1, seconds, telemetryCharts},
    Row{"resources of 21 processes among 2,000", "10 ms", 1, seconds, resourceReading},
    Row{"veltry tree, 1,000 nodes, 10,000 runs", "150 ms", 1, seconds, treeCommand},
    Row{"veltry list, 1,000 nodes, 10,000 runs", "150 ms", 1, seconds, listCommand},
    Row{"veltry show of a node, 1,000 nodes, 10,000 runs", "50 ms", 1, seconds, showCommand},
    Row{"veltry show of a run, 1,000 nodes, 10,000 runs", "50 ms", 1, seconds, showRunCommand},
    Row{"veltry questions, 1,000 rounds, 100 open", "50 ms", 1, seconds, questionsCommand},
    Row{"veltry projects, of 100 conversations", "50 ms", 1, seconds, projectsCommand},
    Row{"veltry conversations, 100 of them", "50 ms", 1, seconds, conversationsCommand},
    Row{"veltry settings", "50 ms", 1, seconds, settingsCommand},
    Row{"veltry log -n 100 of 100,000 lines, in the same", "50 ms", 1, seconds, logCommand},
    Row{"veltry compare of two runs, in the same", "50 ms", 1, seconds, compareCommand},
    Row{"veltry complete node, in the same", "50 ms", 1, seconds, completeCommand},
    Row{"veltry disk, 1,000 run folders, 10,000 files", "du of the same", 3, seconds, diskCommand},
    Row{"veltry tree --watch, idle, a second of a core", "10 ms", 1, seconds, treeWatchIdle},
    Row{"veltry questions --watch, idle, the same", "10 ms", 1, seconds, questionsWatchIdle},
    Row{"veltry log -f, idle, the same", "10 ms", 1, seconds, logFollowIdle},
    Row{"veltry charts --follow, idle, the same", "10 ms", 1, seconds, chartsFollowIdle},
    Row{"first look of wait_for_runs, 100,000 runs", "10 runs", 0, seconds, firstLook},
    Row{"count of runs in flight at a launch, 100,000 runs", "10 runs", 0, seconds, runsOfAllProjects},
    Row{"a run by its number, 100,000 runs", "10 runs", 0, seconds, runByNumber},
    Row{"a search's 25 works of 1 MB, to the tool's text", "reading the JSON alone", 2, seconds, searchAnswer},
    Row{"get_paper of one of 10,000 saved papers", "of one of 10", 2, seconds, paperOfLibrary},
    Row{"comparison of a node, 11 files of 200 changed", "its git commands in a script", 1.1, seconds, comparison},
    Row{"veltry diff of the same node", "its git commands in a script", 1.2, seconds, diffCommand},
    Row{"comparison of a node, 1 file of 50,000", "its git commands in a script", 1, seconds, largeComparison},
    Row{"a new run with the next number, 100,000 runs", "10 runs", 0, seconds, nextNumber},
};

bool isWanted(const Row& row, const std::vector<std::string>& words)
{
    return words.empty() || std::ranges::any_of(words, [&](const std::string& word) {
               return row.what.find(word) != std::string_view::npos;
           });
}

/// What the numbers depend on, without the machine's name.
std::string machine()
{
    std::array<double, 1> load{};
    ::getloadavg(load.data(), 1);
    return fmt::format(
        "{} cores, {}, {} GB of memory; {:%Y-%m-%d}; load {:.1f} before the first row.\n"
        "Medians of rounds in which both sides were measured in turn; where a process starts, the least of them.\n",
        std::thread::hardware_concurrency(), MachineFacts::processorName().value_or("an unnamed processor"),
        (MachineFacts::memory() + (1 << 29)) >> 30, fmt::gmtime(std::time(nullptr)), load[0]);
}

Result measured(const Row& row, const std::filesystem::path& folder)
{
    Result result{.row = &row, .measured = {}};
    const Workplace place{.folder = folder, .tools = ProcessFacts::executable().parent_path() / "veltry-tools"};
    try {
        Files::createFolders(place.folder);
        result.measured = row.measure(place);
    } catch (const std::exception& error) {
        result.measured = std::unexpected("not measured: " + describe(error));
    }
    return result;
}

/// Configuration of whoever runs the bench might sign commits or watch the file system.
void isolateGit()
{
    ::setenv("GIT_CONFIG_GLOBAL", "/dev/null", 1);
    ::setenv("GIT_CONFIG_NOSYSTEM", "1", 1);
}

} // namespace

/// Measures the rows whose text holds one of the words, below `folder`. Returns false if one could not be measured.
static bool run(const std::filesystem::path& folder, const std::vector<std::string>& words)
{
    isolateGit();
    fmt::print("{}", machine());
    std::vector<Result> results;
    for (const Row& row : rows) {
        if (!isWanted(row, words))
            continue;
        fmt::print(stderr, "{}\n", row.what);
        results.push_back(measured(row, folder / std::to_string(results.size() + 1)));
    }
    // Only now: a file system that has just removed many files may make new ones slowly (ext4 passes over the places of
    // those that went in the last five seconds).
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    fmt::print("\n{}", table(results));
    return std::ranges::all_of(results, [](const Result& result) { return result.measured.has_value(); });
}

} // namespace veltry::bench

int main(int count, char** arguments)
{
    if (count < 2) {
        fmt::print(stderr, "usage: veltry-bench FOLDER [NAME...]\n");
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    return veltry::bench::run(std::filesystem::absolute(arguments[1]), {arguments + 2, arguments + count}) ? 0 : 1;
}
