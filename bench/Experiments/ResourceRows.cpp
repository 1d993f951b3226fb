#include "Experiments/Resources.h"
#include "Platform/ChildProcess.h"
#include "Platform/ProcessFacts.h"
#include "Platform/ProcessTable.h"
#include "Rows.h"

#include <fmt/format.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

namespace veltry::bench {

namespace {

/// A shell with `count` sleeping children, all in a group of their own, which ends with this value.
class Sleepers {
public:
    explicit Sleepers(int count)
        : group_(ChildProcess::start(
              {.executable = "/bin/sh",
               .arguments =
                   {"-c", fmt::format("i=0; while [ $i -lt {} ]; do sleep 600 & i=$((i+1)); done; wait", count)},
               .environment = ProcessFacts::environment(),
               .directory = {},
               .input = {},
               .output = {},
               .error = {},
               .group = ChildProcess::Group::own}))
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (ProcessTable::group(group_).size() != static_cast<std::size_t>(count) + 1) {
            if (std::chrono::steady_clock::now() > deadline)
                throw std::runtime_error("the processes could not be started");
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    Sleepers(const Sleepers&) = delete;
    Sleepers& operator=(const Sleepers&) = delete;
    ~Sleepers()
    {
        ChildProcess::terminateGroup(group_);
        static_cast<void>(ChildProcess::wait(group_));
    }

    [[nodiscard]] pid_t group() const { return group_; }

private:
    pid_t group_;
};

} // namespace

Measured resourceReading(const Workplace& /*place*/)
{
    constexpr int processes = 20;
    const Sleepers others(2000);
    const Sleepers run(processes);
    const auto ours = [&] {
        return medianSecondsOf(20, [&] {
            const std::optional<ResourceReading> reading = Resources::read(run.group());
            if (!reading || reading->processes != processes + 1)
                throw std::runtime_error("the group wasn't read");
        });
    };
    return interleaved(15, ours, [] { return 0.01; });
}

} // namespace veltry::bench
