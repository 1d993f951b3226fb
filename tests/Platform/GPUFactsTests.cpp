#include "Platform/Files.h"
#include "Platform/linux/GPUReaders.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace veltry {
namespace {

using ::testing::ElementsAre;
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

TEST(GPUFacts, NamesTheCards)
{
    using GPUFacts::Card;
    const GPUFacts::Cards known{
        .cards =
            {{.name = "Fake 80GB", .memory = 80ULL << 30, .isInUse = true},
             {.name = "", .memory = 0, .isInUse = {}},
             {.name = "Fake 80GB", .memory = 80ULL << 30, .isInUse = false}},
        .driver = "550.54",
        .cuda = "12.4"};
    EXPECT_EQ(NVML(FAKE_NVML).cards(), known);
    EXPECT_EQ(NVML("libc.so.6").cards(), GPUFacts::Cards());

    const test::TemporaryFolder folder;
    const auto file = [&](std::string_view name, std::string_view contents) {
        Files::createFolders((folder / name).parent_path());
        Files::writeAtomically(folder / name, contents);
    };
    file("nvidia/0000:3b:00.0/information", "Model: \t\t Some Card\nIRQ: 7\n");
    file("drm/card0/device/mem_info_vram_total", "17163091968\n");
    file("drm/card0/device/product_name", "Radeon Something\n");
    file("drm/card1/device/mem_info_vram_total", "8589934592\n");
    file("drm/card2/device/mem_info_vram_total", "0\n");
    file("drm/card1-DP-1/device/mem_info_vram_total", "8589934592\n");
    EXPECT_THAT(nvidiaFileCards(folder / "nvidia"), ElementsAre(Card{.name = "Some Card"}));
    EXPECT_THAT(
        amdCards(folder / "drm"),
        ElementsAre(
            Card{.name = "Radeon Something", .memory = 17163091968}, Card{.name = "AMD GPU", .memory = 8589934592}));
    EXPECT_THAT(amdCards(folder / "missing"), IsEmpty());
}

} // namespace
} // namespace veltry
