#include "ACP/JSONRPCConnection/LineSplitter.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

TEST(LineSplitter, GivesTheSameLinesHoweverTheInputIsCut)
{
    const std::string input = "first\n\nGr\xC3\xB6\xC3\x9F"
                              "e\r\nlast\nrest";
    const std::vector<std::string> lines = {
        "first", "",
        "Gr\xC3\xB6\xC3\x9F"
        "e\r",
        "last"};
    for (std::size_t one = 0; one <= input.size(); ++one)
        for (std::size_t two = one; two <= input.size(); ++two) {
            SCOPED_TRACE(testing::Message() << "cut at " << one << " and " << two);
            LineSplitter splitter;
            std::vector<std::string> got;
            for (const std::string& chunk : {input.substr(0, one), input.substr(one, two - one), input.substr(two)})
                for (std::string& line : splitter.add(chunk))
                    got.push_back(std::move(line));
            EXPECT_THAT(got, ElementsAreArray(lines));
        }
}

TEST(LineSplitter, ScansALongLineOnce)
{
    LineSplitter splitter;
    const std::string chunk(1000, 'x');
    for (int index = 0; index < 50000; ++index) // 50 MB; scanned anew at each chunk it would take hours
        ASSERT_THAT(splitter.add(chunk), ElementsAre());
    const std::vector<std::string> lines = splitter.add("\n");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].size(), 50'000'000u);
}

} // namespace
} // namespace veltry
