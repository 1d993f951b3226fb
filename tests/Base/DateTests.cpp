#include "Base/Date.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string_view>

namespace veltry {
namespace {

TEST(Date, IsWrittenInUTCWithMilliseconds)
{
    const struct {
        double secondsSince2001;
        std::string_view text;
    } cases[] = {
        {0, "2001-01-01T00:00:00.000Z"},           {0.25, "2001-01-01T00:00:00.250Z"},
        {0.9996, "2001-01-01T00:00:01.000Z"},      {-0.001, "2000-12-31T23:59:59.999Z"},
        {720705599.5, "2023-11-03T11:59:59.500Z"}, {-Date::unixEpochTo2001, "1970-01-01T00:00:00.000Z"},
        {94607999, "2003-12-31T23:59:59.000Z"},    {99705600, "2004-02-29T00:00:00.000Z"},
    };

    for (const auto& c : cases)
        EXPECT_EQ(Date{c.secondsSince2001}.iso8601(), c.text);
}

TEST(Date, CountsFromBothEpochs)
{
    EXPECT_EQ(Date::sinceUnixEpoch(978307200.5).secondsSince2001, 0.5);
    EXPECT_EQ(Date{1}.secondsSince1970(), 978307201);
    const double system = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    EXPECT_NEAR(Date::now().secondsSince1970(), system, 60);
}

} // namespace
} // namespace veltry
