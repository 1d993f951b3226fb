#include "Platform/Files.h"
#include "Platform/linux/ControlGroup.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <map>

namespace veltry {
namespace {

TEST(ControlGroup, GivesTheLeastLimitOnTheWayToTheRoot)
{
    const struct {
        const char* name;
        const char* groups;
        std::map<const char*, const char*> files;
        std::optional<double> processors;
        std::optional<std::uint64_t> memory;
    } cases[] = {
        {"no limits", "0::/a\n", {{"a/cpu.max", "max 100000\n"}, {"a/memory.max", "max\n"}}, {}, {}},
        {"version 2", "0::/a/b\n", {{"a/b/cpu.max", "250000 100000\n"}, {"a/b/memory.max", "1000\n"}}, 2.5, 1000},
        {"a parent's is less",
         "0::/a/b\n",
         {{"a/cpu.max", "50000 100000\n"}, {"a/b/cpu.max", "200000 100000\n"}, {"memory.max", "7\n"}},
         0.5,
         7},
        {"version 1",
         "4:memory:/x\n1:cpu,cpuacct:/x\n",
         {{"memory/x/memory.limit_in_bytes", "9223372036854771712\n"},
          {"memory/memory.limit_in_bytes", "2000\n"},
          {"cpu,cpuacct/x/cpu.cfs_quota_us", "-1\n"},
          {"cpu,cpuacct/x/cpu.cfs_period_us", "100000\n"}},
         {},
         2000},
        {"both, and a path that is the host's",
         "2:cpu:/docker/abc\n0::/docker/abc\n",
         {{"cpu/cpu.cfs_quota_us", "300000\n"}, {"cpu/cpu.cfs_period_us", "100000\n"}, {"unified/memory.max", "5\n"}},
         3.0,
         5},
        {"not understood", "nonsense\n0::\n", {{"cpu.max", "\n"}, {"memory.max", "much\n"}}, {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const test::TemporaryFolder folder;
        Files::writeAtomically(folder / "groups", c.groups);
        for (const auto& [name, contents] : c.files) {
            Files::createFolders((folder / "root" / name).parent_path());
            Files::writeAtomically(folder / "root" / name, contents);
        }
        const ControlGroupLimits limits = controlGroupLimits(folder / "groups", folder / "root");
        EXPECT_EQ(limits.processors, c.processors);
        EXPECT_EQ(limits.memory, c.memory);
    }
}

} // namespace
} // namespace veltry
