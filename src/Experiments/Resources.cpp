#include "Experiments/Resources.h"

#include "Platform/GPUFacts.h"

#include <algorithm>

namespace veltry {

JSONValue toJSON(const ResourceReading& reading)
{
    JSONValue::Object object{
        {"processes", reading.processes}, {"cpuSeconds", reading.cpuSeconds}, {"memory", reading.memory}};
    if (reading.gpu)
        object.emplace("gpu", *reading.gpu);
    return object;
}

namespace Resources {

std::optional<ResourceReading> read(std::int32_t group, ProcessTable::SharedPages shared)
{
    if (group <= 0) // the kernel's own threads lie in group 0
        return std::nullopt;
    ResourceReading reading;
    for (const ProcessID process : ProcessTable::group(group)) {
        const std::optional<ProcessTable::Usage> usage = ProcessTable::usage(process, shared);
        if (!usage)
            continue; // it has just ended
        ++reading.processes;
        reading.cpuSeconds += usage->cpuSeconds;
        reading.memory += usage->memory;
    }
    if (reading.processes == 0)
        return std::nullopt;
    reading.gpu = gpuUtilization();
    return reading;
}

std::optional<double> gpuUtilization()
{
    return gpuUtilization(GPUFacts::utilizations());
}

std::optional<double> gpuUtilization(std::span<const double> percentages)
{
    if (percentages.empty())
        return std::nullopt;
    // The busiest card: a mean over many would hide that one run keeps one of them full.
    return std::min(std::ranges::max(percentages) / 100.0, 1.0);
}

double cores(const Moment& from, const Moment& to)
{
    const double elapsed = std::chrono::duration<double>(to.at - from.at).count();
    return elapsed > 0 ? std::max(to.cpuSeconds - from.cpuSeconds, 0.0) / elapsed : 0.0;
}

} // namespace Resources

} // namespace veltry
