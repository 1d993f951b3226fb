#include "Experiments/Resources.h"
#include "Platform/ChildProcess.h"
#include "Support/Eventually.h"
#include "Support/ShellGroup.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace veltry {
namespace {

using namespace std::chrono_literals;
using test::eventually;

struct Group : test::ShellGroup {
    using ShellGroup::ShellGroup;
    [[nodiscard]] ResourceReading read() const { return Resources::read(id()).value_or(ResourceReading()); }
};

TEST(Resources, CountAWholeGroup)
{
    const Group group("(sh -c 'sleep 60; true'; true) & sleep 60 & wait");
    EXPECT_TRUE(eventually([&] { return group.read().processes == 5; }));
    const ResourceReading reading = group.read();
    EXPECT_GT(reading.memory, 5U * 4096);
    EXPECT_LT(reading.memory, 50'000'000U) << "of these alone, without the libraries that all share";
    EXPECT_GT(reading.cpuSeconds, 0);
    EXPECT_LT(reading.cpuSeconds, 10);
}

TEST(Resources, GrowWithWhatIsUsed)
{
    const Group busy("while :; do :; done");
    EXPECT_TRUE(eventually([&] { return busy.read().cpuSeconds > 0.05; }));
    const Group large(
        "{ head -c 50000000 /dev/zero; sleep 60; } | tail"); // which keeps the last line, and it has no end
    EXPECT_TRUE(eventually([&] { return large.read().memory > 50'000'000; }));
    EXPECT_LT(large.read().memory, 200'000'000U);
}

TEST(Resources, DivideWhatForkedProcessesShareIfAsked)
{
    const Group forked(
        "python3 -c 'import os, time; held = b\"x\" * 50_000_000; [os.fork() for _ in range(2)]; time.sleep(60)'");
    const auto memory = [&](ProcessTable::SharedPages shared) { return Resources::read(forked.id(), shared)->memory; };
    EXPECT_TRUE(eventually([&] { return forked.read().processes >= 4 && forked.read().memory > 200'000'000; }));
    EXPECT_LT(memory(ProcessTable::SharedPages::divide), 100'000'000U);
    EXPECT_GT(memory(ProcessTable::SharedPages::divide), 50'000'000U);
}

TEST(Resources, LeaveOutProcessesOfOtherUsers)
{
    if (::getuid() != 0)
        GTEST_SKIP() << "only root can become somebody else";
    const Group ours("exec sleep 60"); // or the shell counts as well
    ASSERT_TRUE(eventually([&] { return ours.read().processes == 1; }));
    const pid_t nobody = ::fork();
    if (nobody == 0)
        ::_exit(::setuid(65534) == 0 && !Resources::read(ours.id()) ? 0 : 1);
    EXPECT_EQ(ChildProcess::wait(nobody), 0);
}

TEST(Resources, EndWithTheGroup)
{
    for (const int group : {0, -1, 1 << 30})
        EXPECT_EQ(Resources::read(group), std::nullopt) << group;
    const Group ended("exit"); // a zombie until it is waited for
    EXPECT_TRUE(eventually([&] { return !Resources::read(ended.id()); }));
    const Group left("sleep 60 & exec true");
    EXPECT_TRUE(eventually([&] { return left.read().processes == 1; })) << "what outlives its leader counts";
}

TEST(Resources, TellTheBusiestGPU)
{
    const auto utilization = [](std::vector<double> percentages) { return Resources::gpuUtilization(percentages); };
    EXPECT_EQ(utilization({}), std::nullopt);
    EXPECT_EQ(utilization({0}), 0.0);
    EXPECT_EQ(utilization({25, 50, 0}), 0.5);
    EXPECT_EQ(utilization({120, 3}), 1.0);
    const std::optional<double> here = Resources::gpuUtilization();
    EXPECT_TRUE(!here || (*here >= 0 && *here <= 1));
}

TEST(Resources, TellTheCoresBetweenTwoReadings)
{
    const auto start = std::chrono::steady_clock::now();
    const auto cores = [&](std::chrono::milliseconds elapsed, double used) {
        return Resources::cores({.at = start, .cpuSeconds = 10}, {.at = start + elapsed, .cpuSeconds = 10 + used});
    };
    EXPECT_DOUBLE_EQ(cores(2s, 3), 1.5);
    EXPECT_EQ(cores(0s, 3), 0);
    EXPECT_EQ(cores(-1s, 3), 0);
    EXPECT_EQ(cores(2s, -3), 0);
}

TEST(Resources, HaveAJSONForm)
{
    ResourceReading reading{.processes = 2, .cpuSeconds = 0.5, .memory = 4096, .gpu = {}};
    EXPECT_EQ(toJSON(reading).text(), R"({"cpuSeconds":0.5,"memory":4096,"processes":2})");
    reading.gpu = 0.25;
    EXPECT_EQ(toJSON(reading).text(), R"({"cpuSeconds":0.5,"gpu":0.25,"memory":4096,"processes":2})");
}

} // namespace
} // namespace veltry
