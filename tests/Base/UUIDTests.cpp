#include "Base/UUID.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <unordered_set>

namespace veltry {
namespace {

TEST(UUID, HasOneTextWhateverItWasReadFrom)
{
    const auto lower = UUID::parse("0a1b2c3d-4e5f-6789-abcd-ef0123456789");
    const auto upper = UUID::parse("0A1B2C3D-4E5F-6789-ABCD-EF0123456789");
    ASSERT_TRUE(lower && upper);
    EXPECT_EQ(*lower, *upper);
    EXPECT_EQ(lower->text(), "0A1B2C3D-4E5F-6789-ABCD-EF0123456789");
}

TEST(UUID, RefusesOtherTexts)
{
    for (const std::string_view text :
         {"", "0A1B2C3D4E5F6789ABCDEF0123456789", "{0A1B2C3D-4E5F-6789-ABCD-EF0123456789}",
          "0A1B2C3D-4E5F-6789-ABCD-EF012345678", "0A1B2C3D-4E5F-6789-ABCD-EF01234567890",
          "0A1B2C3D-4E5F-6789-ABCD-EF012345678G", "0A1B2C3D04E5F-6789-ABCD-EF012345678-",
          " A1B2C3D-4E5F-6789-ABCD-EF0123456789"})
        EXPECT_EQ(UUID::parse(text), std::nullopt) << text;
}

TEST(UUID, IsRandomOfVersion4)
{
    std::unordered_set<UUID> seen;
    for (int count = 0; count < 1000; ++count) {
        const UUID id = UUID::random();
        const std::string text = id.text();
        EXPECT_EQ(text[14], '4');
        EXPECT_NE(std::string_view("89AB").find(text[19]), std::string_view::npos) << text;
        EXPECT_EQ(UUID::parse(text), id);
        EXPECT_TRUE(seen.insert(id).second);
    }
}

} // namespace
} // namespace veltry
