#include "Experiments/Playbook.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace veltry {
namespace {

TEST(Playbook, IsWholeAndFollowedByTheMachine)
{
    const std::string_view text = Playbook::instructions();
    EXPECT_EQ(std::ranges::count(text, '\n'), 45);
    EXPECT_TRUE(text.starts_with("Harrowick Veltry keeps this project's experiment tree. Use the `veltry` server's"));
    EXPECT_TRUE(text.ends_with("what it tested, its status, and its headline number."));
    const Machine here = Machine::current();
    EXPECT_FALSE(here.model.empty() || here.chip.empty() || here.performanceCores == 0 || here.memory == 0);
    EXPECT_EQ(Playbook::instructions(here), std::string(text) + "\n\n" + here.description());
}

TEST(Machine, DescribesItself)
{
    const Machine known{
        .model = "MacBook Air",
        .chip = "Apple M2",
        .performanceCores = 4,
        .efficiencyCores = 4,
        .gpuCores = 10,
        .memory = 17179869184,
    };
    EXPECT_EQ(
        known.description(),
        "This Mac\n"
        "- Computer: MacBook Air\n"
        "- CPU: Apple M2, 8 cores (4 performance, 4 efficiency)\n"
        "- GPU: Apple M2 10-core GPU, Metal; PyTorch calls it the `mps` device. There is no CUDA.\n"
        "- Memory: 16 GB, unified: the CPU and the GPU share it, and so does everything else running on this Mac.");

    const Machine unknown{.model = "Mac", .chip = "Apple silicon", .gpuCores = {}, .memory = 17179869183};
    EXPECT_EQ(
        unknown.description(),
        "This Mac\n"
        "- Computer: Mac\n"
        "- CPU: Apple silicon, 0 cores (0 performance, 0 efficiency)\n"
        "- GPU: Apple silicon GPU, Metal; PyTorch calls it the `mps` device. There is no CUDA.\n"
        "- Memory: 15 GB, unified: the CPU and the GPU share it, and so does everything else running on this Mac.");
}

} // namespace
} // namespace veltry
