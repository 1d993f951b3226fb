#include "Base/Numbers.h"

#include <gtest/gtest.h>

namespace veltry {
namespace {

TEST(Numbers, AreShownInSixDigitsWithTheSignOfADifference)
{
    EXPECT_EQ(shownNumber(0.41234567), "0.412346");
    EXPECT_EQ(shownNumber(123456789), "123456789");
    EXPECT_EQ(shownDifference(0.5), "+0.5");
    EXPECT_EQ(shownDifference(-3), "-3");
    EXPECT_EQ(shownDifference(-0.0), "0");
    EXPECT_EQ(groupedCount(1, "file", "files"), "1 file");
    EXPECT_EQ(groupedCount(-1234567, "file", "files"), "-1,234,567 files");
}

TEST(Numbers, WriteSizes)
{
    const std::pair<std::uint64_t, const char*> cases[] = {{0, "0 B"},          {999, "999 B"},
                                                           {1000, "1.0 kB"},    {999'949, "999.9 kB"},
                                                           {999'950, "1.0 MB"}, {5'000'000'000'000, "5.0 TB"}};
    for (const auto& [bytes, text] : cases)
        EXPECT_EQ(shownBytes(bytes), text);
}

} // namespace
} // namespace veltry
