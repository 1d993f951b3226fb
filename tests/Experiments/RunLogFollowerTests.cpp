#include "Experiments/RunLogFollower.h"
#include "Experiments/RunLogStamp.h"
#include "Platform/Files.h"
#include "Support/TemporaryFolder.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <fcntl.h>

namespace veltry {
namespace {

using RunLog::Follower;
using testing::ElementsAre;
using testing::IsEmpty;

class RunLogFollower : public testing::Test {
protected:
    void append(std::string_view bytes) const
    {
        Files::writeAll(Files::open(log_, O_WRONLY | O_APPEND | O_CREAT), bytes, "log");
    }

    /// Stamps the next lines as a stamper does.
    void stamp(std::initializer_list<std::uint64_t> offsets) const
    {
        std::string records;
        for (const std::uint64_t offset : offsets)
            RunLog::Stamp::at(offset, Date::sinceUnixEpoch(static_cast<double>(offset))).appendTo(records);
        Files::writeAll(Files::open(RunLog::times(log_), O_WRONLY | O_APPEND | O_CREAT), records, "times");
    }

    /// "2@3 text" for line 2, seen at second 3; "..." at an end that is none yet.
    static std::vector<std::string> shown(const std::vector<Follower::Piece>& pieces)
    {
        std::vector<std::string> texts;
        for (const Follower::Piece& piece : pieces)
            texts.push_back(fmt::format(
                "{}{}@{} {}{}", piece.begins ? "" : "...", piece.line.number.value_or(0),
                piece.line.at ? piece.line.at->secondsSince1970() : -1, piece.line.text, piece.ends ? "" : "..."));
        return texts;
    }

    test::TemporaryFolder folder_;
    std::filesystem::path log_ = folder_ / "log";
};

TEST_F(RunLogFollower, GivesEachLineOnceItIsWhole)
{
    Follower follower(log_, 10);
    EXPECT_THAT(follower.next(), IsEmpty()); // no log yet
    append("a\nb");
    EXPECT_THAT(shown(follower.next()), ElementsAre("1@-1 a")); // no stamps yet
    stamp({0, 2});
    EXPECT_THAT(follower.next(), IsEmpty());
    append("b\n\nd\n");
    stamp({5, 6});
    EXPECT_THAT(shown(follower.next()), ElementsAre("2@2 bb", "3@5 ", "4@6 d"));
    append("unstamped\nend");
    EXPECT_THAT(shown(follower.next()), ElementsAre("5@-1 unstamped"));
    follower.finish();
    append(" and more");
    EXPECT_THAT(shown(follower.next()), ElementsAre("6@-1 end"));
    EXPECT_THAT(follower.next(), IsEmpty());
}

TEST_F(RunLogFollower, BeginsWithTheLastLines)
{
    append("a\nb\nc\n");
    stamp({0, 2, 4});
    const struct {
        std::int64_t count;
        std::vector<std::string> lines;
    } cases[] = {
        {0, {}},
        {1, {"3@4 c"}},
        {2, {"2@2 b", "3@4 c"}},
        {3, {"1@0 a", "2@2 b", "3@4 c"}},
        {9, {"1@0 a", "2@2 b", "3@4 c"}}};
    for (const auto& c : cases)
        EXPECT_EQ(shown(Follower(log_, c.count).next()), c.lines) << c.count;
    append("d");
    Follower follower(log_, 2);
    EXPECT_THAT(shown(follower.next()), ElementsAre("3@4 c"));
    append("\n");
    EXPECT_THAT(shown(follower.next()), ElementsAre("4@-1 d"));
}

TEST_F(RunLogFollower, GivesLongLinesInParts)
{
    std::string line = "x"; // so that no part could end between the two bytes of a character
    while (line.size() < 3 * Follower::pieceBytes)
        line += "ü";
    append("a\n" + line + "\n" + line + "\nz\n");
    stamp({0, 2});
    Follower follower(log_, 3);
    std::string joined;
    std::size_t parts = 0;
    for (auto pieces = follower.next(); !pieces.empty(); pieces = follower.next())
        for (const Follower::Piece& piece : pieces) {
            joined += piece.line.text + (piece.ends ? "\n" : "");
            EXPECT_LE(piece.line.text.size(), 2 * Follower::pieceBytes);
            EXPECT_EQ(piece.line.number, piece.line.text == "z" ? 4 : joined.size() <= line.size() + 1 ? 2 : 3);
            ++parts;
        }
    EXPECT_EQ(joined, line + "\n" + line + "\nz\n");
    EXPECT_GT(parts, 5u);
}

} // namespace
} // namespace veltry
