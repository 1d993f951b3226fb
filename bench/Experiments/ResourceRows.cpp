#include "Experiments/Resources.h"
#include "Platform/ProcessTable.h"
#include "Rows.h"
#include "Support/Eventually.h"
#include "Support/ShellGroup.h"

#include <fmt/format.h>

#include <stdexcept>

namespace veltry::bench {

namespace {

/// A shell with `count` sleeping children, once all of them are there.
class Sleepers : public test::ShellGroup {
public:
    explicit Sleepers(int count)
        : ShellGroup(fmt::format("i=0; while [ $i -lt {} ]; do sleep 600 & i=$((i+1)); done; wait", count))
    {
        const auto size = static_cast<std::size_t>(count) + 1;
        if (!test::eventually([&] { return ProcessTable::group(id()).size() == size; }))
            throw std::runtime_error("the processes could not be started");
    }
};

} // namespace

Measured resourceReading(const Workplace& /*place*/)
{
    constexpr int processes = 20;
    const Sleepers others(2000);
    const Sleepers run(processes);
    const auto ours = [&] {
        return medianSecondsOf(20, [&] {
            const std::optional<ResourceReading> reading = Resources::read(run.id());
            if (!reading || reading->processes != processes + 1)
                throw std::runtime_error("the group wasn't read");
        });
    };
    return interleaved(15, ours, [] { return 0.01; });
}

} // namespace veltry::bench
