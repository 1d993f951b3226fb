#include "Literature/PaperTexts.h"

#include <gtest/gtest.h>

namespace veltry {
namespace {

TEST(PaperTexts, CutsAtTheLastWholeWord)
{
    EXPECT_EQ(PaperTexts::cut("one two", 7), "one two");
    EXPECT_EQ(PaperTexts::cut("one two three", 8), "one two…");
    EXPECT_EQ(PaperTexts::cut("one two", 6), "one…");
    EXPECT_EQ(PaperTexts::cut("onetwo three", 4), "onet…");
    EXPECT_EQ(PaperTexts::cut("e\u0301e\u0301e\u0301", 3), "e\u0301e\u0301e\u0301");
    EXPECT_EQ(PaperTexts::cut("", 3), "");
}

} // namespace
} // namespace veltry
