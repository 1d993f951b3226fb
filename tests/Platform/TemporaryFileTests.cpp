#include "Platform/Files.h"
#include "Platform/SystemError.h"
#include "Platform/TemporaryFile.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

TEST(TemporaryFile, LeavesNothingUnlessItIsKept)
{
    const test::TemporaryFolder folder;
    {
        const TemporaryFile dropped(folder.path());
        Files::writeAll(dropped.file(), "half", "it");
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));

    std::filesystem::create_symlink("/none", folder / "kept"); // a link that leads nowhere is replaced as well
    {
        TemporaryFile kept(folder.path());
        Files::writeAll(kept.file(), "whole", "it");
        EXPECT_THROW(kept.keep(folder / "none/kept"), SystemError);
        kept.keep(folder / "kept");
    }
    EXPECT_EQ(Files::read(folder / "kept"), "whole");
    EXPECT_FALSE(std::filesystem::is_symlink(folder / "kept"));
    EXPECT_THROW(TemporaryFile(folder / "kept"), SystemError);
}

} // namespace
} // namespace veltry
