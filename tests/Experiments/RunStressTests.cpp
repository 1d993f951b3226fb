#include "Experiments/RunLog/RunLog.h"
#include "Experiments/RunLog/Stamp.h"
#include "Platform/Files.h"
#include "SupervisedRun.h"
#include "Support/Stress.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <string>

namespace veltry {
namespace {

using test::sanitized;
using test::stressed;
using test::SupervisedRun;

/// Kilobytes of resident memory: a line of /proc/self/status.
std::int64_t kilobytes(const std::string& name)
{
    std::ifstream status("/proc/self/status");
    std::string key;
    std::int64_t value = 0;
    while (status >> key)
        if (key == name + ":" && status >> value)
            return value;
    return -1;
}

/// What the action's memory grew to above what stood before, in kilobytes; nothing that counts under a sanitizer.
template <typename Action>
std::int64_t growth(Action action)
{
    std::ofstream("/proc/self/clear_refs") << 5; // begins a new peak
    const std::int64_t before = kilobytes("VmHWM");
    action();
    return sanitized ? 0 : kilobytes("VmHWM") - before;
}

struct Checked {
    std::uint64_t stamped = 0;   ///< lines whose records are right
    std::uint64_t unstamped = 0; ///< lines behind the last record
};

/// Holds each record against the line that stands in its place, in the plainest way.
Checked check(const std::filesystem::path& log)
{
    std::ifstream text(log, std::ios::binary);
    std::ifstream records(RunLog::times(log), std::ios::binary);
    Checked result;
    std::vector<char> block(1 << 20);
    std::string record(RunLog::Stamp::length, '\0');
    std::uint64_t offset = 0;
    std::int64_t last = 0;
    char previous = '\n';
    while (text.read(block.data(), static_cast<std::streamsize>(block.size())), text.gcount() > 0) {
        for (std::streamsize at = 0; at < text.gcount(); ++at, ++offset) {
            if (std::exchange(previous, block[static_cast<std::size_t>(at)]) != '\n')
                continue;
            if (!records.read(record.data(), static_cast<std::streamsize>(record.size()))) {
                ++result.unstamped;
                continue;
            }
            const std::int64_t milliseconds = std::stoll(record.substr(16));
            if (std::stoull(record) != offset || milliseconds < last) {
                ADD_FAILURE() << "the line at " << offset << " has the record " << record;
                return result;
            }
            last = milliseconds;
            ++result.stamped;
        }
    }
    EXPECT_EQ(records.peek(), std::ifstream::traits_type::eof()) << "records without a line";
    return result;
}

constexpr std::int64_t flat = 4096; // kilobytes

TEST(RunStress, ASupervisorStaysSmallWhateverTheRunPrints)
{
    const auto lines = stressed<std::uint64_t>(2'000'000);

    const struct {
        std::string_view name;
        std::string command;
        std::uint64_t lines;
    } cases[] = {
        {"2 GB in lines of 1,000 bytes", fmt::format("yes $(printf %0999d 7) | head -n {}", lines), lines},
        {"a line of 100 MB", fmt::format("head -c {} /dev/zero; echo; echo x", stressed(100'000'000)), 2},
        {"nothing", "sleep 0.2", 0},
        {"standard output closed", "echo x; exec 1>&-; for i in 1 2 3; do echo y; done 2> /dev/null", 1},
        {"a write for each byte", fmt::format("for i in {{1..{}}}; do echo; done", stressed(1'000'000)),
         stressed<std::uint64_t>(1'000'000)},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        SupervisedRun run(c.command);
        EXPECT_LT(growth([&] { run.supervise(); }), flat);
        EXPECT_TRUE(run.row().isFinished());
        const Checked checked = check(run.row().log());
        EXPECT_EQ(checked.stamped, c.lines);
        EXPECT_EQ(checked.unstamped, 0U);
    }
}

TEST(RunStress, ASupervisorEndsThoughWhatTheShellLeftBehindPrintsForEver)
{
    SupervisedRun run("yes & echo $! > ../left; until test -s ../log; do sleep 0.01; done");
    EXPECT_LT(growth([&] { run.supervise(); }), flat);
    ASSERT_EQ(::kill(std::stoi(Files::read(run.row().directory / "left")), SIGKILL), 0) << "it still printed";
    EXPECT_EQ(run.row().status, Run::Status::succeeded);
    EXPECT_GT(check(run.row().log()).stamped, 0U);
}

} // namespace
} // namespace veltry
