#include "Experiments/Machine.h"

#include "Platform/MachineFacts.h"

#include <fmt/format.h>

namespace veltry {

Machine Machine::current()
{
    const MachineFacts::CoreCounts cores = MachineFacts::cores();
    return {
        .model = MachineFacts::productName().value_or("Mac"),
        .chip = MachineFacts::processorName().value_or("Apple silicon"),
        .performanceCores = cores.performance,
        .efficiencyCores = cores.efficiency,
        .gpuCores = MachineFacts::gpuCores(),
        .memory = MachineFacts::memory(),
    };
}

std::string Machine::description() const
{
    const std::string gpu = gpuCores ? fmt::format("{}-core GPU", *gpuCores) : "GPU";
    return fmt::format(
        "This Mac\n"
        "- Computer: {}\n"
        "- CPU: {}, {} cores ({} performance, {} efficiency)\n"
        "- GPU: {} {}, Metal; PyTorch calls it the `mps` device. There is no CUDA.\n"
        "- Memory: {} GB, unified: the CPU and the GPU share it, and so does everything else running on this Mac.",
        model, chip, performanceCores + efficiencyCores, performanceCores, efficiencyCores, chip, gpu, memory >> 30);
}

} // namespace veltry
