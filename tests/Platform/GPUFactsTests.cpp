#include "Platform/Files.h"
#include "Platform/linux/GPUReaders.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace veltry {
namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

TEST(GPUFacts, AsksTheDriversLibrary)
{
    EXPECT_THAT(NVML(FAKE_NVML).utilizations(), UnorderedElementsAre(30, 32));
    EXPECT_THAT(NVML("libno-such-library.so.1").utilizations(), IsEmpty());
    EXPECT_THAT(NVML("libc.so.6").utilizations(), IsEmpty()) << "without the functions";
}

TEST(GPUFacts, ReadsTheKernelsFiles)
{
    const test::TemporaryFolder folder;
    const auto card = [&](std::string_view name, std::string_view contents) {
        Files::createFolders(folder / name / "device");
        Files::writeAtomically(folder / name / "device" / "gpu_busy_percent", contents);
    };
    EXPECT_THAT(drmUtilizations(folder / "missing"), IsEmpty());
    card("card0", "7\n");
    card("card0-DP-1", "8\n");
    card("card1", "120\n");
    card("card2", "no number\n");
    card("renderD128", "9\n");
    Files::createFolders(folder / "card3");
    EXPECT_THAT(drmUtilizations(folder.path()), UnorderedElementsAre(7, 120));
}

} // namespace
} // namespace veltry
